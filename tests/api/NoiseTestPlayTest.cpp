// A noise stress test from its configuration to the outputs of the emulated simulator.
#include "api/ravo.h"
#include "tests/support/NoiseTestRecord.h"
#include "tests/WFDB/RecordFiles.h"
#include "tools/emulator/Simulator.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iterator>
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

// A copy of the mixed record, which the loader deletes: taken from a run of the same test.
std::vector<uint8_t> MixTo(const std::string& path) {
    EXPECT_EQ(NSTOutput(path.c_str()), 0);
    std::ifstream file(path + ".dat", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

int FirstSignal(const std::vector<uint8_t>& mixed, size_t frame) {
    const int code = mixed[frame * 3] + mixed[frame * 3 + 1] % 16 * 256;
    return code >= 2048 ? code - 4096 : code;
}

// 200 units are 1 mV and 5 mV are 32000 codes of the 16-bit converter.
int CodeOf(int sample) {
    return static_cast<int>(sample / 200.0 / 5.0 * 32000.0 + 32768.0);
}

class NoiseTestPlay : public testing::Test {
  protected:
    void SetUp() override {
        if (!NoiseTestRecord::IsUsable()) {
            GTEST_SKIP() << "Another user's /tmp/ravoXXX lies in the way.";
        }
        const std::string line = ".dat 212 200 12 0 0 0 0 ";
        const std::string start = " 2 " + std::to_string(kRate) + " " + std::to_string(kFrames);
        m_directory.Write("s.hea", "s" + start + "\ns" + line + "I\ns" + line + "II\n");
        m_directory.Write("s.dat", EncodeFormat212(Signal()));
        m_directory.Write("n.hea", "n" + start + "\nn" + line + "\nn" + line + "\n");
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
        NSTSetSignal(m_directory.File("s").c_str());
        NSTResetNoise();
        NSTAddNoise(m_directory.File("n").c_str(), 0);
    }

    const NoiseTestRecord m_record;
    TemporaryDirectory m_directory;
    std::unique_ptr<emulator::Simulator> m_simulator;
};

} // namespace

TEST_F(NoiseTestPlay, MixedRecordReachesTheOutputs) {
    Configure();
    const std::vector<uint8_t> mixed = MixTo(m_directory.File("mixed"));
    ASSERT_EQ(mixed.size(), kFrames * 3);

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
    const std::vector<int> clean = Signal();
    size_t noisy = 0;
    for (size_t frame = 0; frame < kFrames; ++frame) {
        ASSERT_EQ(int{played[frame][0]}, CodeOf(FirstSignal(mixed, frame))) << frame;
        const bool isNoisy = std::abs(FirstSignal(mixed, frame) - clean[frame * 2]) > 1;
        ASSERT_FALSE(isNoisy && frame < kLeadInFrames) << frame;
        noisy += isNoisy ? 1U : 0U;
    }
    EXPECT_GT(noisy, 19U * kRate);
}

TEST_F(NoiseTestPlay, LoadingStopsTheOutput) {
    ASSERT_TRUE(RAVOConnect(2, 60000));
    for (const bool configured : {true, false}) {
        ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
        ASSERT_TRUE(RAVOIsOutputting());
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
