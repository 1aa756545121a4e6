#pragma once

#include <clocale>
#include <cstdlib>

// While it exists, the process has a locale that is made by the build, so that none has to be
// installed on the machine.
class TestLocale {
  public:
    explicit TestLocale(const char* name) {
        setenv("LOCPATH", RAVO_TEST_LOCALES, 1);
        m_isThere = std::setlocale(LC_ALL, name) != nullptr;
    }
    ~TestLocale() { std::setlocale(LC_ALL, "C"); }
    TestLocale(const TestLocale&) = delete;
    TestLocale& operator=(const TestLocale&) = delete;

    // False where the build could not make it (no localedef).
    bool IsThere() const { return m_isThere; }

  private:
    bool m_isThere = false;
};

// "1,5" is a number and "1.5" is not.
class DecimalComma : public TestLocale {
  public:
    DecimalComma() : TestLocale("decimal_comma") {}
};

// "I" and "i" are not the upper and lower case of one letter, as in Turkish.
class DottedI : public TestLocale {
  public:
    DottedI() : TestLocale("dotted_i") {}
};
