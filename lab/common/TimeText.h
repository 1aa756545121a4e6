#pragma once

#include <optional>
#include <string>

namespace lab {

// Seconds from "90", "90.5", "1:30", "1:30.5" or "0:01:30"; minutes and seconds are
// below 60 where a larger unit precedes them. Nothing for any other text.
std::optional<double> SecondsFromText(const std::string& text);

// "1:30.5": minutes, seconds and tenths, rounded down.
std::string ClockText(double seconds);

} // namespace lab
