#pragma once

#include "lab/plan/Toml.h"
#include "lab/score/Score.h"

#include <string>
#include <vector>

// A comparison of annotations as a plan or a hook requests it.
namespace lab {

struct ScoreLimit {
    std::string name; // "qrs_se_min"
    score::Limit limit;
    double value = 0.0; // from 0 to 1, inclusive
};

struct ScoreTask {
    score::ScoreRequest request; // with the paths as the task names them
    std::vector<ScoreLimit> limits;
};

// All faults in the table of a score.
std::vector<Complaint> ComplaintsOfScore(const TomlNode& table);

// Reads a table that is known to be free of faults.
ScoreTask ReadScore(const TomlNode& table);

// The comparison, with its paths ready to be opened.
score::ScoreRequest RequestIn(const ScoreTask& task, const std::string& folder);

// The reference's files, which exist before the run, as paths to open: the file itself, or those of
// the folder with its suffix.
std::vector<std::string> ReferenceFiles(const ScoreTask& task, const std::string& folder);

} // namespace lab
