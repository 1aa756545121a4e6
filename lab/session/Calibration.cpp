#include "lab/session/Calibration.h"

#include "lab/common/Failure.h"
#include "lab/machine/CalibrationFile.h"

namespace lab {
namespace {

// A unit that has loaded no file plays uncorrected, even if the file exists by now.
bool IsMissing(const SimulatorInformation& simulator, const Finding& finding) {
    return finding.code == "calibration-missing" ||
           (finding.state == State::kOk && simulator.dacBits != 16 && !simulator.isCalibrated);
}

Finding Check(const SimulatorInformation& simulator) {
    return CheckCalibration(simulator.dacBits, simulator.calibrationFile);
}

} // namespace

const char* CalibrationState(const SimulatorInformation& simulator) {
    const Finding finding = Check(simulator);
    if (IsMissing(simulator, finding)) {
        return "missing";
    }
    return finding.state == State::kFailed ? "damaged"
           : simulator.dacBits == 16       ? "not-needed"
                                           : "loaded";
}

std::string RequireCalibration(const SimulatorInformation& simulator, bool isRequired) {
    const Finding finding = Check(simulator);
    if (finding.state == State::kFailed) {
        Fail(kNoSimulator, simulator.device,
             "would play wrong voltages: its calibration file " + finding.sentence + ".",
             finding.cure);
    }
    if (!IsMissing(simulator, finding)) {
        return "";
    }
    const std::string problem = simulator.isKnown
                                    ? "is not calibrated: " + Printable(simulator.calibrationFile) +
                                          " was missing when it was connected"
                                    : "did not identify itself and is taken for an old 12-bit unit";
    if (isRequired) {
        Fail(kNoSimulator, simulator.device, problem + ".",
             simulator.isKnown ? "Install the file that came with the simulator, or play without "
                                 "--require-calibrated."
                               : "Unplug it and plug it in again.");
    }
    return simulator.device + " " + problem +
           (simulator.isKnown ? "; voltages are uncorrected"
                              : "; if it is another, all voltages are wrong");
}

} // namespace lab
