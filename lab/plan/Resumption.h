#pragma once

#include "lab/plan/MaterialCheck.h"
#include "lab/plan/RunRequest.h"

#include <nlohmann/json_fwd.hpp>

#include <vector>

namespace lab {

// Fails, naming the difference, unless the journal's run is one of this plan with this material and
// these options. `checks` are current.
void RequireSameRun(const std::vector<nlohmann::ordered_json>& events, const Plan& plan,
                    const RunRequest& request, const Checks& checks);

} // namespace lab
