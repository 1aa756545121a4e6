#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/Record.h"

namespace lab {

// Loads the waveform that the request names and describes it in `record`.
void LoadWaveform(Record& record, const MaterialRequest& request);

} // namespace lab
