#pragma once

#include <locale.h>

// WFDB and EDF headers use the decimal point, whatever locale the host has chosen: the calling
// thread reads and writes numbers so while this object lives.
class ClassicLocale {
  public:
    ClassicLocale() : m_hostLocale(uselocale(Get())) {}
    ~ClassicLocale() { uselocale(m_hostLocale); }
    ClassicLocale(const ClassicLocale&) = delete;
    ClassicLocale& operator=(const ClassicLocale&) = delete;

    // For functions that take their locale as an argument.
    static locale_t Get() {
        static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
        return classic;
    }

  private:
    locale_t m_hostLocale;
};
