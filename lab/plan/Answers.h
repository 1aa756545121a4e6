#pragma once

#include "lab/common/Interrupt.h"
#include "lab/evidence/Numbers.h"
#include "lab/plan/Plan.h"

#include <map>
#include <optional>
#include <string>
#include <variant>

namespace lab {

// What an operator has answered: a number, as it is printed, or a text.
using Answer = std::variant<double, std::string>;

// "a number from 0.9 to 1.1 mV", "pass or fail"
std::string AllowedAnswers(const Question& question);

// The answer that a text means, when it is one to this question.
std::optional<Answer> ParseAnswer(const Question& question, const std::string& text);

// Whether the answer passes: within the limits; any choice but "fail", "failed" and "no".
bool Passes(const Question& question, const Answer& answer);

// Answers from a file of TOML, by the names of results or of steps. Fails after everything that is
// wrong with the file has been printed.
std::map<std::string, Answer> ReadAnswers(const std::string& path, const Plan& plan);

// Asks on the terminal until there is an answer that is allowed, and lets it be corrected. Nothing
// without a terminal, at the end of input, and when a signal comes.
std::optional<Answer> AskOperator(const Question& question, const std::string& name,
                                  const Interrupt& interrupt);

} // namespace lab
