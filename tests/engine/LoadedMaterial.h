#pragma once

#include "engine/Record.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

// The result of a load as the tests examine it: the header that the host gets and the engine's
// samples.

struct ECGHeaderReleaser {
    void operator()(ECG_HEADER* header) const { FreeECGHeader(header); }
};

using LoadedHeader = std::unique_ptr<ECG_HEADER, ECGHeaderReleaser>;
using Channel = std::vector<double>;

inline Channel GetChannel(int channel) {
    const double* samples = g_pECGData[channel];
    return samples == nullptr ? Channel() : Channel(samples, samples + g_nSampleCount);
}

inline void ExpectMaterial(int32_t type, uint32_t rate, uint64_t count) {
    EXPECT_EQ(g_WaveformType, type);
    EXPECT_EQ(g_nSampleRate, rate);
    EXPECT_EQ(g_nSampleCount, count);
}

inline void ExpectHeader(const LoadedHeader& header, const std::string& name,
                         const std::vector<std::string>& signals, int64_t rate, int64_t count) {
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(header->RecordName, name);
    ASSERT_EQ(int64_t{header->NumberOfSignals}, static_cast<int64_t>(signals.size()));
    EXPECT_EQ(int64_t{header->SamplingFrequency}, rate);
    EXPECT_EQ(int64_t{header->NumberOfSamples}, count);
    EXPECT_EQ(header->WFDBHeader, nullptr);
    for (size_t i = 0; i < signals.size(); ++i) {
        const ECG_SIGNAL signal = header->Signal[i];
        EXPECT_EQ(signal.Description, signals[i]);
        EXPECT_EQ(int32_t{signal.Lead}, static_cast<int32_t>(i));
    }
}

inline void ExpectAllChannelHeader(const LoadedHeader& header, const std::string& name,
                                   int64_t rate, int64_t count) {
    ExpectHeader(header, name,
                 {"ECG 1", "ECG 2", "ECG V1", "ECG V2", "ECG V3", "ECG V4", "ECG V5", "ECG V6"},
                 rate, count);
}
