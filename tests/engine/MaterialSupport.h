#pragma once

// Material as a loader would leave it, for the tests of what reads it.

#include "engine/Record.h"

#include <algorithm>
#include <array>
#include <vector>

using Frame = std::array<int, 8>;
using LeadSet = std::array<double, 12>;

// One array of samples per signal; all of the same length.
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
