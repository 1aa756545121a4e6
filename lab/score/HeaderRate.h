#pragma once

#include "lab/score/Rational.h"

#include <optional>
#include <string>
#include <string_view>

namespace lab::score {

// Samples per second as stated; nothing when the text is not a number above 0 or has more digits
// than can be kept exactly.
std::optional<Rational> ParseRate(std::string_view text);

// Samples per second as the record line of a WFDB header states them, exactly; 250 where it states
// none. A counter frequency after a slash concerns other times and is ignored. Fails naming `where`
// and the line.
Rational ParseHeaderRate(const std::string& header, const std::string& where);

} // namespace lab::score
