#include "device/Monitor.h"

#include "device/Device.h"
#include "platform/SharedValue.h"
#include "PseudoPort.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

std::atomic<int> wakeUps{0};
std::atomic<bool> pausesOnWakeUp{false};
std::atomic<bool> wasClosedOnWakeUp{false};

} // namespace

// In place of the connect thread, which pauses the monitor while it handles a loss.
void ReconnectDevice() {
    wasClosedOnWakeUp = !DeviceIsConnected();
    if (pausesOnWakeUp) {
        g_AutoMonitor.PauseMonitor();
    }
    ++wakeUps;
}

namespace {

bool WaitFor(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + seconds(60);
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(5));
    }
    return true;
}

// Grows with every child that has ended: each look runs a shell.
long ChildWork() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_minflt;
}

long WorkOfOneLook() {
    long most = 0;
    for (int i = 0; i < 3; ++i) {
        const long before = ChildWork();
        DeviceIsAlive();
        most = std::max(most, ChildWork() - before);
    }
    return most;
}

class Monitor : public testing::Test {
  protected:
    void SetUp() override {
        wakeUps = 0;
        pausesOnWakeUp = true;
        wasClosedOnWakeUp = false;
    }
    void TearDown() override {
        // A look may be under way; what it still does must not reach the next test.
        g_AutoMonitor.PauseMonitor();
        std::this_thread::sleep_for(milliseconds(200));
        DeviceClose();
    }

    void Connect() {
        m_port.Plug(5);
        g_hDevice = m_port.OpenHostSide();
        DeviceSetPath("/dev/ttyACM5");
        ASSERT_TRUE(DeviceIsAlive());
    }
    PseudoPort& Port() { return m_port; }

  private:
    PseudoPort m_port;
};

TEST_F(Monitor, IsOffWhenTheLibraryIsLoaded) {
    EXPECT_FALSE(g_AutoMonitor.IsMonitored());
}

TEST_F(Monitor, IsSwitchedOnAndOff) {
    Connect();
    g_AutoMonitor.StartMonitor();
    EXPECT_TRUE(g_AutoMonitor.IsMonitored());
    EXPECT_TRUE(g_AutoMonitor.IsMonitored());
    g_AutoMonitor.PauseMonitor();
    EXPECT_FALSE(g_AutoMonitor.IsMonitored());
}

TEST_F(Monitor, DoesNotLookWhileOff) {
    const long before = ChildWork();
    std::this_thread::sleep_for(milliseconds(1500));
    EXPECT_EQ(ChildWork(), before);
    EXPECT_EQ(wakeUps, 0);
}

TEST_F(Monitor, LooksInPairsASecondApart) {
    Connect();
    const long look = WorkOfOneLook();
    const long before = ChildWork();
    g_AutoMonitor.StartMonitor();
    EXPECT_TRUE(WaitFor([&] { return ChildWork() - before > look; }));
    const auto start = Clock::now();
    // Two more pairs of looks take at least two pauses of a second each.
    EXPECT_TRUE(WaitFor([&] { return ChildWork() - before > 5 * look; }));
    EXPECT_GE(Clock::now() - start, milliseconds(1500));
    EXPECT_EQ(wakeUps, 0);
    EXPECT_TRUE(DeviceIsConnected());
}

TEST_F(Monitor, ClosesAVanishedPortAndWakesTheConnectThreadOnce) {
    Connect();
    ASSERT_TRUE(LockDevice(5));
    g_AutoMonitor.StartMonitor();
    std::this_thread::sleep_for(milliseconds(100));
    Port().Unplug();
    ASSERT_TRUE(WaitFor([] { return wakeUps > 0; }));
    EXPECT_TRUE(wasClosedOnWakeUp);
    EXPECT_STREQ(g_szDevicePath, "");
    EXPECT_FALSE(std::filesystem::exists("/var/lock/tarnwick.ACM5.lock"));
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_EQ(wakeUps, 1);
    EXPECT_FALSE(g_AutoMonitor.IsMonitored());
}

TEST_F(Monitor, RepeatsTheWakeUpUntilItIsPaused) {
    pausesOnWakeUp = false;
    g_AutoMonitor.StartMonitor();
    EXPECT_TRUE(WaitFor([] { return wakeUps > 2; }));
}

