#pragma once

#include "lab/plan/MaterialCheck.h"
#include "lab/plan/RunRequest.h"
#include "lab/session/Play.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

// The journal's events as a run writes them; lab/evidence/Result.h lists them.
namespace lab {

nlohmann::ordered_json RunEvent(const Plan& plan, const RunRequest& request,
                                const std::vector<bool>& isSelected, const Checks& checks);

// `path`, `sha256` and `bytes` of each file, and `published` for those that have it.
nlohmann::ordered_json FileEntries(const std::vector<CheckedFile>& files);

nlohmann::ordered_json MaterialEvent(const CheckedMaterial& material);

nlohmann::ordered_json SimulatorEvent(const SimulatorInformation& simulator);

// An event of a step, or of the run when `step` is empty, with the time.
nlohmann::ordered_json Event(const char* kind, const std::string& step);

// Adds the figures of a play to the end event of its step.
void TakePlay(nlohmann::ordered_json& event, const PlayResult& result);

// Why a play is incomplete.
std::string CutText(const PlayResult& result);

} // namespace lab
