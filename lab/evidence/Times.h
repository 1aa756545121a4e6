#pragma once

#include <string>

namespace lab {

// The instant of "2026-11-22T05:07:17.250+01:00" in seconds since 1970; 0 for any other text.
double InstantOf(const std::string& isoTime);

// Seconds of the monotonic clock, for durations within one process.
double MonotonicSeconds();

// "1:02:03" or "2:03"
std::string DurationText(double seconds);

} // namespace lab
