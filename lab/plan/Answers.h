#pragma once

#include "lab/common/Interrupt.h"
#include "lab/evidence/Numbers.h"
#include "lab/plan/Plan.h"

#include <map>
#include <optional>
#include <string>
#include <variant>

namespace lab {

// An operator's answer: a number as it is printed, or a text.
using Answer = std::variant<double, std::string>;

// "a number from 0.9 to 1.1 mV", "pass or fail"
std::string AllowedAnswers(const Question& question);

// The answer that a text holds; nothing when the question does not allow it.
std::optional<Answer> ParseAnswer(const Question& question, const std::string& text);

// Whether the answer passes: within the limits; any choice but "fail", "failed" and "no".
bool Passes(const Question& question, const Answer& answer);

// Answers from a TOML file, by the names of results or of steps. Fails after every fault of the
// file has been printed.
std::map<std::string, Answer> ReadAnswers(const std::string& path, const Plan& plan);

// Asks on the terminal until the answer is allowed, and lets the operator correct it. Returns
// nothing without a terminal, at the end of input, and after a signal.
std::optional<Answer> AskOperator(const Question& question, const std::string& name,
                                  const Interrupt& interrupt);

} // namespace lab
