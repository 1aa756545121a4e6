#include "api/Connection.h"
#include "api/ravo.h"
#include "ConnectionFixture.h"
#include "engine/Output.h"
#include "Listener.h"
#include "platform/SharedValue.h"
#include "Process.h"
#include "tests/support/Eventually.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <vector>

namespace {

TEST_F(ConnectionTest, LossStopsOutputAndIsReported) {
    Settings settings = Settings::Of(Unit::kTwelveBit);
    Simulator simulator(settings);
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    EXPECT_TRUE(Eventually(RAVOIsOutputting));

    simulator.Vanish();
    ASSERT_TRUE(Listener::WaitForCalls(2));
    EXPECT_EQ(Listener::Heard(), (std::vector<bool>{true, false}));
    EXPECT_FALSE(RAVOIsOutputting());
    EXPECT_EQ(LoadShared(g_hPlayThread), 0U);
    EXPECT_FALSE(RAVOOutputWaveform(0, nullptr, nullptr));
    EXPECT_EQ(LoadShared(g_bConnected), 0);

    simulator.Return();
    ASSERT_TRUE(Listener::WaitForCalls(3));
    EXPECT_EQ(Listener::Heard(), (std::vector<bool>{true, false, true}));
    EXPECT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
}

// No bytes pass on a port that was hung up, although its name stays: it has to be opened again.
TEST_F(ConnectionTest, LossOfTheCarrierIsReportedAndTheSamePortFoundAgain) {
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    simulator.LoseCarrier();
    ASSERT_TRUE(Listener::WaitForCalls(3));
    EXPECT_EQ(Listener::Heard(), (std::vector<bool>{true, false, true}));
    EXPECT_FALSE(RAVOIsOutputting());
    EXPECT_EQ(DevicePath(), "/dev/ttyACM0");
    EXPECT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
}

int Rounds() {
    return std::getenv("RAVO_TEST_SOAK") == nullptr ? 5 : 100;
}

// Neither a thread nor a descriptor may stay behind.
void VanishAndReturn(Unit unit, bool calibrated) {
    const Settings settings = Settings::Of(unit);
    if (calibrated) {
        ASSERT_TRUE(emulator::ConverterModel::Uncalibrated().WriteCalibrationFile(
            emulator::CalibrationFilePath(unit, settings.behaviour)));
    }
    Simulator simulator(settings);
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    const size_t threads = Threads();
    const size_t descriptors = Descriptors();
    std::vector<bool> expected{true};

    const int rounds = Rounds();
    for (int round = 0; round < rounds; ++round) {
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
        simulator.Vanish();
        ASSERT_TRUE(Listener::WaitForCalls(expected.size() + 1));
        simulator.Return();
        ASSERT_TRUE(Listener::WaitForCalls(expected.size() + 2));
        expected.insert(expected.end(), {false, true});
        ASSERT_EQ(Listener::Heard(), expected);
        ASSERT_EQ(Threads(), threads);
        // The monitor opens a pipe for a moment at each of its checks.
        ASSERT_TRUE(Eventually([&] { return Descriptors() == descriptors; }));
    }
}

TEST_F(ConnectionTest, VanishInMidPlayAndReturnAgainAndAgain) {
    VanishAndReturn(Unit::kSixteenBit, false);
}

TEST_F(ConnectionTest, VanishAndReturnOfACalibratedUnit) {
    VanishAndReturn(Unit::kTwelveBit, true);
}

} // namespace
