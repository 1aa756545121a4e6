#pragma once

#include "lab/score/Score.h"

#include <string>

namespace lab::score {

// A document of A4 pages in landscape format.
std::string PdfOf(const ScoreResult& result);

} // namespace lab::score
