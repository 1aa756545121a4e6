#pragma once

#include "lab/score/Rational.h"

#include <string>

namespace lab::score {

// Samples per second as the record line of a WFDB header states them, exactly; 250 where it states
// none. A counter frequency after a slash concerns other times and is left aside. Fails naming
// `where` and the line.
Rational ParseHeaderRate(const std::string& header, const std::string& where);

} // namespace lab::score
