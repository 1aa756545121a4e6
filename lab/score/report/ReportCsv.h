#pragma once

#include "lab/score/Score.h"

#include <string>

namespace lab::score {

// A header line, one line a record, then "gross" and "average". Fractions from 0 to 1; an empty
// field where one is undefined.
std::string CsvOf(const ScoreResult& result);

} // namespace lab::score
