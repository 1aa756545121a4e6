#include "lab/material/readers/Units.h"

#include "lab/material/readers/Numbers.h"

#include <array>
#include <utility>

namespace lab {

std::optional<double> UnitsPerMillivolt(const std::string& unit) {
    // The prefix is U+00B5 or U+03BC in UTF-8, or B5 in Latin-1.
    constexpr std::array<std::pair<const char*, double>, 12> kVoltages = {{
        {"mV", 1.0},
        {"uV", 1e3},
        {"\xC2\xB5V", 1e3},
        {"\xCE\xBCV", 1e3},
        {"\xB5V", 1e3},
        {"V", 1e-3},
        {"nV", 1e6},
        {"mv", 1.0},
        {"uv", 1e3},
        {"UV", 1e3},
        {"microV", 1e3},
        {"Volt", 1e-3},
    }};
    const std::string_view wanted = Trim(unit);
    for (const auto& [name, factor] : kVoltages) {
        if (wanted == name) {
            return factor;
        }
    }
    return std::nullopt;
}

} // namespace lab
