#include "api/ravo.h"
#include "ConnectionFixture.h"
#include "Listener.h"
#include "platform/LastError.h"
#include "tools/emulator/Simulator.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

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

} // namespace
