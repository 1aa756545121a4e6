#pragma once

// From a voltage in millivolts to the code that an output channel's converter receives.  The only
// unit of the engine that knows the calibration.

#include <algorithm>

// `voltage` limited to plus and minus `range`; NaN stays NaN.
inline double ClampVoltage(double voltage, double range) {
    return std::max(std::min(voltage, range), -range);
}

// `voltage` limited to the output range.
double AdjustVoltage(double voltage);

// The code for output channel 0..7: noise added where the material carries it, limited to the
// range, corrected by the unit's calibration where there is one.
unsigned int DAC(double voltage, int channel);

// DAC for the channels 0 to 7 at once, reading the settings once.
void ConvertFrame(const double* voltages, int* frame);

// Whether a calibration file is loaded for the connected unit.
int IsDACFileLoaded();
