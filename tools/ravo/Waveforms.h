#pragma once

#include "tools/ravo/Record.h"

namespace cli {

// Loads the waveform that the request names and describes it in `record`.
void LoadWaveform(Record& record, const MaterialRequest& request);

} // namespace cli
