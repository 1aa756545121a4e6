// A noise stress test from its configuration to the outputs of the emulated simulator.
#include "api/ravo.h"
#include "ExpectedCodes.h"
#include "tests/support/Encoding.h"
#include "tests/support/Eventually.h"
#include "tests/support/Files.h"
#include "tests/support/NoiseTestRecord.h"
#include "tests/WFDB/RecordModel.h"
#include "tools/emulator/Simulator.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <random>

namespace {

using namespace std::chrono_literals;

constexpr int kRate = 100;
constexpr size_t kFrames = 320 * kRate;
constexpr size_t kLeadInFrames = 300 * kRate;

std::vector<int> Noise(size_t count, int amplitude, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<int> samples(count);
    for (int& sample : samples) {
        sample = static_cast<int>(random() % static_cast<unsigned>(2 * amplitude + 1)) - amplitude;
    }
    return samples;
}

std::vector<int> Signal() {
    return Noise(kFrames * 2, 300, 1);
}

// Both signals of a frame.
std::array<int, 2> SignalsAt(const std::vector<uint8_t>& mixed, size_t frame) {
    const uint8_t* bytes = &mixed[frame * 3];
    std::array<int, 2> samples = {bytes[0] + bytes[1] % 16 * 256, bytes[2] + bytes[1] / 16 * 256};
    for (int& sample : samples) {
        sample = sample >= 2048 ? sample - 4096 : sample;
    }
    return samples;
}

// Lead I has 200 units to the millivolt, V3 has 250.
emulator::Codes ExpectedFrame(const std::array<int, 2>& samples) {
    static const Converter converter(emulator::Unit::kSixteenBit);
    return converter.Frame({samples[0] / 200.0, 0.0, 0.0, 0.0, samples[1] / 250.0, 0.0, 0.0, 0.0});
}

class NoiseTestPlay : public testing::Test {
  protected:
    void SetUp() override {
        if (!NoiseTestRecord::IsUsable()) {
            GTEST_SKIP() << "Another user's /tmp/ravoXXX lies in the way.";
        }
        const std::string start = " 2 " + std::to_string(kRate) + " " + std::to_string(kFrames);
        m_directory.Write("s.hea", "s" + start +
                                       "\n"
                                       "s.dat 212 200 12 0 0 0 0 I\n"
                                       "s.dat 212 250 12 0 0 0 0 V3\n");
        m_directory.Write("s.dat", EncodeFormat212(Signal()));
        m_directory.Write("n.hea", "n" + start + "\nn.dat 212 200 12 0\nn.dat 212 200 12 0\n");
        m_directory.Write("n.dat", EncodeFormat212(Noise(kFrames * 2, 200, 2)));
        emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kSixteenBit, 2);
        settings.behaviour.speed = 0;
        m_simulator = std::make_unique<emulator::Simulator>(settings);
    }
    ~NoiseTestPlay() override {
        RAVOFree();
        NSTResetNoise();
        NSTSetSignal("");
    }

    void Configure() {
        NSTSetSignal((m_directory / "s").c_str());
        NSTResetNoise();
        NSTAddNoise((m_directory / "n").c_str(), 0);
    }

    // The signal file that the configured test writes, according to the model.
    std::vector<uint8_t> Mix() const {
        model::Record signal(m_directory.Path(), "s", false);
        std::vector<model::Noise> noises = {{{m_directory.Path(), "n", false}, 0.0}};
        return model::MixNoise(signal, noises, model::Form::kList);
    }

    const NoiseTestRecord m_record;
    Scratch m_directory;
    std::unique_ptr<emulator::Simulator> m_simulator;
};

} // namespace

TEST_F(NoiseTestPlay, MixedRecordReachesTheOutputs) {
    ASSERT_TRUE(RAVOConnect(2, 60000));
    Configure();
    ECG_HEADER* header = LoadDatabaseNoiseTest();
    ASSERT_NE(header, nullptr);
    EXPECT_TRUE(NoiseTestRecord::IsUsable());
    RAVOEnableLoop(true);
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    EXPECT_TRUE(m_simulator->Seen().WaitForFrames(kFrames, 100s));
    RAVOStopOutput();
    RAVOFreeECGHeader(header);

    const std::vector<emulator::Codes> played = m_simulator->Seen().Frames();
    ASSERT_GE(played.size(), kFrames);
    const std::vector<uint8_t> mixed = Mix();
    ASSERT_EQ(mixed.size(), kFrames * 3);
    const std::vector<int> clean = Signal();
    std::array<size_t, 2> noisy = {};
    for (size_t frame = 0; frame < kFrames; ++frame) {
        const std::array<int, 2> samples = SignalsAt(mixed, frame);
        ASSERT_EQ(played[frame], ExpectedFrame(samples)) << frame;
        for (size_t i = 0; i < noisy.size(); ++i) {
            const bool isNoisy = std::abs(samples[i] - clean[frame * 2 + i]) > 1;
            ASSERT_FALSE(isNoisy && frame < kLeadInFrames) << frame;
            noisy[i] += isNoisy ? 1U : 0U;
        }
    }
    EXPECT_GT(noisy[0], 19U * kRate);
    EXPECT_GT(noisy[1], 19U * kRate);
}

TEST_F(NoiseTestPlay, LoadingStopsTheOutput) {
    ASSERT_TRUE(RAVOConnect(2, 60000));
    for (const bool configured : {true, false}) {
        ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
        ASSERT_TRUE(Eventually(RAVOIsOutputting));
        if (configured) {
            Configure();
        } else {
            NSTResetNoise();
        }
        ECG_HEADER* header = LoadDatabaseNoiseTest();
        EXPECT_EQ(header != nullptr, configured);
        EXPECT_FALSE(RAVOIsOutputting());
        RAVOFreeECGHeader(header);
    }
}
