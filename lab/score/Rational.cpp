#include "lab/score/Rational.h"

#include <stdexcept>

namespace lab::score {
namespace {

constexpr Int128 kMost = static_cast<Int128>(1) << 125;
constexpr int kMostDigits = 37; // exponent of the largest power of ten below kMost

[[noreturn]] void Overflow() {
    throw std::overflow_error("needs more digits than are kept exactly");
}

Int128 Magnitude(Int128 value) {
    return value < 0 ? -value : value;
}

Int128 CommonDivisor(Int128 left, Int128 right) {
    while (right != 0) {
        const Int128 rest = left % right;
        left = right;
        right = rest;
    }
    return left;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Appends digits one by one; trailing zeros are kept back until another digit follows.
class Mantissa {
  public:
    void Add(char digit, bool isFraction) {
        m_zeros += 1;
        m_exponent -= isFraction ? 1 : 0;
        if (digit != '0') {
            m_value = Multiply(m_value, m_value == 0 ? 1 : PowerOfTen(m_zeros)) + (digit - '0');
            m_zeros = 0;
        }
    }
    Int128 Value() const { return m_value; }
    int Exponent() const { return m_exponent + m_zeros; }

  private:
    Int128 m_value = 0;
    int m_zeros = 0;
    int m_exponent = 0;
};

// The exponent after "e", limited to the range that makes a difference.
std::optional<int> ParseExponent(std::string_view text) {
    constexpr int kFarTooMuch = 100'000'000;
    const bool isNegative = !text.empty() && text.front() == '-';
    text.remove_prefix(!text.empty() && (isNegative || text.front() == '+') ? 1 : 0);
    if (text.empty()) {
        return std::nullopt;
    }
    int value = 0;
    for (const char c : text) {
        if (!IsDigit(c)) {
            return std::nullopt;
        }
        value = value > kFarTooMuch ? value : value * 10 + (c - '0');
    }
    return isNegative ? -value : value;
}

} // namespace

std::optional<Decimal> ParseDecimal(std::string_view text) {
    const bool isNegative = !text.empty() && text.front() == '-';
    text.remove_prefix(!text.empty() && (isNegative || text.front() == '+') ? 1 : 0);
    Mantissa mantissa;
    bool hasDigits = false;
    bool isFraction = false;
    std::size_t at = 0;
    for (; at < text.size() && (IsDigit(text[at]) || (text[at] == '.' && !isFraction)); ++at) {
        if (text[at] == '.') {
            isFraction = true;
        } else {
            hasDigits = true;
            mantissa.Add(text[at], isFraction);
        }
    }
    int exponent = 0;
    if (at < text.size()) {
        const auto stated =
            text[at] == 'e' || text[at] == 'E' ? ParseExponent(text.substr(at + 1)) : std::nullopt;
        if (!stated) {
            return std::nullopt;
        }
        exponent = *stated;
    }
    if (!hasDigits) {
        return std::nullopt;
    }
    if (mantissa.Value() == 0) {
        return Decimal{};
    }
    return Decimal{isNegative ? -mantissa.Value() : mantissa.Value(),
                   mantissa.Exponent() + exponent};
}

// Most factors are so small that the product is known to fit without any division.
Int128 Multiply(Int128 left, Int128 right) {
    constexpr Int128 kSmall = static_cast<Int128>(1) << 62;
    if (Magnitude(left) < kSmall && Magnitude(right) < kSmall) {
        return left * right;
    }
    if (left != 0 && Magnitude(right) > kMost / Magnitude(left)) {
        Overflow();
    }
    return left * right;
}

Int128 PowerOfTen(int exponent) {
    if (exponent > kMostDigits) {
        Overflow();
    }
    Int128 power = 1;
    for (int i = 0; i < exponent; ++i) {
        power *= 10;
    }
    return power;
}

Rational::Rational(Int128 numerator, Int128 denominator) {
    const Int128 divisor = CommonDivisor(Magnitude(numerator), denominator);
    m_numerator = numerator / divisor;
    m_denominator = denominator / divisor;
}

Rational::Rational(const Decimal& decimal)
    : Rational(decimal.exponent > 0 ? Multiply(decimal.mantissa, PowerOfTen(decimal.exponent))
                                    : decimal.mantissa,
               decimal.exponent < 0 ? PowerOfTen(-decimal.exponent) : 1) {}

double Rational::ToDouble() const {
    return static_cast<double>(static_cast<long double>(m_numerator) /
                               static_cast<long double>(m_denominator));
}

Int128 Rational::InUnitsOf(Int128 denominator) const {
    return Multiply(m_numerator, denominator / m_denominator);
}

Rational operator+(const Rational& left, const Rational& right) {
    const Int128 denominator = CommonMultiple(left.Denominator(), right.Denominator());
    return {left.InUnitsOf(denominator) + right.InUnitsOf(denominator), denominator};
}

// Reduced crosswise first, so that a product is refused only if it really has too many digits.
Rational operator*(const Rational& left, const Rational& right) {
    const Rational one(left.Numerator(), right.Denominator());
    const Rational other(right.Numerator(), left.Denominator());
    return {Multiply(one.Numerator(), other.Numerator()),
            Multiply(one.Denominator(), other.Denominator())};
}

Rational operator/(const Rational& left, const Rational& right) {
    const Int128 sign = right.Numerator() < 0 ? -1 : 1;
    return left * Rational(sign * right.Denominator(), sign * right.Numerator());
}

bool operator==(const Rational& left, const Rational& right) {
    return left.Numerator() == right.Numerator() && left.Denominator() == right.Denominator();
}

Int128 CommonMultiple(Int128 left, Int128 right) {
    return Multiply(left / CommonDivisor(left, right), right);
}

} // namespace lab::score
