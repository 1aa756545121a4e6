#pragma once

#include "lab/score/Score.h"

#include <string>

namespace lab::score {

// Writes A4 pages across. Fails with status 6 where the file cannot be written.
void WritePdf(const ScoreResult& result, const std::string& path);

} // namespace lab::score
