#pragma once

#include "lab/material/Record.h"

namespace lab {

// Carries out the user's --map entries, on the record, on its header and in the library. Fails when
// one names no signal or no lead.
void MapSignals(Record& record, const MaterialRequest& request, ECG_HEADER& header);

} // namespace lab
