// The whole device floor against the emulated simulator.
#include "device/Calibration.h"
#include "device/Device.h"
#include "device/Protocol.h"
#include "device/Search.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using emulator::Behaviour;
using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;

class EmulatedDevice : public testing::Test {
  protected:
    void SetUp() override {
        g_nDeviceReadTimeout = 1000;
        g_nDeviceWriteTimeout = 2000;
    }
    void TearDown() override {
        DeviceClose();
        std::filesystem::remove_all("/usr/local/tarnwick/ravo");
        std::filesystem::create_directories("/usr/local/tarnwick/ravo");
    }
};

std::ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST_F(EmulatedDevice, TwelveBitUnitIsKnownByItsFlashTableAndCalibrated) {
    const Settings settings = Settings::Of(Unit::kTwelveBit, 2);
    const auto converters = emulator::ConverterModel::Uncalibrated();
    ASSERT_TRUE(converters.WriteCalibrationFile(
        emulator::CalibrationFilePath(settings.unit, settings.behaviour)));
    const Simulator simulator(settings);
    ASSERT_TRUE(DeviceConnect(-1, 1));
    EXPECT_TRUE(ReadDeviceHWInfo());
    EXPECT_STREQ(g_strHWInfo, "TAB2005-170042");
    EXPECT_STREQ(g_strSerialNumber, "05-170042");
    EXPECT_EQ(g_nDACBit, 0);
    LoadDACFile();
    EXPECT_EQ(g_bDACAvailable, 1);
    for (const std::size_t channel : {0UL, 3UL, 7UL}) {
        for (const int code : {0, 1, 2048, 4095}) {
            const auto wanted = converters.Measured(channel, static_cast<std::uint16_t>(code));
            EXPECT_NEAR(g_DACError[channel * 4096 + static_cast<std::size_t>(code)], wanted, 1e-3)
                << "channel " << channel << " code " << code;
        }
    }
}

TEST_F(EmulatedDevice, SixteenBitUnitIsNotCalibrated) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit, 0));
    ASSERT_TRUE(DeviceConnect(0, 1));
    EXPECT_TRUE(ReadDeviceHWInfo());
    EXPECT_EQ(g_nDACBit, 1);
    LoadDACFile();
    EXPECT_EQ(g_bDACAvailable, 0);
    MODEL_INFORMATION_EX model{};
    EXPECT_TRUE(GetModelInfo(&model));
    EXPECT_EQ(model.SerialNumber, 42U);
}

TEST_F(EmulatedDevice, LegacyUnitIsKnownByItsModelText) {
    const Simulator simulator(Settings::Of(Unit::kLegacy, 0));
    ASSERT_TRUE(DeviceConnect(0, 1));
    EXPECT_FALSE(ReadDeviceHWInfo());
    EXPECT_STREQ(g_strSerialNumber, "1603042");
    EXPECT_EQ(g_nDACBit, 0);
    HW_INFORMATION_EX hardware{};
    EXPECT_FALSE(GetHWInfo(&hardware));
}

TEST_F(EmulatedDevice, IsFoundBehindAStranger) {
    Settings strange = Settings::Of(Unit::kTwelveBit, 0);
    strange.behaviour.identity = {'G', 'P', 'S', '4', '2'};
    const Simulator stranger(strange);
    const Simulator simulator(Settings::Of(Unit::kTwelveBit, 1));
    ASSERT_TRUE(FindDevice(-1));
    EXPECT_STREQ(g_szDevicePath, "/dev/ttyACM1");
    EXPECT_TRUE(
        stranger.Seen().WaitFor([](const auto& seen) { return seen.hostClosings == 1; }, 30s));
}

TEST_F(EmulatedDevice, FirstOfTwoIsTakenAndTheOtherLeftAlone) {
    const Simulator first(Settings::Of(Unit::kTwelveBit, 3));
    const Simulator second(Settings::Of(Unit::kTwelveBit, 7));
    ASSERT_TRUE(FindDevice(-1));
    EXPECT_STREQ(g_szDevicePath, "/dev/ttyACM3");
    EXPECT_EQ(second.Seen().Count().hostOpenings, 0U);
}

