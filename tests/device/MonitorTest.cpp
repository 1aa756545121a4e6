#include "device/Monitor.h"

#include "device/Device.h"
#include "platform/SharedValue.h"
#include "PseudoPort.h"
#include "tests/support/Sanitizers.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

std::atomic<int> wakeUps{0};
std::atomic<bool> pausesOnWakeUp{false};
std::atomic<bool> wasClosedOnWakeUp{false};
std::atomic<size_t> looksOnWakeUp{0};
std::atomic<bool> isPausedByALook{false};
std::atomic<int> reopensInFourthLook{-1}; // a handle for it

// The times at which the library listed the ports; the first few listings can be made to show none.
class Looks {
  public:
    static size_t Count() {
        const std::lock_guard<std::mutex> lock(Get().m_mutex);
        return Get().m_times.size();
    }
    static std::vector<Clock::time_point> Times() {
        const std::lock_guard<std::mutex> lock(Get().m_mutex);
        return Get().m_times;
    }
    static void Forget() { BlindUntil(1); }
    // Forgets the earlier listings, and shows ports only from the given one on.
    static void BlindUntil(size_t firstThatSees) {
        const std::lock_guard<std::mutex> lock(Get().m_mutex);
        Get().m_times.clear();
        Get().m_firstThatSees = firstThatSees;
    }
    // Records a listing; returns whether it may show ports.
    static bool Take() {
        const std::lock_guard<std::mutex> lock(Get().m_mutex);
        Get().m_times.push_back(Clock::now());
        return Get().m_times.size() >= Get().m_firstThatSees;
    }

  private:
    // Never destroyed: the monitor may still be running when the process ends.
    static Looks& Get() {
        static auto* const looks = new Looks;
        return *looks;
    }

    std::mutex m_mutex;
    std::vector<Clock::time_point> m_times;
    size_t m_firstThatSees = 1;
};

} // namespace

// Replaces the system's function by which the library lists the ports.
FILE* popen(const char* command, const char* type) {
    using Popen = FILE*(const char*, const char*);
    auto* const systems = reinterpret_cast<Popen*>(dlsym(RTLD_NEXT, "popen"));
    if (isPausedByALook) {
        g_AutoMonitor.PauseMonitor();
    }
    const bool sees = Looks::Take();
    if (reopensInFourthLook != -1 && Looks::Count() == 4) {
        DeviceClose();
        DeviceUse(reopensInFourthLook.exchange(-1));
    }
    return systems(sees ? command : "exit 0", type);
}

