#pragma once

#include "lab/session/Simulator.h"

#include <string>

namespace lab {

// "not-needed", "loaded", "missing" or "damaged", by the file as it is now.
const char* CalibrationState(const SimulatorInformation& simulator);

// What the user should be told of the calibration before a play; empty when nothing. Fails when the
// calibration file is damaged, or missing although `isRequired`.
std::string RequireCalibration(const SimulatorInformation& simulator, bool isRequired);

} // namespace lab
