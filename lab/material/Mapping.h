#pragma once

#include "lab/material/Record.h"

#include <string>
#include <vector>

namespace lab {

// Applies the user's --map entries. Fails when an entry names an unknown signal or lead; warns of
// each signal that loses its lead to another one.
void MapSignals(Record& record, const std::vector<std::string>& map);

// Assigns leads that no signal claims by the library's own names to signals that claim them by
// other names.
void MapOtherNames(std::vector<Signal>& signals);

// A lead is fed by the first signal that claims it: takes it from the others, with a warning each.
void DropRepeatedClaims(Record& record);

// Fails because a signal that feeds a lead is in a unit that is not one of voltage.
[[noreturn]] void FailUnit(const Record& record, std::size_t signal, const std::string& unit);

} // namespace lab
