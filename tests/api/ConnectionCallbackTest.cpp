#include "api/Connection.h"
#include "api/ravo.h"
#include "ConnectionFixture.h"
#include "device/Device.h"
#include "device/Monitor.h"
#include "engine/Output.h"
#include "Listener.h"
#include "platform/SharedValue.h"
#include "tests/support/Eventually.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Simulator.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <vector>

namespace {

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

} // namespace
