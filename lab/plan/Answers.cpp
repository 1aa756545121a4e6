#include "lab/plan/Answers.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <locale>
#include <poll.h>
#include <sstream>
#include <unistd.h>

namespace lab {
namespace {

constexpr int kWatchMilliseconds = 100;

std::string Trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// Independent of the locale; parses the whole text.
std::optional<double> ParseNumber(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    double number = 0.0;
    char rest = 0;
    if (!(stream >> number) || stream >> rest || !std::isfinite(number)) {
        return std::nullopt;
    }
    return number;
}

const PlannedStep* FindQuestion(const Plan& plan, const std::string& name) {
    const auto found =
        std::find_if(plan.steps.begin(), plan.steps.end(), [&](const PlannedStep& step) {
            return step.kind == StepKind::kAsk && (step.name == name || step.stepName == name);
        });
    return found == plan.steps.end() ? nullptr : &*found;
}

// A line without its terminator; nothing when input has ended or a signal has arrived.
std::optional<std::string> ReadLine(const Interrupt& interrupt) {
    std::string line;
    while (interrupt.Signal() == 0) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, kWatchMilliseconds) <= 0) {
            continue;
        }
        char c = 0;
        if (::read(STDIN_FILENO, &c, 1) <= 0) {
            return std::nullopt;
        }
        if (c == '\n') {
            return line;
        }
        line += c;
    }
    return std::nullopt;
}

std::string AnswerText(const Question& question, const Answer& answer) {
    if (const double* number = std::get_if<double>(&answer)) {
        return NumberText(*number) + (question.unit.empty() ? "" : " " + question.unit);
    }
    return std::get<std::string>(answer);
}

} // namespace

std::string AllowedAnswers(const Question& question) {
    if (!question.choices.empty()) {
        std::string text;
        for (std::size_t i = 0; i < question.choices.size(); ++i) {
            const bool isLast = i + 1 == question.choices.size();
            text += (i == 0 ? "" : isLast ? " or " : ", ") + question.choices[i];
        }
        return text;
    }
    if (!question.IsNumber()) {
        return "any text";
    }
    std::string text = "a number";
    text += question.unit.empty() ? "" : " in " + question.unit;
    const std::string least = question.min ? NumberText(*question.min) : "";
    const std::string most = question.max ? NumberText(*question.max) : "";
    const std::string limits = question.min && question.max ? least + " to " + most
                               : question.min               ? "at least " + least
                               : question.max               ? "at most " + most
                                                            : "";
    return limits.empty() ? text : text + "; " + limits + " passes";
}

std::optional<Answer> ParseAnswer(const Question& question, const std::string& text) {
    const std::string trimmed = Trimmed(text);
    if (question.IsNumber()) {
        const auto number = ParseNumber(trimmed);
        return number ? std::optional<Answer>(AsPrinted(*number)) : std::nullopt;
    }
    const bool isChoice = std::find(question.choices.begin(), question.choices.end(), trimmed) !=
                          question.choices.end();
    return !trimmed.empty() && (question.choices.empty() || isChoice)
               ? std::optional<Answer>(trimmed)
               : std::nullopt;
}

bool Passes(const Question& question, const Answer& answer) {
    if (const double* number = std::get_if<double>(&answer)) {
        return !(question.min && *number < AsPrinted(*question.min)) &&
               !(question.max && *number > AsPrinted(*question.max));
    }
    const std::string choice = LowerCase(std::get<std::string>(answer));
    return question.choices.empty() || (choice != "fail" && choice != "failed" && choice != "no");
}

std::map<std::string, Answer> ReadAnswers(const std::string& path, const Plan& plan) {
    std::map<std::string, Answer> answers;
    std::vector<Complaint> complaints;
    try {
        for (const TomlEntry& entry :
             ReadToml(ReadWholeFile(path, kUsage, "It is a TOML file: name = value.")).entries) {
            const PlannedStep* step = FindQuestion(plan, entry.key);
            if (step == nullptr) {
                complaints.push_back({entry.place, entry.key, "is not a question of the plan",
                                      "the name of a step that asks"});
                continue;
            }
            const Question& question = step->question;
            const bool fits = entry.value.kind == TomlNode::Kind::kText ? !question.IsNumber()
                                                                        : entry.value.IsNumber();
            const auto answer = ParseAnswer(question, question.IsNumber() && fits
                                                          ? Format("%.17g", entry.value.number)
                                                          : entry.value.text);
            if (fits && answer) {
                answers[entry.key] = *answer;
            } else {
                complaints.push_back({entry.value.place, entry.key, "is not an answer",
                                      "allowed is " + AllowedAnswers(question)});
            }
        }
    } catch (const TomlError& error) {
        complaints.push_back({error.Place(), "TOML", error.what(), "name = value, one a line"});
    }
    RequireNone(path, std::move(complaints));
    return answers;
}

std::optional<Answer> AskOperator(const Question& question, const std::string& name,
                                  const Interrupt& interrupt) {
    if (::isatty(STDIN_FILENO) == 0) {
        return std::nullopt;
    }
    std::fprintf(stderr, "\n%s: %s\n  (%s)\n", name.c_str(), Printable(question.text).c_str(),
                 AllowedAnswers(question).c_str());
    std::optional<Answer> answer;
    for (;;) {
        std::fputs("> ", stderr);
        std::fflush(stderr);
        const auto line = ReadLine(interrupt);
        if (!line || (answer && Trimmed(*line).empty())) {
            return line ? answer : std::nullopt;
        }
        const auto given = ParseAnswer(question, *line);
        if (!given) {
            std::fprintf(stderr, "  This answer is not allowed. Allowed: %s.\n",
                         AllowedAnswers(question).c_str());
            continue;
        }
        answer = given;
        std::fprintf(stderr, "  %s: %s. Enter goes on, another answer corrects it.\n",
                     AnswerText(question, *answer).c_str(),
                     Passes(question, *answer) ? "passed" : "failed");
    }
}

} // namespace lab
