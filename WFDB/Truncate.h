#pragma once

#include <cstdint>
#include <limits>

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
