// Every record of the built-in database, from its number to the outputs of the emulated simulator.
#include "api/ravo.h"
#include "engine/CTSCSE_Database.h"
#include "engine/CTSCSE_Noise.h"
#include "engine/Record.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

constexpr int kShards = 17; // of 7 records each
constexpr double kRange = 5.0;

std::uint16_t CodeOf(double millivolts) {
    const double clamped = std::clamp(millivolts, -kRange, kRange);
    return static_cast<std::uint16_t>(clamped / kRange * 32000.0 + 32768.0);
}

// What the outputs must carry at a sample of the record, with `noise` millivolts on top.
emulator::Codes ExpectedFrame(int record, size_t sample, double noise) {
    const size_t period = g_Database_CTSCSE_SampleCount[record];
    const double* values = g_Database_CTSCSE[record] + sample % period;
    const double w = (values[0] + values[period]) * 0.33333333333;
    emulator::Codes codes{CodeOf(values[0] + noise), CodeOf(values[period] + noise)};
    for (size_t channel = 2; channel < 8; ++channel) {
        const double chest = (values[(9 - channel) * period] + w) * 0.592731022038923;
        codes[channel] = CodeOf(chest + noise);
    }
    return codes;
}

double NoiseAt(int noise, uint64_t position) {
    return noise == CTSCSE_NOISE_NONE
               ? 0.0
               : g_Database_CTSCSE_Noise[noise][position % kCTSCSENoiseSamples] / 1000.0;
}

class BuiltinPlay : public testing::TestWithParam<int> {
  protected:
    BuiltinPlay() : m_simulator(Settings()) {}
    ~BuiltinPlay() override { RAVOFree(); }

    static emulator::Settings Settings() {
        emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kSixteenBit, 0);
        settings.behaviour.speed = 0;
        return settings;
    }

    // Plays a little more than the record's ten periods and compares every frame.
    void ExpectPlays(int record, int noise) {
        SCOPED_TRACE(testing::Message() << "record " << record << ", noise " << noise);
        ECG_HEADER* header = RAVOLoadDatabaseCTS_CSE(record, noise);
        ASSERT_NE(header, nullptr);
        const auto samples = static_cast<size_t>(header->NumberOfSamples);
        RAVOFreeECGHeader(header);
        const uint64_t noisePosition = g_nNoiseCurrent;
        const uint64_t before = m_simulator.Seen().Count().frames;
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
        ASSERT_TRUE(m_simulator.Seen().WaitForFrames(before + samples + 100, 60s));
        RAVOStopOutput();

        const std::vector<emulator::Codes> frames = m_simulator.Seen().Frames();
        for (size_t n = before; n < frames.size(); ++n) {
            const size_t sample = n - before;
            ASSERT_EQ(frames[n],
                      ExpectedFrame(record, sample, NoiseAt(noise, noisePosition + sample)))
                << "sample " << sample;
        }
    }

    emulator::Simulator m_simulator;
};

TEST_P(BuiltinPlay, DecodesToTheArraysAndTheNoise) {
    ASSERT_TRUE(RAVOConnect(0, 60000));
    RAVOEnableLoop(true);
    for (int record = GetParam(); record < kCTSCSERecords; record += kShards) {
        ExpectPlays(record, CTSCSE_NOISE_NONE);
        ExpectPlays(record, record % kCTSCSENoises);
        if (HasFatalFailure()) {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Records, BuiltinPlay, testing::Range(0, kShards));

} // namespace
