#pragma once

#include <optional>
#include <string>

namespace lab {

// Seconds from "90", "90.5", "1:30", "1:30.5" or "0:01:30"; minutes and seconds below 60 where
// something stands before them. Nothing when it is none of these.
std::optional<double> SecondsFromText(const std::string& text);

// "1:30.5": minutes, seconds and tenths, cut off.
std::string ClockText(double seconds);

} // namespace lab
