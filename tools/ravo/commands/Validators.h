#pragma once

#include <CLI/CLI.hpp>

#include <cmath>
#include <string>

namespace cli {

// Without an exponent, which users rarely type.
inline std::string PlainNumber(double number) {
    std::string text = std::to_string(number);
    text.erase(text.find_last_not_of('0') + 1);
    return text.back() == '.' ? text.substr(0, text.size() - 1) : text;
}

// A number from `least` to `most`; not "nan", which passes every comparison.
inline CLI::Validator Between(double least, double most) {
    const std::string range = PlainNumber(least) + " to " + PlainNumber(most);
    return {[least, most, range](std::string& text) {
                double value = 0.0;
                const bool isNumber = CLI::detail::lexical_cast(text, value);
                return isNumber && value >= least && value <= most
                           ? std::string()
                           : "\"" + text + "\" is not a number from " + range;
            },
            range};
}

// A text that is not empty; a shell expands a variable that is not set to an empty one.
inline CLI::Validator NotEmpty() {
    return {[](std::string& text) { return text.empty() ? "is empty" : std::string(); }, ""};
}

} // namespace cli
