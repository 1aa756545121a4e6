#pragma once

#include "lab/plan/MaterialCheck.h"
#include "lab/plan/RunRequest.h"

#include <string>
#include <vector>

// The checks before a run.
namespace lab {

// Which steps to carry out, by --only and --from; fails when these do not name a step.
std::vector<bool> SelectSteps(const Plan& plan, const RunRequest& request);

// Fails when the folder's disk cannot hold what the run will write.
void RequireSpace(const std::string& output, std::size_t steps, std::size_t materials);

// Prints the number of steps and their duration on standard output.
void PrintForecast(const RunRequest& request, const Plan& plan, const Checks& checks,
                   const std::vector<bool>& isSelected);

// Prints warnings about the material, each only once.
void WarnOfMaterial(const Checks& checks);

} // namespace lab
