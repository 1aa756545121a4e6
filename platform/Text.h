#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale.h>

// Texts and numbers of files, the same in every locale that a host may have chosen.

// Copies at most Size - 1 characters and terminates them.
template <std::size_t Size>
void CopyText(char (&out)[Size], const char* text) {
    const std::size_t length = strnlen(text, Size - 1);
    std::memcpy(out, text, length);
    out[length] = '\0';
}

// Values beyond 32 bits take the nearest end of the range.
inline int32_t ToInt32(int64_t value) {
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(std::clamp<int64_t>(value, Limits::min(), Limits::max()));
}

// The integer part of `value`.  What lies outside 32 bits takes the nearest end of the range, and
// what is not a number becomes 0: headers and samples of any content end in these conversions.
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

// Records, their headers and calibration files use the decimal point, whatever locale the host has
// chosen: the calling thread reads and writes numbers so while this object lives.
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
