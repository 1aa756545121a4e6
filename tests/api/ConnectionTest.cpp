#include "api/Connection.h"

#include "api/ravo.h"
#include "ConnectionFixture.h"
#include "device/Device.h"
#include "device/Monitor.h"
#include "device/Protocol.h"
#include "Listener.h"
#include "platform/SharedValue.h"
#include "tests/support/Eventually.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Simulator.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

bool Exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

TEST_F(ConnectionTest, FreeWithoutInitReturns) {
    RAVOFree();
    EXPECT_EQ(LoadShared(g_hConnectDeviceThread), 0U);
}

TEST_F(ConnectionTest, ListenerHearsOfTheConnect) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit, 5));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    EXPECT_EQ(Listener::Heard(), std::vector<bool>{true});
    EXPECT_EQ(g_bConnected, 1);
    EXPECT_EQ(DevicePath(), "/dev/ttyACM5");
    EXPECT_TRUE(Exists("/var/lock/tarnwick.ACM5.lock"));

    RAVOFree();
    EXPECT_EQ(Listener::Heard(), std::vector<bool>{true});
    EXPECT_EQ(g_bConnected, 0);
    EXPECT_FALSE(DeviceIsConnected());
    EXPECT_FALSE(g_AutoMonitor.IsMonitored());
    EXPECT_FALSE(Exists("/var/lock/tarnwick.ACM5.lock"));
    EXPECT_TRUE(simulator.Seen().WaitForCommand(emulator::Command::kClose, 1, seconds(20)));
}

TEST_F(ConnectionTest, InitAgainOnlyReplacesTheListener) {
    ASSERT_TRUE(RAVOInit(HearNothing));
    const unsigned long thread = LoadShared(g_hConnectDeviceThread);
    ASSERT_NE(thread, 0U);
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    EXPECT_EQ(LoadShared(g_hConnectDeviceThread), thread);
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    EXPECT_TRUE(Listener::WaitForCalls(1));
}

TEST_F(ConnectionTest, InitWorksAgainAfterFree) {
    const Simulator simulator(Settings::Of(Unit::kTwelveBit));
    for (size_t round = 1; round <= 3; ++round) {
        ASSERT_TRUE(RAVOInit(Listener::Hear));
        ASSERT_TRUE(Listener::WaitForCalls(round));
        RAVOFree();
    }
    EXPECT_EQ(Listener::Heard(), (std::vector<bool>{true, true, true}));
}

TEST_F(ConnectionTest, ListenerMayBeNull) {
    const Simulator simulator(Settings::Of(Unit::kTwelveBit));
    ASSERT_TRUE(RAVOInit(nullptr));
    EXPECT_TRUE(Eventually([] { return LoadShared(g_bConnected) == 1; }));
}

TEST_F(ConnectionTest, InitSearchesAllPortsAgain) {
    const Simulator simulator(Settings::Of(Unit::kTwelveBit, 127));
    StoreShared(g_nPortNumber, 3);
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    EXPECT_EQ(LoadShared(g_nPortNumber), -1);
    EXPECT_TRUE(Listener::WaitForCalls(1));
}

TEST_F(ConnectionTest, ConnectSearchesPastAForeignDevice) {
    Settings foreign = Settings::Of(Unit::kTwelveBit, 0);
    foreign.behaviour.identity = {'R', 'V', '1', '9', 0};
    const Simulator other(foreign);
    const Simulator simulator(Settings::Of(Unit::kSixteenBit, 2));
    ASSERT_TRUE(RAVOConnect(-1, 60000));
    EXPECT_EQ(DevicePath(), "/dev/ttyACM2");
    EXPECT_TRUE(other.Seen().WaitForCommand(emulator::Command::kIdentity, 1, seconds(20)));
    EXPECT_FALSE(Exists("/var/lock/tarnwick.ACM0.lock"));
    EXPECT_TRUE(Exists("/var/lock/tarnwick.ACM2.lock"));
}

