#pragma once

#include "lab/material/Record.h"

#include <string>
#include <vector>

namespace lab {

// Applies the user's --map entries. Fails when the signal or the lead of one is unknown.
void MapSignals(std::vector<Signal>& signals, const std::vector<std::string>& map);

// Assigns leads that no signal claims by the library's own names to signals that claim them by
// other names.
void MapOtherNames(std::vector<Signal>& signals);

} // namespace lab
