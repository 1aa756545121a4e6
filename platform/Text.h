#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale.h>
#include <string_view>

// Text and numbers of files, independent of the host's locale.

// Characters that the C locale treats as white space.
inline bool IsSpace(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

inline char ToLower(char character) {
    return static_cast<char>(character >= 'A' && character <= 'Z' ? character - 'A' + 'a'
                                                                  : character);
}

// Only ASCII letters of different case are equal: in a Turkish locale, "Lead I" and "lead i" would
// not match.
inline bool EqualsIgnoringCase(char left, char right) {
    return ToLower(left) == ToLower(right);
}

inline bool EqualsIgnoringCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() &&
           std::equal(left.begin(), left.end(), right.begin(),
                      [](char a, char b) { return EqualsIgnoringCase(a, b); });
}

inline bool ContainsIgnoringCase(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char a, char b) { return EqualsIgnoringCase(a, b); }) != text.end();
}

// Copies at most Size - 1 characters and terminates them.
template <std::size_t Size>
void CopyText(char (&out)[Size], const char* text) {
    const std::size_t length = strnlen(text, Size - 1);
    std::memcpy(out, text, length);
    out[length] = '\0';
}

// Values beyond 32 bits are limited to the nearest end of the range.
inline int32_t ToInt32(int64_t value) {
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(std::clamp<int64_t>(value, Limits::min(), Limits::max()));
}

// The integer part of `value`.  Values beyond 32 bits become the nearest end of the range, and NaN
// becomes 0: headers and samples with arbitrary content pass through this conversion.
inline int32_t TruncateToInt32(double value) {
    using Limits = std::numeric_limits<int32_t>;
    if (value >= static_cast<double>(Limits::max())) {
        return Limits::max();
    }
    if (value <= static_cast<double>(Limits::min())) {
        return Limits::min();
    }
    return value == value ? static_cast<int32_t>(value) : 0;
}

// Records, their headers and calibration files use the decimal point in every locale.  While this
// object exists, the calling thread reads and writes numbers in this form.
class ClassicLocale {
  public:
    ClassicLocale() : m_hostLocale(uselocale(Get())) {}
    ~ClassicLocale() { uselocale(m_hostLocale); }
    ClassicLocale(const ClassicLocale&) = delete;
    ClassicLocale& operator=(const ClassicLocale&) = delete;

    // strtod, for a single number.
    static double ToDouble(const char* text) { return strtod_l(text, nullptr, Get()); }

  private:
    static locale_t Get() {
        static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
        return classic;
    }

    locale_t m_hostLocale;
};
