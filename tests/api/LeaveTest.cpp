// Loading, leaving and unloading: no way of ending a host may hang or crash.
#include "api/ravo.h"
#include "engine/Record.h"
#include "tests/support/Eventually.h"
#include "tests/support/Sanitizers.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;
using std::chrono::seconds;

// Runs the program to its end and returns its exit status, or minus the signal that ended it.
int RunProgram(std::vector<std::string> words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        alarm(90); // a hang ends as a signal
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool LockFileExists() {
    struct stat status {};
    return stat("/var/lock/tarnwick.ACM0.lock", &status) == 0;
}

struct Departure {
    const char* state;
    const char* way;
};

void PrintTo(const Departure& departure, std::ostream* out) {
    *out << departure.state << " " << departure.way;
}

std::string NameOf(const testing::TestParamInfo<Departure>& info) {
    return std::string(info.param.state) + "_" + info.param.way;
}

// ---- Without a simulator -----------------------------------------------------------------------

class LeaveAloneTest : public testing::TestWithParam<Departure> {};

TEST_P(LeaveAloneTest, EndsWithItsStatus) {
    EXPECT_EQ(RunProgram({LEAVE_PROGRAM, GetParam().state, GetParam().way}), 7);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, LeaveAloneTest,
    testing::Values(Departure{"loaded", "main"}, Departure{"loaded", "thread"},
                    Departure{"loading", "main"}, Departure{"loading", "thread"},
                    Departure{"searching", "main"}, Departure{"searching", "thread"},
                    Departure{"timeout", "main"}, Departure{"connecting", "main"},
                    Departure{"connecting", "thread"}, Departure{"forsaken", "main"}),
    NameOf);

// ---- With one ----------------------------------------------------------------------------------

class LeaveTest : public testing::TestWithParam<Departure> {};

TEST_P(LeaveTest, EndsWithItsStatusAndLetsGoOfTheSimulator) {
    if (kUnderSanitizer && std::string(GetParam().way) == "fork") {
        GTEST_SKIP() << "The sanitizers take the threads and the memory of the parent for leaks.";
    }
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    EXPECT_EQ(RunProgram({LEAVE_PROGRAM, GetParam().state, GetParam().way}), 7);
    EXPECT_FALSE(LockFileExists());
    EXPECT_TRUE(simulator.Seen().WaitFor(
        [](const emulator::Counters& seen) { return seen.hostClosings == seen.hostOpenings; },
        seconds(60)));
}

INSTANTIATE_TEST_SUITE_P(
    Ways, LeaveTest,
    testing::Values(Departure{"connected", "main"}, Departure{"connected", "thread"},
                    Departure{"connected", "listener"}, Departure{"connected", "fork"},
                    Departure{"playing", "main"}, Departure{"playing", "thread"},
                    Departure{"playing", "progress"}, Departure{"playing", "stop"},
                    Departure{"playing", "busy"}, Departure{"freed", "main"},
                    Departure{"freed", "thread"}),
    NameOf);

TEST(LeaveFromCallbackTest, Delay) {
    Settings settings = Settings::Of(Unit::kSixteenBit);
    Simulator simulator(settings);
    std::thread host([] { EXPECT_EQ(RunProgram({LEAVE_PROGRAM, "playing", "delay"}), 7); });
    EXPECT_TRUE(simulator.Seen().WaitForStarts(1, seconds(60)));
    simulator.Send({'X', 0, 1});
    host.join();
    EXPECT_FALSE(LockFileExists());
}

TEST(LeaveFromCallbackTest, ListenerWhileMainIsInFree) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    EXPECT_EQ(RunProgram({LEAVE_PROGRAM, "connected", "free"}), 7);
    EXPECT_FALSE(LockFileExists());
}

