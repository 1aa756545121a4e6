#include "api/Connection.h"

#include "api/ravo.h"
#include "device/Device.h"
#include "device/Monitor.h"
#include "device/Protocol.h"
#include "engine/Output.h"
#include "engine/PlayRaw.h"
#include "Listener.h"
#include "platform/LastError.h"
#include "platform/SharedValue.h"
#include "Process.h"
#include "tests/support/Eventually.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;
using std::chrono::milliseconds;
using std::chrono::seconds;

bool Exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

// The monitor gives up the path when the simulator has gone, also at the end of a test.
std::string DevicePath() {
    char path[sizeof g_szDevicePath];
    LoadSharedBytes(path, g_szDevicePath, sizeof path);
    return path;
}

void HearNothing(bool /*connected*/) {
    ADD_FAILURE() << "the replaced listener was called";
}

class ConnectionTest : public testing::Test {
  protected:
    void SetUp() override { Listener::Forget(); }
    void TearDown() override { RAVOFree(); }
};

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

// ---- Loss --------------------------------------------------------------------------------------

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

// The state of the library at the moment at which the listener is called.
std::atomic<int> g_orderlyCalls{0};

void LookAround(bool connected) {
    const bool isOpen = DeviceIsConnected();
    const bool isMonitored = g_AutoMonitor.IsMonitored();
    const bool isPlaying = LoadShared(g_hPlayThread) != 0;
    g_orderlyCalls += !isMonitored && !isPlaying && isOpen == connected ? 1 : 0;
    Listener::Hear(connected);
}

// For a connect: before the monitoring begins; for a loss: when everything has been cleared away.
TEST_F(ConnectionTest, ListenerIsCalledBetweenTheWatches) {
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOInit(LookAround));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    ASSERT_TRUE(Eventually([] { return g_AutoMonitor.IsMonitored(); }));
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    simulator.Vanish();
    ASSERT_TRUE(Listener::WaitForCalls(2));
    EXPECT_EQ(g_orderlyCalls, 2);
}

std::atomic<bool> g_listenersThreadTakesTimerSignals{true};

void LookAtOwnSignals(bool connected) {
    sigset_t blocked;
    sigemptyset(&blocked);
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    g_listenersThreadTakesTimerSignals =
        sigismember(&blocked, SIGUSR1) != 1 || sigismember(&blocked, SIGUSR2) != 1;
    Listener::Hear(connected);
}

// Their handlers would interrupt it while it communicates with the simulator.
TEST_F(ConnectionTest, ConnectThreadTakesNoTimerSignals) {
    sigset_t timerSignals;
    sigemptyset(&timerSignals);
    sigaddset(&timerSignals, SIGUSR1);
    sigaddset(&timerSignals, SIGUSR2);
    ASSERT_EQ(pthread_sigmask(SIG_UNBLOCK, &timerSignals, nullptr), 0);
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(LookAtOwnSignals));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    EXPECT_FALSE(g_listenersThreadTakesTimerSignals);
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

// ---- Signals and forks -------------------------------------------------------------------------

// A host that waits for its signals blocks them in its threads; a library thread that received one
// would end the process.
TEST_F(ConnectionTest, LibraryTakesNoneOfTheHostsSignals) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    const int hosts[] = {SIGTERM, SIGINT, SIGHUP, SIGALRM, SIGPIPE};
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : hosts) {
        sigaddset(&signals, signal);
    }
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, nullptr), 0);
    std::signal(SIGPIPE, SIG_DFL);
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    for (const int signal : hosts) {
        ASSERT_EQ(kill(getpid(), signal), 0);
        int received = 0;
        ASSERT_EQ(sigwait(&signals, &received), 0);
        EXPECT_EQ(received, signal);
    }
    RAVOStopOutput();
}

// Runs in a forked child with a time limit: a child that hangs is killed, and the test fails.
bool ChildReturns(const std::function<bool()>& test) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(test() ? 7 : 8);
    }
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) { // the timer signals of the output
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 7;
}

ECG_HEADER* (*const kLoadersWithoutApiLock[])() = {
    [] { return LoadDatabaseEDF("/none.edf", MATERIAL_EDF); },
    [] { return LoadDatabaseNoiseTest(); },
    [] { return LoadDatabaseNoiseTest("/none", "/none", 6); },
};

