#pragma once

#include "lab/material/MaterialRequest.h"

namespace lab {

struct PlayRequest {
    MaterialRequest material;
    double start = 0;   // seconds from the beginning of the material
    double seconds = 0; // to play; 0: to the end, without end when it loops or is a waveform
    bool loop = false;
    double speedUp = 1; // of an emulated simulator: factor by which it plays faster than real time
    bool requireCalibrated = false; // a missing calibration file is an error, not a warning
};

} // namespace lab