// A host that exits while it plays has sent the stop to the simulator.
TEST(LeaveWhilePlayingTest, StopsAndClosesTheSimulator) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    EXPECT_EQ(RunProgram({LEAVE_PROGRAM, "playing", "main"}), 7);
    EXPECT_TRUE(simulator.Seen().WaitForStops(1, seconds(20)));
    EXPECT_TRUE(simulator.Seen().WaitForCommand(emulator::Command::kClose, 1, seconds(20)));
}

// The child has inherited the parent's open port.
TEST(LeaveWhilePlayingTest, ForkedChildLeavesTheSimulatorAlone) {
    if (kUnderSanitizer) {
        GTEST_SKIP() << "The sanitizers take the threads and the memory of the parent for leaks of "
                        "the child.";
    }
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    EXPECT_EQ(RunProgram({LEAVE_PROGRAM, "playing", "fork"}), 7);
    simulator.TakeRest();
    EXPECT_EQ(simulator.Seen().CountOf(emulator::Command::kClose), 1U);
    EXPECT_EQ(simulator.Seen().Count().starts, 1U);
}

TEST(LeaveWhilePlayingTest, SilentSimulatorDoesNotHoldTheEnd) {
    Settings settings = Settings::Of(Unit::kSixteenBit);
    settings.behaviour.asks = false;
    const Simulator simulator(settings);
    EXPECT_EQ(RunProgram({LEAVE_PROGRAM, "playing", "main"}), 7);
    EXPECT_FALSE(LockFileExists());
}

// ---- Loaded material ---------------------------------------------------------------------------

bool g_looksAfterTheLibraryHasGone = false;

// Constructed before the library's objects and so destroyed after them.
struct LastLook {
    ~LastLook() {
        if (g_looksAfterTheLibraryHasGone) {
            const bool isReleased = g_pECGData == nullptr;
            const bool isRefused = !RAVOLoadWaveformCalibrationMode(1.0, 1.0);
            const int status = isReleased ? 1 : 2;
            _exit(isRefused ? status : 3);
        }
    }
};

__attribute__((init_priority(1005))) const LastLook s_lastLook;

class LeaveMaterialTest : public testing::Test {
  protected:
    void SetUp() override { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }

    static void Load() { ASSERT_TRUE(RAVOLoadWaveformCalibrationMode(1.0, 1.0)); }

    [[noreturn]] static void Leave() {
        g_looksAfterTheLibraryHasGone = true;
        alarm(90); // a hang ends as a signal
        exit(0);
    }
};

TEST_F(LeaveMaterialTest, IsReleased) {
    EXPECT_EXIT(
        {
            Load();
            Leave();
        },
        testing::ExitedWithCode(1), "");
}

TEST_F(LeaveMaterialTest, StaysWithAThreadThatIsAtWorkOnIt) {
    EXPECT_EXIT(
        {
            Load();
            std::atomic<bool> works{false};
            std::thread([&] {
                const CAutoCriticalSection lock(g_CriticalSection);
                works = true;
                pause();
            }).detach();
            ASSERT_TRUE(Eventually([&] { return works.load(); }));
            Leave();
        },
        testing::ExitedWithCode(2), "");
}

// ---- Unloading ---------------------------------------------------------------------------------

TEST(UnloadTest, ManyTimes) {
    EXPECT_EQ(RunProgram({UNLOAD_PROGRAM, RAVO_SHARED_LIBRARY, "loaded", "50"}), 0);
}

TEST(UnloadTest, WhileSearching) {
    EXPECT_EQ(RunProgram({UNLOAD_PROGRAM, RAVO_SHARED_LIBRARY, "searching", "5"}), 0);
}

TEST(UnloadTest, WhileConnected) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    EXPECT_EQ(RunProgram({UNLOAD_PROGRAM, RAVO_SHARED_LIBRARY, "connected", "5"}), 0);
    EXPECT_FALSE(LockFileExists());
}

TEST(UnloadTest, WhilePlaying) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    EXPECT_EQ(RunProgram({UNLOAD_PROGRAM, RAVO_SHARED_LIBRARY, "playing", "3"}), 0);
    EXPECT_FALSE(LockFileExists());
}

} // namespace
