#pragma once

#include "lab/machine/Finding.h"
#include "lab/session/Simulator.h"

#include <string>

namespace lab {

// The file that corrects this unit's 12-bit converters.
Finding CheckCalibration(const SimulatorInformation& simulator);

// What keeps the file from being 4096 lines, one for each code, of 8 numbers, one for each output;
// empty when it is.
std::string WrongShape(const std::string& path);

} // namespace lab
