#pragma once

#include <clocale>
#include <cstdlib>

// While it lives, the process has a locale in which "1,5" is a number and "1.5" is not: the build
// makes one of its own, so that no machine needs to have it installed.
class DecimalComma {
  public:
    DecimalComma() {
        setenv("LOCPATH", RAVO_TEST_LOCALES, 1);
        m_isThere = std::setlocale(LC_ALL, "decimal_comma") != nullptr;
    }
    ~DecimalComma() { std::setlocale(LC_ALL, "C"); }
    DecimalComma(const DecimalComma&) = delete;
    DecimalComma& operator=(const DecimalComma&) = delete;

    // False where the build could not make it (no localedef).
    bool IsThere() const { return m_isThere; }

  private:
    bool m_isThere = false;
};