// The child has none of the library's threads, whatever its variables indicate.
TEST_F(ConnectionTest, ForkedChildIsRefused) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    EXPECT_TRUE(ChildReturns([] {
        const bool refused =
            !RAVOInit(nullptr) && !RAVOConnect(-1, 5000) && !RAVOWaitConnected(600000) &&
            !RAVOOutputWaveform(0, nullptr, nullptr) && !RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0);
        bool isTold = RAVOGetLastError(nullptr, 0) == RAVO_ERROR_FORKED;
        SetLastFailure(Failure());
        RAVO_SEARCH_ENTRY entry;
        isTold =
            isTold && !RAVOGetSearchReport(0, &entry) && LastFailure().code == RAVO_ERROR_FORKED;
        for (const auto load : kLoadersWithoutApiLock) {
            SetLastFailure(Failure());
            isTold = isTold && load() == nullptr && LastFailure().code == RAVO_ERROR_FORKED;
        }
        RAVOStopOutput();
        RAVOFree();
        return refused && isTold;
    }));
    EXPECT_TRUE(RAVOIsOutputting());
    RAVOStopOutput();
}

std::atomic<int> g_accepted{0};
std::atomic<int> g_delayCalls{0};

void ExpectRefusal(bool isRefused) {
    const bool isTold = RAVOGetLastError(nullptr, 0) == RAVO_ERROR_CALLBACK;
    g_accepted += isRefused && isTold ? 0 : 1;
}

void LoadFromDelay(int /*delay*/) {
    double amplitudes[8] = {};
    ExpectRefusal(RAVOLoadMITHeader("/none.hea") == nullptr);
    ExpectRefusal(!RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ExpectRefusal(!RAVOLoadWaveformEx(WAVEFORM_SINE, 1.0, amplitudes));
    ExpectRefusal(!RAVOOutputOnce(0, 1.0, nullptr, nullptr));
    ExpectRefusal(RAVOLoadDatabaseCTS_CSE(0, CTSCSE_NOISE_NONE) == nullptr);
    ExpectRefusal(LoadDatabaseEDF("/none.edf", MATERIAL_EDF) == nullptr);
    ExpectRefusal(LoadDatabaseNoiseTest() == nullptr);
    ExpectRefusal(!RAVOInit(nullptr));
    ExpectRefusal(!RAVOInitPort(3, nullptr));
    ExpectRefusal(!RAVOConnect(-1, 0));
    ExpectRefusal(!RAVOWaitConnected(0));
    ExpectRefusal(LoadDatabaseNoiseTest("/none", "/none", 6) == nullptr);
    ++g_delayCalls;
}

// It would release the material that is being played.
TEST_F(ConnectionTest, LoaderOnTheDelayCallbackIsRefused) {
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, LoadFromDelay));
    simulator.Send({'X', 0, 1});
    EXPECT_TRUE(Eventually([] { return g_delayCalls > 0; }));
    EXPECT_EQ(g_accepted, 0);
    EXPECT_EQ(LoadShared(g_nPortNumber), -1); // what is refused changes nothing
    EXPECT_TRUE(RAVOIsOutputting());
    const std::uint64_t frames = simulator.Seen().Count().frames;
    EXPECT_TRUE(simulator.Seen().WaitForFrames(frames + 600, seconds(60)));
    RAVOStopOutput();
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

std::atomic<int> g_waitedOnListener{0};

// It is connected on the first call; on the second, it would wait for its own thread.
void WaitOnListener(bool connected) {
    g_waitedOnListener += RAVOWaitConnected(600000) == connected ? 1 : 0;
    EXPECT_TRUE(connected || RAVOGetLastError(nullptr, 0) == RAVO_ERROR_CALLBACK);
    Listener::Hear(connected);
}

TEST_F(ConnectionTest, ListenerDoesNotWaitForItself) {
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(WaitOnListener));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    simulator.Vanish();
    ASSERT_TRUE(Listener::WaitForCalls(2));
    EXPECT_EQ(g_waitedOnListener, 2);
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