TEST_F(EmulatedDevice, RepliesMayComeLateAndInPieces) {
    Settings settings = Settings::Of(Unit::kTwelveBit, 0);
    settings.behaviour.replies.late = 150ms;
    settings.behaviour.replies.pieceBytes = 7;
    settings.behaviour.replies.pieceGap = 10ms;
    const Simulator simulator(settings);
    g_nDeviceReadTimeout = 20000;
    ASSERT_TRUE(FindDevice(0));
    EXPECT_TRUE(ReadDeviceHWInfo());
    EXPECT_STREQ(g_strSerialNumber, "05-170042");
}

TEST_F(EmulatedDevice, WithATruncatedIdentityIsFoundOnceItRecovers) {
    Settings settings = Settings::Of(Unit::kTwelveBit, 0);
    settings.behaviour.replies.truncateTo = 4;
    settings.behaviour.replies.replies = 1;
    const Simulator simulator(settings);
    EXPECT_FALSE(FindDevice(0));
    EXPECT_TRUE(FindDevice(0));
}

TEST_F(EmulatedDevice, WithGarbageBeforeItsReplyIsFoundInALaterRound) {
    for (const std::size_t garbage : {1U, 5U, 60U}) {
        Settings settings = Settings::Of(Unit::kTwelveBit, 0);
        settings.behaviour.replies.garbageBefore = emulator::Bytes(garbage, 'N');
        settings.behaviour.replies.replies = 1;
        settings.behaviour.keepsUnsent = true;
        const Simulator simulator(settings);
        EXPECT_FALSE(FindDevice(0));
        EXPECT_TRUE(FindDevice(0)) << garbage;
        EXPECT_TRUE(ReadDeviceHWInfo()) << garbage;
        DeviceClose();
    }
}

TEST_F(EmulatedDevice, TakesAWrittenFlashTable) {
    Simulator simulator(Settings::Of(Unit::kTwelveBit, 0));
    ASSERT_TRUE(FindDevice(0));
    ASSERT_TRUE(ReadDeviceHWInfo());
    MODEL_INFORMATION_EX model{{'C', 'D', 22, 6}, 300, 18};
    HW_INFORMATION_EX hardware{7, 8, 9};
    EXPECT_TRUE(UpdateDeviceInformation(&model, &hardware));
    EXPECT_STREQ(g_strHWInfo, "TCD2206-180300");
    EXPECT_EQ(g_nDACBit, 0) << "is only found out when connecting";
    const unsigned char manufacturing[] = {'n', 'e', 'w'};
    EXPECT_TRUE(WriteMfgInfo(manufacturing, sizeof manufacturing));
    const auto flash = simulator.CurrentBehaviour().flash;
    EXPECT_EQ(std::string(flash.begin() + 48, flash.end()), "newLATED UNIT 42");
    EXPECT_EQ(flash[13], 9);
}

TEST_F(EmulatedDevice, TellsItsLinkId) {
    const Simulator simulator(Settings::Of(Unit::kTwelveBit, 0));
    ASSERT_TRUE(FindDevice(0));
    EXPECT_EQ(GetLinkID(), 0x5A);
}

TEST_F(EmulatedDevice, PutsOutAStaticValueOnAllChannels) {
    const Simulator simulator(Settings::Of(Unit::kTwelveBit, 0));
    ASSERT_TRUE(FindDevice(0));
    EXPECT_EQ(DACSendStaticValue(0xABC), 64);
    ASSERT_TRUE(simulator.Seen().WaitForCommand(emulator::Command::kStaticValue, 1, 30s));
    const auto values = simulator.Seen().StaticValues();
    ASSERT_EQ(values.size(), 1U);
    EXPECT_EQ(values[0], (emulator::Codes{0xABC, 0xABC, 0xABC, 0xABC, 0xABC, 0xABC, 0xABC, 0xABC}));
}

