#pragma once

#include "lab/material/Record.h"

#include <string>
#include <vector>

namespace lab {

// Carries out the user's --map entries. Fails when one names no signal or no lead.
void MapSignals(std::vector<Signal>& signals, const std::vector<std::string>& map);

// Gives the leads that no signal claims by the library's own names to signals that claim them by
// others.
void MapOtherNames(std::vector<Signal>& signals);

} // namespace lab
