#include "tools/ravo/CommandLineError.h"

#include "lab/common/Suggestion.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <regex>
#include <vector>

namespace cli {

using namespace lab;

namespace {

// The parser's own sentence, and ours: the place concerned and the problem, with the groups of the
// expression as $1, $2, ...
struct Rephrasing {
    const char* pattern;
    const char* where;
    const char* problem;
};

constexpr Rephrasing kRephrasings[] = {
    {"(.*): Value (.*) not in range (.*) to (.*)", "$1",
     "\"$2\" is not a whole number from $3 to $4."},
    {"(.*): (.*) not in \\{(.*)\\}", "$1", "\"$2\" is not one of $3."},
    {"Could not convert: (.*) = (.*)", "$1", "\"$2\" is not a number."},
    {"A subcommand is required", "COMMAND", "is missing."},
    {"(.*) is required", "$1", "is missing."},
    {"(.*) requires (.*)", "$1", "needs $2 as well."},
    {"(.*) excludes (.*)", "$1", "cannot be combined with $2."},
    {"(.*): .* required .* missing", "$1", "needs a value."},
    {".* not expected: (?:.* )?(-[^ ]*).*", "$1", "is not an option of this command."},
    {".* not expected: ([^ ]*).*", "$1", "was not expected."},
    {"(.*?): (.*)", "$1", "$2."},
};

// The parser lists the allowed values without blanks; what the user typed is left unchanged.
std::string SpacedOut(const std::string& problem) {
    const std::size_t list = problem.find("\" is not one of ");
    if (list == std::string::npos) {
        return problem;
    }
    return problem.substr(0, list) +
           std::regex_replace(problem.substr(list), std::regex(",(?! )"), ", ");
}

std::vector<std::string> OptionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

std::vector<std::string> CommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        names.push_back(command->get_name());
    }
    return names;
}

const CLI::App& Recognised(const CLI::App& app) {
    const std::vector<CLI::App*> commands = app.get_subcommands();
    return commands.empty() ? app : *commands.front();
}

std::string CureFor(const CLI::App& app, const std::string& where, const std::string& problem) {
    const CLI::App& command = Recognised(app);
    if (problem.find("more than one ratio") != std::string::npos) {
        return "One record is mixed with one noise at one ratio; `ravo nst` mixes several noises, "
               "each at its own, into a record to play.";
    }
    if (where.find('=') != std::string::npos && where[0] != '-') {
        return "Each mapping or gain has an option of its own: --map A=I --map B=II.";
    }
    const bool isUnknownOption =
        where.rfind("--", 0) == 0 && command.get_option_no_throw(where) == nullptr;
    const std::string hint =
        isUnknownOption ? DidYouMean(Nearest(where, OptionNames(command))) : "";
    return hint.empty() ? "`" + CommandName(app) + " --help` shows its use." : hint;
}

Failure UnknownCommand(const CLI::App& app, const std::string& word) {
    const std::string hint = DidYouMean(Nearest(word, CommandNames(app)));
    return Failure(kUsage, word, "is neither a command nor an option of ravo itself.",
                   hint.empty() ? "`ravo --help` lists them." : hint);
}

} // namespace

std::string CommandName(const CLI::App& app) {
    const CLI::App& command = Recognised(app);
    return &command == &app ? "ravo" : "ravo " + command.get_name();
}

Failure ToFailure(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining();
    if (app.get_subcommands().empty() && !unknown.empty()) {
        return UnknownCommand(app, unknown.front());
    }
    const std::string text = error.what();
    for (const Rephrasing& rephrasing : kRephrasings) {
        std::smatch match;
        if (std::regex_match(text, match, std::regex(rephrasing.pattern))) {
            const std::string where = match.format(rephrasing.where);
            const std::string problem = match.format(rephrasing.problem);
            return Failure(kUsage, where, SpacedOut(problem), CureFor(app, where, problem));
        }
    }
    return Failure(kUsage, "command line", text + ".", CureFor(app, "", text));
}

} // namespace cli
