#pragma once

#include "lab/material/Record.h"

#include <string>
#include <vector>

namespace lab {

// The files that the loaded record was read from: header and signal files, segments and mixed-in
// noise included. None for built-in material and waveforms.
std::vector<std::string> MaterialFiles(const Record& record, const MaterialRequest& request);

// "file", "licensed", "stand-in" or "waveform"
std::string MaterialSource(const Record& record, const MaterialRequest& request);

} // namespace lab
