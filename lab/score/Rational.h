#pragma once

#include <optional>
#include <string>
#include <string_view>

// Times without rounding. A value that does not fit into the 126 bits used is refused with
// std::overflow_error and never rounded.
namespace lab::score {

__extension__ typedef __int128 Int128;

// A number as written: mantissa x 10^exponent, without trailing zeros.
struct Decimal {
    Int128 mantissa = 0;
    int exponent = 0;
};

// Digits with an optional sign, point and exponent; nothing else is a number.
std::optional<Decimal> ParseDecimal(std::string_view text);

// The product, and 10^exponent; both throw std::overflow_error.
Int128 Multiply(Int128 left, Int128 right);
Int128 PowerOfTen(int exponent);

// A fraction in lowest terms; the denominator is positive.
class Rational {
  public:
    Rational() = default;
    Rational(Int128 numerator, Int128 denominator = 1);
    explicit Rational(const Decimal& decimal);

    Int128 Numerator() const { return m_numerator; }
    Int128 Denominator() const { return m_denominator; }
    double ToDouble() const;

    // The number of units of 1 / `denominator`, which must be a multiple of the fraction's own
    // denominator.
    Int128 InUnitsOf(Int128 denominator) const;

  private:
    Int128 m_numerator = 0;
    Int128 m_denominator = 1;
};

Rational operator+(const Rational& left, const Rational& right);
Rational operator*(const Rational& left, const Rational& right);
Rational operator/(const Rational& left, const Rational& right); // by a number other than 0
bool operator==(const Rational& left, const Rational& right);

// The least common multiple of two positive numbers.
Int128 CommonMultiple(Int128 left, Int128 right);

} // namespace lab::score
