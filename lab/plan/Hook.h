#pragma once

#include "lab/common/Interrupt.h"
#include "lab/plan/ScoreTask.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace lab {

struct HookResult {
    std::string outcome;           // "passed", "failed" or "error"
    std::string message;           // why not passed
    nlohmann::ordered_json values; // name: number or text
    int signal = 0;                // that interrupted it; leaves the other members undefined
    std::optional<ScoreTask> score = std::nullopt; // the comparison that the hook requests
};

// Runs the command in `folder` without a shell, in a process group of its own. The group is killed
// after `timeout` seconds, and none of its processes is left running. It gets `input` on standard
// input and prints {"verdict": "passed"|"failed"|"none", "values": {...}} on standard output,
// optionally with a "score" that has the fields of a plan's score.
HookResult RunHook(const std::vector<std::string>& command, const std::string& folder,
                   double timeout, const std::string& input, const Interrupt& interrupt);

// The result in the output of a hook.
HookResult JudgeHookOutput(const std::string& output);

} // namespace lab
