#pragma once

#include <cstdint>
#include <string>

namespace lab {

// A time of CLOCK_MONOTONIC, in nanoseconds, as local date and time in milliseconds with the offset
// from UTC: "2026-11-22T05:10:40.123+01:00". Empty for 0, which stands for "never".
std::string WallClockText(int64_t monotonicNanoseconds);

// The present time in the same form.
std::string WallClockNow();

} // namespace lab
