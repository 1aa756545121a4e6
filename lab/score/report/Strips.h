#pragma once

#include "lab/score/Score.h"

#include <string>

namespace lab::score {

struct StripOptions {
    std::string directory;  // made when it is missing
    std::size_t most = 100; // number of pictures; the list has every disagreement
};

// Draws 6 s of ECG paper around each disagreement, with the beats of both sides, and lists all of
// them in strips.jsonl, one JSON object a line. The result must have kept its comparisons. Loads
// the records that lie beside the references; material that the library held before is lost. Adds
// to `remarks` what could not be drawn. Fails with status 6 where the folder cannot be written.
void DrawStrips(const ScoreResult& result, const StripOptions& options,
                std::vector<std::string>& remarks);

} // namespace lab::score
