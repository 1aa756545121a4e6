#include "lab/common/TimeText.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <cstdint>
#include <locale>
#include <sstream>

namespace lab {
namespace {

bool IsDigits(const std::string& text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Digits with or without a fraction; no sign, no exponent, no blank.
bool IsDecimal(const std::string& text) {
    const std::size_t point = text.find('.');
    return IsDigits(text.substr(0, point)) &&
           (point == std::string::npos || IsDigits(text.substr(point + 1)));
}

double Value(const std::string& decimal) {
    double value = 0.0;
    std::istringstream stream(decimal);
    stream.imbue(std::locale::classic());
    stream >> value;
    return value;
}

} // namespace

std::optional<double> SecondsFromText(const std::string& text) {
    constexpr double kSixty = 60.0;
    double seconds = 0.0;
    std::string rest = text;
    for (int colons = 0;; ++colons) {
        const std::size_t colon = rest.find(':');
        const std::string part = rest.substr(0, colon);
        const bool isLast = colon == std::string::npos;
        if (colons > 2 || !(isLast ? IsDecimal(part) : IsDigits(part)) ||
            (colons > 0 && Value(part) >= kSixty)) {
            return std::nullopt;
        }
        seconds = seconds * kSixty + Value(part);
        if (isLast) {
            return seconds;
        }
        rest.erase(0, colon + 1);
    }
}

std::string ClockText(double seconds) {
    const auto tenths = static_cast<int64_t>(seconds * 10.0);
    return Format("%lld:%02lld.%lld", static_cast<long long>(tenths / 600),
                  static_cast<long long>(tenths / 10 % 60), static_cast<long long>(tenths % 10));
}

} // namespace lab
