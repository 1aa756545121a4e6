#pragma once

#include "engine/Conversion.h"
#include "engine/Record.h"
#include "engine/Settings.h"
#include "fuzz/Require.h"

#include <cmath>

// Checks a header against the engine's state, reads every sample and releases the header.
inline void RequireMaterial(ECG_HEADER* header, int32_t type, uint32_t rate, int signals) {
    Require(g_WaveformType == type);
    Require(g_nSampleRate == rate);
    Require(g_iECGSignalNumber == signals);
    Require(header->NumberOfSignals == signals);
    Require(header->SamplingFrequency == rate);
    Require(static_cast<uint64_t>(header->NumberOfSamples) == g_nSampleCount);
    Require(header->WFDBHeader == nullptr);
    Require(ValidateECGData() == (g_nSampleCount != 0 ? 1 : 0));
    for (int signal = 0; signal < signals; ++signal) {
        for (uint64_t i = 0; i < g_nSampleCount; ++i) {
            Require(std::isnan(AdjustVoltage(g_pECGData[signal][i])) ||
                    std::abs(AdjustVoltage(g_pECGData[signal][i])) <= g_fVoltageRange);
        }
    }
    FreeECGHeader(header);
}
