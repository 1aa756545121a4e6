#pragma once

#include "engine/Record.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

using Frame = std::array<int, 8>;
using LeadSet = std::array<double, 12>;

// Material as a loader would leave it: one array of samples per signal, all of the same length.
inline void LoadSignals(int32_t type, uint32_t rate,
                        const std::vector<std::vector<double>>& signals) {
    g_WaveformType = type;
    g_nSampleRate = rate;
    g_nSampleCount = signals.empty() ? 0 : signals[0].size();
    ReallocateECGDataBuffer(static_cast<int>(signals.size()));
    for (size_t i = 0; i < signals.size(); ++i) {
        if (g_pECGData[i] != nullptr) {
            std::copy(signals[i].begin(), signals[i].end(), g_pECGData[i]);
        }
    }
}

inline void MapLeads(const std::array<int32_t, 8>& signals) {
    std::copy(signals.begin(), signals.end(), g_ECGMappingLead);
}

// Material without a file: `signals` signals with a different voltage at each sample k, within 4
// mV.
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
