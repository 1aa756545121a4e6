#pragma once

#include "tools/ravo/Finding.h"
#include "tools/ravo/Simulator.h"

#include <string>

namespace cli {

// The file that corrects this unit's 12-bit converters.
Finding CheckCalibration(const SimulatorInformation& simulator);

// What keeps the file from being 4096 lines, one for each code, of 8 numbers, one for each output;
// empty when it is.
std::string WrongShape(const std::string& path);

} // namespace cli
