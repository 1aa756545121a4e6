#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// Numbers as files write them: with a decimal point in every locale.
namespace lab {

// Samples per second as a fraction in lowest terms, for rates such as 360, 257.5 and 1000/3 alike.
struct Rate {
    int64_t numerator = 0;
    int64_t denominator = 1; // above 0

    double PerSecond() const {
        return static_cast<double>(numerator) / static_cast<double>(denominator);
    }
    bool IsWhole() const { return denominator == 1; }
};

bool operator==(const Rate& a, const Rate& b);
inline bool operator!=(const Rate& a, const Rate& b) {
    return !(a == b);
}
bool operator<(const Rate& a, const Rate& b);

// In lowest terms. `denominator` must not be 0; a fraction that does not fit into 64 bits is
// approximated.
Rate MakeRate(int64_t numerator, int64_t denominator);
Rate operator*(const Rate& rate, int64_t factor);

// The largest rate of which both are whole multiples.
Rate CommonRate(const Rate& a, const Rate& b);

// A decimal number such as "257.5" or "1e3" as a fraction; nothing for text that is not a number
// or needs more than 12 decimals.
std::optional<Rate> ParseFraction(std::string_view text);

// The number that the whole of `text` represents.
std::optional<double> ParseNumber(std::string_view text);
std::optional<int64_t> ParseWhole(std::string_view text);

// The whole number that `text` begins with; 0 without one, the nearest bound when it is too large.
int64_t LeadingWhole(std::string_view text);

// Sum and product of counts; the largest number when they do not fit into 64 bits.
int64_t BoundedSum(int64_t a, int64_t b);
int64_t BoundedProduct(int64_t a, int64_t b);

// `text` without the blanks around it.
std::string_view Trim(std::string_view text);

} // namespace lab
