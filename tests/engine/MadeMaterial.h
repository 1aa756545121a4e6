#pragma once

#include "engine/Record.h"

#include <cstdint>

// Material without a file: `signals` signals whose sample k is a voltage of its own, within 4 mV.
inline double MadeVoltage(int signal, uint64_t sample) {
    return 0.25 * signal - 1.0 + 0.001 * static_cast<double>(sample % 1000);
}

inline void MakeMaterial(int32_t type, int signals, uint64_t samples, uint32_t rate) {
    g_WaveformType = type;
    g_nSampleCount = samples;
    g_nSampleRate = rate;
    ReallocateECGDataBuffer(signals);
    for (int i = 0; i < signals; ++i) {
        for (uint64_t k = 0; k < samples; ++k) {
            g_pECGData[i][k] = MadeVoltage(i, k);
        }
    }
}
