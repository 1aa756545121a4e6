// Every record of the built-in database, from its number to the outputs of the emulated simulator.
#include "api/ravo.h"
#include "engine/CTSCSE_Database.h"
#include "engine/CTSCSE_Noise.h"
#include "engine/Record.h"
#include "tests/support/Eventually.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr int kShards = 17; // of 7 records each
constexpr double kRange = 5.0;

std::uint16_t CodeOf(double millivolts) {
    const double clamped = std::clamp(millivolts, -kRange, kRange);
    return static_cast<std::uint16_t>(clamped / kRange * 32000.0 + 32768.0);
}

// The codes that the outputs must carry at a sample of the record, with `noise` millivolts on top.
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

// A simulator that accepts frames as fast as they come.
class BuiltinBench : public testing::Test {
  protected:
    BuiltinBench() : m_simulator(Settings()) {}
    ~BuiltinBench() override { RAVOFree(); }

    void SetUp() override {
        ASSERT_TRUE(RAVOConnect(0, 60000));
        RAVOEnableLoop(true);
    }

    // The record's number of samples; 0 when it is refused.
    static size_t Load(int record, int noise) {
        ECG_HEADER* header = RAVOLoadDatabaseCTS_CSE(record, noise);
        const auto samples = header == nullptr ? 0 : static_cast<size_t>(header->NumberOfSamples);
        RAVOFreeECGHeader(header);
        return samples;
    }

    // Starts the output and returns when `count` more frames have come.
    void Play(size_t count) {
        const uint64_t before = m_simulator.Seen().Count().frames;
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
        ASSERT_TRUE(m_simulator.Seen().WaitForFrames(before + count, 60s));
    }

    // Compares the frames from `first` to before `last` with the record, beginning with its first
    // sample.
    void ExpectFrames(size_t first, size_t last, int record, int noise, uint64_t noisePosition) {
        SCOPED_TRACE(testing::Message() << "record " << record << ", noise " << noise);
        const std::vector<emulator::Codes> frames = m_simulator.Seen().Frames();
        ASSERT_LT(first, last);
        ASSERT_LE(last, frames.size());
        for (size_t n = first; n < last; ++n) {
            const size_t sample = n - first;
            ASSERT_EQ(frames[n],
                      ExpectedFrame(record, sample, NoiseAt(noise, noisePosition + sample)))
                << "sample " << sample;
        }
    }

    static emulator::Settings Settings() {
        emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kSixteenBit, 0);
        settings.behaviour.speed = 0;
        return settings;
    }

    emulator::Simulator m_simulator;
};

// ---- Every record ------------------------------------------------------------------------------

class BuiltinPlay : public BuiltinBench, public testing::WithParamInterface<int> {
  protected:
    // Plays a little more than the record's ten periods and compares every frame.
    void ExpectPlays(int record, int noise) {
        const size_t samples = Load(record, noise);
        ASSERT_NE(samples, 0U);
        const uint64_t noisePosition = g_nNoiseCurrent;
        const uint64_t before = m_simulator.Seen().Count().frames;
        ASSERT_NO_FATAL_FAILURE(Play(samples + 100));
        RAVOStopOutput();
        ExpectFrames(before, m_simulator.Seen().Frames().size(), record, noise, noisePosition);
    }
};

TEST_P(BuiltinPlay, DecodesToTheArraysAndTheNoise) {
    for (int record = GetParam(); record < kCTSCSERecords; record += kShards) {
        ExpectPlays(record, CTSCSE_NOISE_NONE);
        ExpectPlays(record, record % kCTSCSENoises);
        if (HasFatalFailure()) {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Records, BuiltinPlay, testing::Range(0, kShards));

// ---- Another record while one plays ------------------------------------------------------------

class BuiltinReplacement : public BuiltinBench {
  protected:
    // Loads a record, which ends the output of the previous one, and starts the output of the new
    // one.
    void LoadAndPlay(int record, int noise) {
        ASSERT_NE(Load(record, noise), 0U);
        ASSERT_FALSE(RAVOIsOutputting());
        PlayLoaded(record, noise);
    }

    void PlayLoaded(int record, int noise) {
        m_plays.push_back({record, noise, g_nNoiseCurrent});
        ASSERT_NO_FATAL_FAILURE(Play(kSomeFrames));
        ASSERT_TRUE(Eventually(RAVOIsOutputting));
    }

    // Each start's frames are those of the record that was loaded then, to the last.
    void ExpectPlayed() {
        RAVOStopOutput();
        const std::vector<emulator::SeenStart> starts = m_simulator.Seen().Starts();
        ASSERT_EQ(starts.size(), m_plays.size());
        for (size_t i = 0; i < starts.size(); ++i) {
            const size_t end = i + 1 < starts.size() ? starts[i + 1].firstFrame
                                                     : m_simulator.Seen().Frames().size();
            ExpectFrames(starts[i].firstFrame, end, m_plays[i].record, m_plays[i].noise,
                         m_plays[i].noisePosition);
        }
    }

  private:
    // By then the output is well under way, and it continues until the next record is loaded.
    static constexpr size_t kSomeFrames = 1234;

    struct Played {
        int record;
        int noise;
        uint64_t noisePosition;
    };
    std::vector<Played> m_plays;
};

TEST_F(BuiltinReplacement, TheNextStartPlaysTheNewRecordFromItsFirstSample) {
    ASSERT_NO_FATAL_FAILURE(LoadAndPlay(CTSCSE_PCTH015, CTSCSE_NOISE_HF_50));
    ASSERT_NO_FATAL_FAILURE(LoadAndPlay(CTSCSE_ANE20002, CTSCSE_NOISE_NONE));
    ASSERT_NO_FATAL_FAILURE(LoadAndPlay(CTSCSE_PCTH007, CTSCSE_NOISE_BL));
    ASSERT_NO_FATAL_FAILURE(LoadAndPlay(CTSCSE_CAL50000, CTSCSE_NOISE_50HZ));
    ExpectPlayed();
}

TEST_F(BuiltinReplacement, ARefusedNumberStopsTheOutputAndKeepsTheRecord) {
    ASSERT_NO_FATAL_FAILURE(LoadAndPlay(CTSCSE_PCTH015, CTSCSE_NOISE_HF_50));
    for (const auto& [record, noise] :
         {std::pair(kCTSCSERecords, 0), std::pair(0, kCTSCSENoises + 1), std::pair(-1, -1)}) {
        EXPECT_EQ(Load(record, noise), 0U);
        ASSERT_FALSE(RAVOIsOutputting());
        ASSERT_NO_FATAL_FAILURE(PlayLoaded(CTSCSE_PCTH015, CTSCSE_NOISE_HF_50));
    }
    ExpectPlayed();
}

} // namespace
