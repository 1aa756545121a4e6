#pragma once

#include "lab/score/Score.h"

#include <string>

namespace lab::score {

// The result as one JSON text. Fractions run from 0 to 1 and are null where undefined.
std::string ScoreJson(const ScoreResult& result);

} // namespace lab::score