TEST_F(Monitor, NoticesEveryLoss) {
    for (int loss = 1; loss <= 3; ++loss) {
        Connect();
        g_AutoMonitor.StartMonitor();
        Port().Unplug();
        ASSERT_TRUE(WaitFor([&] { return wakeUps == loss; }));
        ASSERT_TRUE(WaitFor([] { return !DeviceIsConnected(); }));
    }
}

TEST_F(Monitor, OverlooksADeviceThatReturnsBetweenTwoLooks) {
    Connect();
    const long look = WorkOfOneLook();
    const long before = ChildWork();
    g_AutoMonitor.StartMonitor();
    ASSERT_TRUE(WaitFor([&] { return ChildWork() - before > look; }));
    std::this_thread::sleep_for(milliseconds(100));
    Port().Unplug();
    Port().Plug(5);
    const long then = ChildWork();
    ASSERT_TRUE(WaitFor([&] { return ChildWork() - then > 2 * look; }));
    EXPECT_EQ(wakeUps, 0);
    EXPECT_TRUE(DeviceIsConnected());
}

TEST_F(Monitor, ThreadKeepsTheTimerSignalsBlocked) {
    // Signals 10 and 12 in the mask, whose lowest bit is signal 1.
    constexpr unsigned long kTimerSignals = (1UL << 9U) | (1UL << 11U);
    int threads = 0;
    ASSERT_TRUE(WaitFor([&] {
        threads = 0;
        int blocked = 0;
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            if (task.path().filename() == std::to_string(getpid())) {
                continue;
            }
            ++threads;
            std::ifstream status(task.path() / "status");
            for (std::string line; std::getline(status, line);) {
                if (line.rfind("SigBlk:", 0) == 0) {
                    const unsigned long mask = std::strtoul(line.c_str() + 7, nullptr, 16);
                    blocked += (mask & kTimerSignals) == kTimerSignals ? 1 : 0;
                }
            }
        }
        return blocked > 0;
    }));
    EXPECT_GE(threads, 1);
}

TEST_F(Monitor, EndsWhileOnWithoutWaitingForItsPause) {
    Connect();
    const long look = WorkOfOneLook();
    g_AutoMonitor.StartMonitor();
    auto shortest = Clock::duration::max();
    for (int i = 0; i < 5; ++i) {
        // Another monitor shares the stop flag with the one of the library, and so ends that, too.
        StoreShared(g_bStopMonitor, 0);
        auto another = std::make_unique<CAutoMonitor>();
        const long before = ChildWork();
        ASSERT_TRUE(WaitFor([&] { return ChildWork() - before > look; }));
        std::this_thread::sleep_for(milliseconds(50));
        const auto start = Clock::now();
        another.reset();
        shortest = std::min(shortest, Clock::now() - start);
    }
    EXPECT_LT(shortest, milliseconds(700));
    EXPECT_EQ(LoadShared(g_bStopMonitor), 1);
    EXPECT_EQ(wakeUps, 0);
    EXPECT_TRUE(DeviceIsConnected());
}

TEST_F(Monitor, LetsAForkedChildExit) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "The sanitizers take the parent's thread, and what it held at the fork, for "
                    "leaks of the child";
#endif
    g_AutoMonitor.StartMonitor();
    EXPECT_EXIT(
        {
            alarm(60);
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
}

void FirstHandler(unsigned int, unsigned int, unsigned long) {}
void SecondHandler(unsigned int, unsigned int, unsigned long) {}

TEST(NotifyEvents, KeepTheLastHandlerOfEachCode) {
    EXPECT_TRUE(g_mapNotifyEvent.empty());
    EXPECT_EQ(RegisterNotifyEvent(537, FirstHandler), &FirstHandler);
    EXPECT_EQ(RegisterNotifyEvent(1, FirstHandler), &FirstHandler);
    EXPECT_EQ(RegisterNotifyEvent(537, SecondHandler), &SecondHandler);
    EXPECT_EQ(g_mapNotifyEvent.size(), 2U);
    EXPECT_EQ(g_mapNotifyEvent.at(537), &SecondHandler);
    EXPECT_EQ(g_mapNotifyEvent.at(1), &FirstHandler);
    EXPECT_EQ(RegisterNotifyEvent(1, nullptr), nullptr);
}

} // namespace
