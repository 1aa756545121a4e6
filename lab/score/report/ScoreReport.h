#pragma once

#include "lab/score/Score.h"

#include <string>

namespace lab::score {

// Writes the result to a file, by its suffix: .html (one file that loads nothing from elsewhere),
// .pdf or .csv (every count and fraction, one record a line). Fails with status 1 for another
// suffix and with status 6 where the file cannot be written.
void WriteReport(const ScoreResult& result, const std::string& path);

// Fails with status 1 for any other suffix.
void RequireReportName(const std::string& path);

} // namespace lab::score
