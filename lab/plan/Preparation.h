#pragma once

#include "lab/plan/MaterialCheck.h"
#include "lab/plan/RunRequest.h"

#include <string>
#include <vector>

// What comes before a run.
namespace lab {

// Which results are to be, by --only and --from; fails when these name no step.
std::vector<bool> SelectSteps(const Plan& plan, const RunRequest& request);

// Fails when the folder's disk cannot hold what the run will write.
void RequireSpace(const std::string& output, std::size_t steps, std::size_t materials);

// How many steps there are and how long they take, on standard output.
void PrintForecast(const RunRequest& request, const Plan& plan, const Checks& checks,
                   const std::vector<bool>& isSelected);

// What the user should know of the material, each sentence once.
void WarnOfMaterial(const Checks& checks);

} // namespace lab
