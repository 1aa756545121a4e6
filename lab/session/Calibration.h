#pragma once

#include "lab/session/Simulator.h"

#include <string>

namespace lab {

// "not-needed", "loaded", "missing" or "damaged", according to the file as it is now.
const char* CalibrationState(const SimulatorInformation& simulator);

// A warning about the calibration for the user before a play; empty without one. Fails when the
// calibration file is damaged, or when it is missing although `isRequired`.
std::string RequireCalibration(const SimulatorInformation& simulator, bool isRequired);

} // namespace lab
