#pragma once

#include <cstdlib>
#include <locale.h>

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
