#include "lab/material/readers/Numbers.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>

namespace lab {
namespace {

__extension__ typedef __int128 Wide;

constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();

Wide Gcd(Wide a, Wide b) {
    while (b != 0) {
        const Wide rest = a % b;
        a = b;
        b = rest;
    }
    return a < 0 ? -a : a;
}

// Divides both parts by two until they fit.
Rate Reduced(Wide numerator, Wide denominator) {
    const Wide divisor = Gcd(numerator, denominator);
    if (divisor > 1) {
        numerator /= divisor;
        denominator /= divisor;
    }
    while (numerator > kLargest || numerator < -kLargest || denominator > kLargest) {
        numerator /= 2;
        denominator /= 2;
    }
    return {static_cast<int64_t>(numerator),
            denominator == 0 ? 1 : static_cast<int64_t>(denominator)};
}

std::string_view WithoutPlus(std::string_view text) {
    return !text.empty() && text[0] == '+' ? text.substr(1) : text;
}

} // namespace

bool operator==(const Rate& a, const Rate& b) {
    return a.numerator == b.numerator && a.denominator == b.denominator;
}

bool operator<(const Rate& a, const Rate& b) {
    return Wide(a.numerator) * b.denominator < Wide(b.numerator) * a.denominator;
}

Rate MakeRate(int64_t numerator, int64_t denominator) {
    return denominator < 0 ? Reduced(-Wide(numerator), -Wide(denominator))
                           : Reduced(numerator, denominator);
}

Rate operator*(const Rate& rate, int64_t factor) {
    return Reduced(Wide(rate.numerator) * factor, rate.denominator);
}

Rate CommonRate(const Rate& a, const Rate& b) {
    const Wide common = Gcd(a.denominator, b.denominator);
    const Wide denominator = Wide(a.denominator) / common * b.denominator;
    const Wide numerator = Gcd(Wide(a.numerator) * (b.denominator / common),
                               Wide(b.numerator) * (a.denominator / common));
    return Reduced(numerator, denominator);
}

std::optional<Rate> ParseFraction(std::string_view text) {
    constexpr int kMostDecimals = 12;
    const auto number = ParseNumber(text);
    if (!number || std::fabs(*number) > 1e15) {
        return std::nullopt;
    }
    double scaled = *number;
    int64_t denominator = 1;
    for (int decimals = 0; decimals <= kMostDecimals; ++decimals, denominator *= 10) {
        scaled = *number * static_cast<double>(denominator);
        const double whole = std::nearbyint(scaled);
        // The nearest double to a decimal number gives that number back.
        if (std::fabs(whole) < 9e15 && whole / static_cast<double>(denominator) == *number) {
            return MakeRate(static_cast<int64_t>(whole), denominator);
        }
    }
    return std::nullopt;
}

std::optional<double> ParseNumber(std::string_view text) {
    text = WithoutPlus(Trim(text));
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool isNumber =
        error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
    return isNumber ? std::optional(value) : std::nullopt;
}

std::optional<int64_t> ParseWhole(std::string_view text) {
    text = WithoutPlus(Trim(text));
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value)
                                                                    : std::nullopt;
}

int64_t LeadingWhole(std::string_view text) {
    text = WithoutPlus(Trim(text));
    int64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        return text[0] == '-' ? -kLargest : kLargest;
    }
    return value;
}

int64_t BoundedSum(int64_t a, int64_t b) {
    return a > kLargest - b ? kLargest : a + b;
}

int64_t BoundedProduct(int64_t a, int64_t b) {
    return b != 0 && a > kLargest / b ? kLargest : a * b;
}

std::string_view Trim(std::string_view text) {
    constexpr const char* kBlanks = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

} // namespace lab
