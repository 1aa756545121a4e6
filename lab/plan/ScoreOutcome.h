#pragma once

#include "lab/plan/ScoreTask.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

// The outcome of a score.
namespace lab {

struct ScoreOutcome {
    std::string outcome; // "passed", "failed" or "error"
    std::string message; // why not passed
    // Figures by name, null where undefined; limits by name; the files with their digests; the
    // whole result as `ravo score --json` prints it. Null when the files cannot be used.
    nlohmann::ordered_json values = nlohmann::ordered_json::object();
    nlohmann::ordered_json limits = nlohmann::ordered_json::object();
    nlohmann::ordered_json files = nlohmann::ordered_json::array();
    nlohmann::ordered_json score;
    std::vector<std::string> warnings; // for the terminal; the result has them, too
};

// Compares; paths are relative to `folder`. A limit on an undefined figure fails.
ScoreOutcome CarryOutScore(const ScoreTask& task, const std::string& folder);

// Limits by name.
nlohmann::ordered_json LimitsOf(const ScoreTask& task);

} // namespace lab