// ---- Listeners that call the library -----------------------------------------------------------

std::atomic<int> g_callsMade{0};
std::atomic<bool> g_mainIsFreeing{false};

bool MainHoldsTheLock() {
    const bool isFree = g_APICriticalSection.TryLock();
    if (isFree) {
        g_APICriticalSection.Unlock();
    }
    return !isFree;
}

void CallWhileMainFrees(bool connected) {
    Listener::Hear(connected);
    Eventually([] { return g_mainIsFreeing.load() && MainHoldsTheLock(); });
    g_callsMade += RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0) ? 1 : 0;
    g_callsMade += RAVOOutputWaveform(0, nullptr, nullptr) ? 1 : 0;
    g_callsMade += RAVOInit(HearNothing) ? 0 : 1; // the library is being left
    RAVOStopOutput();
    ++g_callsMade;
}

// RAVOFree holds the API lock while it waits for the thread that runs the listener.
TEST_F(ConnectionTest, ListenerMayCallTheLibraryWhileItIsBeingFreed) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(CallWhileMainFrees));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    g_mainIsFreeing = true;
    RAVOFree();
    EXPECT_EQ(g_callsMade, 4);
    EXPECT_EQ(LoadShared(g_hConnectDeviceThread), 0U);
    EXPECT_EQ(LoadShared(g_hPlayThread), 0U);
    EXPECT_TRUE(RAVOInit(nullptr));
}

void PlayOnConnect(bool connected) {
    if (connected) {
        g_callsMade += RAVOLoadWaveform(WAVEFORM_SQUARE, 2.0, 1.0) ? 1 : 0;
        g_callsMade += RAVOOutputWaveform(0, nullptr, nullptr) ? 1 : 0;
    }
    Listener::Hear(connected);
}

TEST_F(ConnectionTest, ListenerMayPlay) {
    g_callsMade = 0;
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(PlayOnConnect));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    EXPECT_EQ(g_callsMade, 2);
    EXPECT_TRUE(simulator.Seen().WaitForFrames(300, seconds(60)));
}

void FreeFromListener(bool connected) {
    RAVOFree();
    Listener::Hear(connected);
}

TEST_F(ConnectionTest, FreeFromTheListenerDoesNothing) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(FreeFromListener));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    EXPECT_TRUE(DeviceIsConnected());
    EXPECT_NE(LoadShared(g_hConnectDeviceThread), 0U);
}

std::atomic<int> g_connectsFromListener{0};

void ConnectFromListener(bool connected) {
    g_connectsFromListener += RAVOConnect(-1, 1000) ? 1 : 0;
    g_connectsFromListener += RAVOGetLastError(nullptr, 0) == RAVO_ERROR_CALLBACK ? 0 : 1;
    Listener::Hear(connected);
}

// Its wait would be for its own thread.
TEST_F(ConnectionTest, ConnectFromTheListenerFailsAndChangesNothing) {
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(ConnectFromListener));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    simulator.Vanish();
    ASSERT_TRUE(Listener::WaitForCalls(2));
    simulator.Return();
    ASSERT_TRUE(Listener::WaitForCalls(3));
    EXPECT_EQ(Listener::Heard(), (std::vector<bool>{true, false, true}));
    EXPECT_EQ(g_connectsFromListener, 0);
}

void FreeFromDelay(int /*delay*/) {
    RAVOFree();
    ++g_callsMade;
}

TEST_F(ConnectionTest, FreeFromTheDelayCallbackDoesNothing) {
    g_callsMade = 0;
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Listener::WaitForCalls(1));
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, FreeFromDelay));
    simulator.Send({'X', 0, 1});
    EXPECT_TRUE(Eventually([] { return g_callsMade > 0; }));
    EXPECT_TRUE(DeviceIsConnected());
    EXPECT_NE(LoadShared(g_hConnectDeviceThread), 0U);
}

TEST_F(ConnectionTest, StatelessExportsNeedNoConnection) {
    EXPECT_EQ(RAVOGetVersion(), 0x01000504U);
    EXPECT_FALSE(RAVOIsOutputting());
    RAVOStopOutput();
}

} // namespace