TEST_F(ConnectionTest, ConnectToAPortOpensOnlyThatOne) {
    const Simulator first(Settings::Of(Unit::kSixteenBit, 1));
    const Simulator third(Settings::Of(Unit::kSixteenBit, 3));
    ASSERT_TRUE(RAVOConnect(3, 60000));
    EXPECT_EQ(DevicePath(), "/dev/ttyACM3");
    EXPECT_EQ(first.Seen().Count().hostOpenings, 0U);
}

TEST_F(ConnectionTest, ConnectWithoutTimeOnlyPolls) {
    // Twice: a poll leaves nothing locked.
    EXPECT_FALSE(RAVOConnect(7, 0));
    EXPECT_EQ(LoadShared(g_hConnectDeviceThread), 0U);
    EXPECT_FALSE(RAVOConnect(7, 0));
}

// A reconnect without a waiting call is not the connect that the next call waits for.
TEST_F(ConnectionTest, ConnectDoesNotTakeAnEarlierOneForItsOwn) {
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOConnect(-1, 60000));
    simulator.Vanish();
    ASSERT_TRUE(Eventually([] { return LoadShared(g_bConnected) == 0; }));
    simulator.Return();
    ASSERT_TRUE(Eventually([] { return g_AutoMonitor.IsMonitored(); }));
    RAVOFree();
    EXPECT_FALSE(RAVOConnect(9, 0));
}

TEST_F(ConnectionTest, ConnectToAnImpossiblePortFails) {
    EXPECT_FALSE(RAVOConnect(-2, 0));
    EXPECT_FALSE(RAVOConnect(1000000, 0));
}

// A late answer keeps the search at this port in the meantime.
TEST_F(ConnectionTest, FreeDuringTheSearchSendsNothingToWhoIsBeingAsked) {
    Settings settings = Settings::Of(Unit::kSixteenBit);
    settings.behaviour.replies.late = seconds(5);
    const Simulator stranger(settings);
    ASSERT_TRUE(RAVOInit(HearNothing));
    ASSERT_TRUE(stranger.Seen().WaitForCommand(emulator::Command::kIdentity, 1, seconds(60)));
    RAVOFree();
    EXPECT_EQ(stranger.Seen().CountOf(emulator::Command::kClose), 0U);
}

// ---- Time-outs, each in a process of its own: they leave an event locked -----------------------