TEST_F(EmulatedDevice, HearsTheLastCommandBeforeTheClose) {
    const Simulator simulator(Settings::Of(Unit::kTwelveBit, 0));
    ASSERT_TRUE(FindDevice(0));
    EXPECT_TRUE(APClose());
    DeviceClose();
    EXPECT_TRUE(simulator.Seen().WaitForCommand(emulator::Command::kClose, 1, 30s));
}

TEST_F(EmulatedDevice, ThatVanishesFailsTransfersAndIsFoundAgain) {
    Simulator simulator(Settings::Of(Unit::kTwelveBit, 0));
    for (int round = 0; round < 10; ++round) {
        ASSERT_TRUE(FindDevice(0));
        EXPECT_TRUE(DeviceIsAlive());
        simulator.Vanish();
        EXPECT_FALSE(DeviceIsAlive());
        g_nDeviceReadTimeout = 50;
        unsigned char bytes[5] = {};
        EXPECT_EQ(DeviceReadData(bytes, 5), -1);
        EXPECT_EQ(DeviceWriteData(bytes, 5, 1), 0);
        g_nDeviceReadTimeout = 1000;
        DeviceClose();
        EXPECT_FALSE(FindDevice(0));
        simulator.Return();
    }
}

TEST_F(EmulatedDevice, ThatVanishesFailsAWaitingReader) {
    Simulator simulator(Settings::Of(Unit::kTwelveBit, 0));
    ASSERT_TRUE(FindDevice(0));
    std::thread unplug([&] {
        std::this_thread::sleep_for(50ms);
        simulator.Vanish();
    });
    g_nDeviceReadTimeout = 300;
    unsigned char byte = 0;
    EXPECT_EQ(DeviceReadData(&byte, 1), -1);
    unplug.join();
}

TEST_F(EmulatedDevice, ThatLosesItsCarrierKeepsItsName) {
    Simulator simulator(Settings::Of(Unit::kTwelveBit, 0));
    ASSERT_TRUE(FindDevice(0));
    simulator.LoseCarrier();
    EXPECT_TRUE(DeviceIsAlive());
    unsigned char byte = 'S';
    EXPECT_EQ(DeviceWriteData(&byte, 1, 1), 0);
    DeviceClose();
    EXPECT_TRUE(FindDevice(0));
}

TEST_F(EmulatedDevice, WithAFullLineTimesOutAndIsClosed) {
    Simulator simulator(Settings::Of(Unit::kTwelveBit, 0));
    ASSERT_TRUE(FindDevice(0));
    simulator.Change([](Behaviour& behaviour) { behaviour.line = emulator::Line::kFull; });
    g_nDeviceWriteTimeout = 200;
    std::vector<unsigned char> bytes(3200);
    EXPECT_EQ(DeviceWriteData(bytes.data(), 3200, 0), 0);
    EXPECT_EQ(DeviceSetTimeoutSetting(0, 200), 0);
    DeviceClose();
    EXPECT_FALSE(DeviceIsConnected());
}

TEST_F(EmulatedDevice, ThatSaysNothingIsNoSimulator) {
    Settings settings = Settings::Of(Unit::kTwelveBit, 0);
    settings.behaviour.line = emulator::Line::kMute;
    const Simulator simulator(settings);
    g_nDeviceReadTimeout = 200;
    EXPECT_FALSE(FindDevice(-1));
    EXPECT_EQ(g_hDevice, -1);
}

TEST_F(EmulatedDevice, SearchingLeaksNoDescriptor) {
    Simulator simulator(Settings::Of(Unit::kTwelveBit, 0));
    const std::ptrdiff_t before = OpenDescriptors();
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(FindDevice(-1));
        DeviceClose();
        simulator.Vanish();
        EXPECT_FALSE(FindDevice(-1));
        simulator.Return();
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