// Acts as the connect thread, which pauses the monitor while it handles a loss.
void ReconnectDevice() {
    wasClosedOnWakeUp = !DeviceIsConnected();
    looksOnWakeUp = Looks::Count();
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

class Monitor : public testing::Test {
  protected:
    void SetUp() override {
        wakeUps = 0;
        pausesOnWakeUp = true;
        wasClosedOnWakeUp = false;
        looksOnWakeUp = 0;
        isPausedByALook = false;
        Looks::Forget();
    }
    void TearDown() override {
        // A check may be under way; its effects must not reach the next test.
        g_AutoMonitor.PauseMonitor();
        std::this_thread::sleep_for(milliseconds(200));
        DeviceClose();
    }

    void Connect() {
        m_port.Plug(5);
        g_hDevice = m_port.OpenHostSide();
        DeviceSetPath("/dev/ttyACM5");
        ASSERT_TRUE(DeviceIsAlive());
        Looks::Forget();
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
    std::this_thread::sleep_for(milliseconds(1500));
    EXPECT_EQ(Looks::Count(), 0U);
    EXPECT_EQ(wakeUps, 0);
}

TEST_F(Monitor, LooksInPairsASecondApart) {
    Connect();
    g_AutoMonitor.StartMonitor();
    ASSERT_TRUE(WaitFor([] { return Looks::Count() >= 6; }));
    const auto times = Looks::Times();
    constexpr microseconds kPause(1000200);
    EXPECT_GE(times[2] - times[1], kPause);
    EXPECT_GE(times[4] - times[3], kPause);
    const auto closest = std::min({times[1] - times[0], times[3] - times[2], times[5] - times[4]});
    EXPECT_LT(closest, kPause);
    EXPECT_EQ(wakeUps, 0);
    EXPECT_TRUE(DeviceIsConnected());
}

TEST_F(Monitor, TakesOneLookOutOfFourThatSeesThePortForItsPresence) {
    Connect();
    Looks::BlindUntil(4);
    g_AutoMonitor.StartMonitor();
    ASSERT_TRUE(WaitFor([] { return Looks::Count() >= 6; }));
    const auto times = Looks::Times();
    EXPECT_GE(times[4] - times[3], seconds(1));
    EXPECT_EQ(wakeUps, 0);
    EXPECT_TRUE(DeviceIsConnected());
}

TEST_F(Monitor, GivesThePortUpAfterFourLooksInVain) {
    Connect();
    Looks::BlindUntil(5);
    g_AutoMonitor.StartMonitor();
    ASSERT_TRUE(WaitFor([] { return wakeUps > 0; }));
    EXPECT_EQ(looksOnWakeUp, 4U);
    EXPECT_TRUE(wasClosedOnWakeUp);
}

// A thread that pauses it in the meantime is giving up the port, and may already have opened the
// next one.
TEST_F(Monitor, LeavesThePortAloneWhenPausedDuringItsLooks) {
    Connect();
    Looks::BlindUntil(100);
    isPausedByALook = true;
    g_AutoMonitor.StartMonitor();
    ASSERT_TRUE(WaitFor([] { return Looks::Count() >= 4; }));
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(wakeUps, 0);
    EXPECT_TRUE(DeviceIsConnected());
    EXPECT_EQ(Looks::Count(), 4U);
}

// The connect thread has noticed the loss itself and found the simulator again in the meantime.
TEST_F(Monitor, LeavesAPortAloneThatWasOpenedAfterItsLooks) {
    Connect();
    Looks::BlindUntil(5);
    reopensInFourthLook = Port().OpenHostSide();
    g_AutoMonitor.StartMonitor();
    ASSERT_TRUE(WaitFor([] { return wakeUps > 0; }));
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
    g_AutoMonitor.StartMonitor();
    ASSERT_TRUE(WaitFor([] { return Looks::Count() >= 2; }));
    std::this_thread::sleep_for(milliseconds(100));
    Port().Unplug();
    Port().Plug(5);
    Looks::Forget();
    ASSERT_TRUE(WaitFor([] { return Looks::Count() >= 3; }));
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
    g_AutoMonitor.StartMonitor();
    auto shortest = Clock::duration::max();
    for (int i = 0; i < 5; ++i) {
        // Another monitor shares its stop flag with that of the library and therefore ends that
        // one, too.
        StoreShared(g_bStopMonitor, 0);
        auto another = std::make_unique<CAutoMonitor>();
        Looks::Forget();
        ASSERT_TRUE(WaitFor([] { return Looks::Count() >= 2; }));
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
    if (kUnderSanitizer) {
        GTEST_SKIP()
            << "The sanitizers take the parent's thread, and what it held at the fork, for "
               "leaks of the child";
    }
    g_AutoMonitor.StartMonitor();
    EXPECT_EXIT(
        {
            alarm(60);
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
}

// At the fork a thread that the child does not inherit may hold the monitor's lock.
TEST_F(Monitor, LetsAForkedChildExitWhoeverHeldItsLock) {
    if (kUnderSanitizer) {
        GTEST_SKIP()
            << "The sanitizers take the parent's thread, and what it held at the fork, for "
               "leaks of the child";
    }
    std::atomic<bool> done{false};
    std::thread holder([&] {
        while (!done) {
            g_AutoMonitor.IsMonitored();
        }
    });
    int status = 0;
    for (int i = 0; i < 40 && status == 0; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            std::exit(0);
        }
        waitpid(child, &status, 0);
    }
    done = true;
    holder.join();
    EXPECT_EQ(status, 0);
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