class ConnectTimeoutTest : public testing::Test {
  protected:
    void SetUp() override { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
};

void ExitUnless(bool condition, int status) {
    if (!condition) {
        _exit(status);
    }
}

TEST_F(ConnectTimeoutTest, CountsWholeSeconds) {
    EXPECT_EXIT(
        {
            const auto before = Clock::now();
            ExitUnless(!RAVOConnect(9, 3000), 1);
            ExitUnless(Clock::now() - before >= milliseconds(1990), 2);
            ExitUnless(LoadShared(g_hConnectDeviceThread) == 0, 3);
            exit(0); // and the locked event does not delay the end
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ConnectTimeoutTest, SaysWhoHoldsThePort) {
    EXPECT_EXIT(
        {
            const Simulator simulator(Settings::Of(Unit::kSixteenBit, 4));
            const int32_t owner = getppid();
            std::ofstream("/var/lock/tarnwick.ACM4.lock", std::ios::binary)
                .write(reinterpret_cast<const char*>(&owner), sizeof owner);
            ExitUnless(!RAVOConnect(-1, 3000), 1);
            char text[256] = "";
            ExitUnless(RAVOGetLastError(text, sizeof text) == RAVO_ERROR_BUSY, 2);
            const std::string expected =
                "no simulator: /dev/ttyACM4: held by process " + std::to_string(owner) + " (";
            ExitUnless(std::string(text).rfind(expected, 0) == 0, 3);
            remove("/var/lock/tarnwick.ACM4.lock");
            exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ConnectTimeoutTest, ConnectWhileConnectedWaitsInVainAndDisconnects) {
    EXPECT_EXIT(
        {
            const Simulator simulator(Settings::Of(Unit::kTwelveBit));
            ExitUnless(RAVOInit(Listener::Hear), 1);
            ExitUnless(Listener::WaitForCalls(1), 2);
            ExitUnless(!RAVOConnect(-1, 2000), 3);
            ExitUnless(LoadShared(g_hConnectDeviceThread) == 0 && !DeviceIsConnected(), 4);
            ExitUnless(Listener::Heard() == std::vector<bool>{true}, 5);
            ExitUnless(RAVOGetLastError(nullptr, 0) == RAVO_ERROR_BUSY, 6);
            exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ConnectTimeoutTest, AnotherConnectOfTheSameThreadBlocksForEver) {
    EXPECT_EXIT(
        {
            ExitUnless(!RAVOConnect(9, 1), 1);
            alarm(2);
            RAVOConnect(9, 1);
            _exit(2);
        },
        testing::KilledBySignal(SIGALRM), "");
}

TEST_F(ConnectionTest, ConnectsWithoutFlashTable) {
    Settings settings = Settings::Of(Unit::kSixteenBit);
    settings.behaviour.replies.truncateTo = 40;
    const Simulator simulator(settings);
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    EXPECT_EQ(Listener::Heard(), std::vector<bool>{true});
    EXPECT_EQ(LoadShared(g_bIsISPSupported), 0);
    EXPECT_EQ(LoadShared(g_nDACBit), 0);
}

TEST_F(ConnectionTest, FreeWhilePlayingStopsTheOutputBeforeItTakesItsLeave) {
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    RAVOFree();
    EXPECT_TRUE(simulator.Seen().WaitFor(
        [](const emulator::Counters& seen) { return seen.hostClosings == 1; }, seconds(60)));
    simulator.TakeRest();
    EXPECT_GE(simulator.Seen().Count().stops, 1U);
    const std::vector<emulator::SeenCommand> commands = simulator.Seen().Commands();
    ASSERT_FALSE(commands.empty());
    EXPECT_EQ(commands.back().command, emulator::Command::kClose);
}

// The device that answers on a port while it is being identified may be anything.
TEST_F(ConnectionTest, PortThatIsStillBeingAskedIsNoSimulator) {
    Settings settings = Settings::Of(Unit::kSixteenBit);
    settings.behaviour.line = emulator::Line::kMute;
    const Simulator stranger(settings);
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Eventually([] { return DeviceIsConnected(); }));
    RAVO_OUTPUT_INFORMATION information;
    EXPECT_FALSE(RAVOGetOutputInformation(&information));
    RAVOFree();
    EXPECT_EQ(Listener::Heard(), std::vector<bool>{});
}

// It would be driven like the previously connected unit, and its answers would be taken away from
// the thread that identifies it.
TEST_F(ConnectionTest, PortThatIsStillBeingAskedIsNotPlayedOn) {
    Settings settings = Settings::Of(Unit::kSixteenBit);
    settings.behaviour.line = emulator::Line::kMute;
    const Simulator stranger(settings);
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Eventually([] { return DeviceIsConnected(); }));
    EXPECT_FALSE(RAVOOutputWaveform(0, nullptr, nullptr));
    EXPECT_FALSE(RAVOOutputOnce(0, 1.0, nullptr, nullptr));
    EXPECT_FALSE(RAVOWaitConnected(0));
    RAVOFree();
}

// ---- Waiting for the simulator -----------------------------------------------------------------

TEST_F(ConnectionTest, NobodyWaitsForASearchThatDoesNotRun) {
    EXPECT_FALSE(RAVOWaitConnected(600000));
    ASSERT_TRUE(RAVOInit(nullptr));
    RAVOFree();
    EXPECT_FALSE(RAVOWaitConnected(600000));
}

TEST_F(ConnectionTest, WaitEndsWithTheTime) {
    ASSERT_TRUE(RAVOInit(nullptr));
    const auto before = Clock::now();
    EXPECT_FALSE(RAVOWaitConnected(0));
    EXPECT_FALSE(RAVOWaitConnected(200));
    EXPECT_GE(Clock::now() - before, milliseconds(200));
}

TEST_F(ConnectionTest, WaitEndsWithTheConnect) {
    ASSERT_TRUE(RAVOInit(nullptr));
    std::thread other([] { EXPECT_TRUE(RAVOWaitConnected(60000)); });
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    EXPECT_TRUE(RAVOWaitConnected(60000));
    EXPECT_TRUE(RAVOWaitConnected(0)); // and again
    other.join();
    RAVO_OUTPUT_INFORMATION information;
    ASSERT_TRUE(RAVOGetOutputInformation(&information));
    EXPECT_EQ(information.DACBits, 16U); // known, and not merely connected
    simulator.Vanish();
    ASSERT_TRUE(Eventually([] { return !DeviceIsConnected(); }));
    EXPECT_FALSE(RAVOWaitConnected(0));
    simulator.Return();
    EXPECT_TRUE(RAVOWaitConnected(60000));
}

TEST_F(ConnectionTest, FreeEndsTheWaitsOfOtherThreads) {
    ASSERT_TRUE(RAVOInit(nullptr));
    std::atomic<bool> hasBegun{false};
    std::thread other([&] {
        hasBegun = true;
        EXPECT_FALSE(RAVOWaitConnected(600000));
    });
    while (!hasBegun) {
        std::this_thread::yield();
    }
    RAVOFree();
    other.join();
}

// ---- Wake-ups ----------------------------------------------------------------------------------

TEST(WakeUpTest, DeviceChangeWakesTheConnectThread) {
    g_hReconnectEvent.ResetEvent();
    WinEventCb(536, 0, 0);
    EXPECT_EQ(g_hReconnectEvent.WaitTimeout(0), 110);
    WinEventCb(537, 1, 2);
    EXPECT_EQ(g_hReconnectEvent.WaitTimeout(0), 0);
    ReconnectDevice();
    EXPECT_EQ(g_hReconnectEvent.WaitTimeout(0), 0);
}

TEST(WakeUpTest, ConnectedHandlerSetsTheEventOnConnectOnly) {
    g_hConnectedEvent.ResetEvent();
    ConnectedHandler(false);
    EXPECT_EQ(g_hConnectedEvent.WaitTimeout(0), 110);
    ConnectedHandler(true);
    EXPECT_EQ(g_hConnectedEvent.WaitTimeout(0), 0);
}

TEST(WakeUpTest, NotifyListenerRemembersWhatItSaid) {
    Listener::Forget();
    StoreShared(g_Callback, Listener::Hear);
    NotifyListener(true);
    EXPECT_EQ(g_bConnected, 1);
    NotifyListener(false);
    EXPECT_EQ(g_bConnected, 0);
    StoreShared(g_Callback, nullptr);
    NotifyListener(true);
    EXPECT_EQ(g_bConnected, 1);
    StoreShared(g_bConnected, 0);
    EXPECT_EQ(Listener::Heard(), (std::vector<bool>{true, false}));
}

// A wake-up that finds the device in place changes nothing.
TEST_F(ConnectionTest, NeedlessWakeUpKeepsTheConnection) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    for (int i = 0; i < 5; ++i) {
        WinEventCb(537, 0, 0);
        std::this_thread::sleep_for(milliseconds(50));
    }
    EXPECT_EQ(Listener::Heard(), std::vector<bool>{true});
    EXPECT_EQ(simulator.Seen().Count().hostOpenings, 1U);
}

TEST_F(ConnectionTest, StatelessExportsNeedNoConnection) {
    EXPECT_EQ(RAVOGetVersion(), 0x01000504U);
    EXPECT_FALSE(RAVOIsOutputting());
    RAVOStopOutput();
}

} // namespace
