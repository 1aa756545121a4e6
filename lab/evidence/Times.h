#pragma once

#include <string>

namespace lab {

// The instant that "2026-11-22T05:07:17.250+01:00" means, in seconds since 1970; 0 when it means
// none.
double InstantOf(const std::string& isoTime);

// Seconds of the clock that nobody sets, for durations within one process.
double MonotonicSeconds();

// "1:02:03" or "2:03"
std::string DurationText(double seconds);

} // namespace lab
