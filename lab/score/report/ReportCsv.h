#pragma once

#include "lab/score/Score.h"

#include <string>

namespace lab::score {

// A header line, one line per record, then "gross" and "average": counts, fractions from 0 to 1,
// and the conditions under which they were obtained. An empty field where one is undefined.
std::string CsvOf(const ScoreResult& result);

} // namespace lab::score
