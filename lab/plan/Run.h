#pragma once

#include "lab/plan/RunRequest.h"

namespace lab {

// Checks and carries out a plan, prints the result, and returns the exit status.
int RunPlan(const RunRequest& request);

// A commented plan with a step of each kind.
extern const char* const kExamplePlan;

} // namespace lab
