#pragma once

#include <optional>
#include <string>

namespace lab {

// How many of `unit` are one millivolt: 1000 for "uV" in each of its spellings and encodings, 0.001
// for "V". Nothing for a unit that is not one of voltage.
std::optional<double> UnitsPerMillivolt(const std::string& unit);

} // namespace lab
