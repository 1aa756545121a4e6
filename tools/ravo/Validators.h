#pragma once

#include <CLI/CLI.hpp>

#include <cmath>
#include <string>

namespace cli {

// A number from `least` to `most`; "nan", which every comparison lets pass, is none.
inline CLI::Validator Between(double least, double most) {
    const std::string range = CLI::detail::to_string(least) + " to " + CLI::detail::to_string(most);
    return {[least, most, range](std::string& text) {
                double value = 0.0;
                const bool isNumber = CLI::detail::lexical_cast(text, value);
                return isNumber && value >= least && value <= most
                           ? std::string()
                           : "\"" + text + "\" is not a number from " + range;
            },
            range};
}

} // namespace cli
