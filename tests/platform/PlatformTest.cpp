#include "platform/Platform.h"

#include "platform/Instance.h"
#include "platform/SimpleCriticalSection.h"
#include "tests/support/Files.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr unsigned long kWholeText = ~0UL;

TEST(BoundedCopy, CopiesTextAndTerminator) {
    char destination[16];
    memset(destination, 'z', sizeof destination);
    EXPECT_EQ(strncpy_s(destination, 16, "abc", kWholeText), 0);
    EXPECT_EQ(memcmp(destination, "abc\0zzzzzzzzzzzz", 16), 0);
}

TEST(BoundedCopy, LeavesTheDestinationWhenTheTextDoesNotFit) {
    char destination[16];
    memset(destination, 'z', sizeof destination);
    EXPECT_EQ(strncpy_s(destination, 16, "12345678901234567", kWholeText), -1);
    EXPECT_EQ(strncpy_s(destination, 16, "1234567890123456", kWholeText), -1);
    EXPECT_EQ(memcmp(destination, "zzzzzzzzzzzzzzzz", 16), 0);
    EXPECT_EQ(strncpy_s(destination, 16, "123456789012345", kWholeText), 0);
    EXPECT_STREQ(destination, "123456789012345");
}

TEST(BoundedCopy, CountLeavesOneCharacterFewerThanItSays) {
    char destination[8];
    memset(destination, 'z', sizeof destination);
    EXPECT_EQ(strncpy_s(destination, 8, "abcdef", 3), 0);
    EXPECT_EQ(memcmp(destination, "ab\0zzzzz", 8), 0);
}

TEST(BoundedCopy, CountEqualToTheLengthStillCuts) {
    char destination[8] = "";
    EXPECT_EQ(strncpy_s(destination, 8, "abcdef", 6), 0);
    EXPECT_STREQ(destination, "abcde");
    EXPECT_EQ(strncpy_s(destination, 8, "abcdef", 7), 0);
    EXPECT_STREQ(destination, "abcdef");
}

TEST(BoundedCopy, CountOfTheSizeOrMoreDoesNotCutALongText) {
    char destination[8] = "old";
    EXPECT_EQ(strncpy_s(destination, 8, "0123456789", 8), -1);
    EXPECT_EQ(strncpy_s(destination, 8, "0123456789", 9), -1);
    EXPECT_STREQ(destination, "old");
    EXPECT_EQ(strncpy_s(destination, 8, "0123456789", 7), 0);
    EXPECT_STREQ(destination, "012345");
}

TEST(BoundedCopy, CountOfZeroEmptiesAndNothingIsRefused) {
    char destination[4] = "old";
    EXPECT_EQ(strncpy_s(nullptr, 4, "a", 1), -1);
    EXPECT_EQ(strncpy_s(destination, 4, nullptr, 1), -1);
    EXPECT_EQ(strncpy_s(destination, 0, "a", 1), -1);
    EXPECT_STREQ(destination, "old");
    EXPECT_EQ(strncpy_s(destination, 4, "a", 0), 0);
    EXPECT_STREQ(destination, "");
}

TEST(TempPath, IsTmpAndItsLength) {
    char buffer[260];
    EXPECT_EQ(GetTempPath(sizeof buffer, buffer), 4U);
    EXPECT_STREQ(buffer, "/tmp");
}

TEST(TempPath, ShortSizeLeavesTheRestOfTheBuffer) {
    char buffer[16] = "abcdefgh";
    EXPECT_EQ(GetTempPath(3, buffer), 8U);
    EXPECT_STREQ(buffer, "/tmdefgh");
    EXPECT_EQ(GetTempPath(0, buffer), 8U);
    EXPECT_EQ(GetTempPath(16, nullptr), 0U);
}

TEST(TempFileName, IsATemplateThatMakesNoFile) {
    Scratch scratch;
    char name[260];
    const std::string expected = scratch.Path() + "/ravoXXX";
    EXPECT_EQ(GetTempFileName(scratch.Path().c_str(), "ravo", 0, name), expected.size());
    EXPECT_EQ(name, expected);
    EXPECT_TRUE(std::filesystem::is_empty(scratch.Path()));
}

TEST(TempFileName, PrefixThatCompletesTheTemplateLeavesNoDescriptor) {
    Scratch scratch;
    const int free = open("/dev/null", O_RDONLY);
    close(free);
    char name[260];
    EXPECT_EQ(GetTempFileName(scratch.Path().c_str(), "aXXX", 0, name), scratch.Path().size() + 8);
    EXPECT_TRUE(std::filesystem::exists(name));
    const int next = open("/dev/null", O_RDONLY);
    EXPECT_EQ(next, free);
    close(next);
}

TEST(TempFileName, NothingGivesNothing) {
    char name[8] = "old";
    EXPECT_EQ(GetTempFileName(nullptr, "a", 0, name), 0U);
    EXPECT_EQ(GetTempFileName("a", nullptr, 0, name), 0U);
    EXPECT_EQ(GetTempFileName("a", "a", 0, nullptr), 0U);
    EXPECT_STREQ(name, "old");
}

TEST(Directory, IsMadeAndReportedInAnyCase) {
    Scratch scratch;
    const std::string path = scratch.Path() + "/sub";
    EXPECT_TRUE(CreateDirectory(path.c_str(), nullptr));
    EXPECT_TRUE(std::filesystem::is_directory(path));
    EXPECT_TRUE(CreateDirectory(path.c_str(), nullptr));
    EXPECT_TRUE(CreateDirectory((scratch.Path() + "/missing/sub").c_str(), nullptr));
    EXPECT_TRUE(CreateDirectory(nullptr, nullptr));
}

TEST(Handle, ClosesOnce) {
    const int descriptor = open("/dev/null", O_RDONLY);
    EXPECT_TRUE(CloseHandle(descriptor));
    EXPECT_FALSE(CloseHandle(descriptor));
    EXPECT_FALSE(CloseHandle(-1));
}

void* AddOne(void* argument) {
    ++*static_cast<int*>(argument);
    return argument;
}

TEST(Thread, IsJoinable) {
    int count = 0;
    unsigned long thread = 0;
    ASSERT_TRUE(CreateThread(&thread, &AddOne, &count));
    CloseThread(thread);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, &count);
    EXPECT_EQ(count, 1);
}

// From here on, the system refuses to start threads.
bool RefuseThreads() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{std::size(program), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(Thread, ThatCannotBeStartedLeavesItsHandle) {
    EXPECT_EXIT(
        {
            unsigned long thread = 42;
            int count = 0;
            if (!RefuseThreads()) {
                _exit(1);
            }
            const bool started = CreateThread(&thread, &AddOne, &count);
            _exit(!started && thread == 42 && count == 0 ? 0 : 2);
        },
        testing::ExitedWithCode(0), "");
}

TEST(CriticalSection, ExcludesOtherThreads) {
    CSimpleCriticalSection section;
    int64_t count = 0;
    auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            CAutoCriticalSection guard(section);
            count = count + 1;
        }
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    EXPECT_EQ(count, 40000);
    EXPECT_EQ(section.Lock(), 0);
    EXPECT_EQ(section.Unlock(), 0);
}

TEST(CriticalSection, IsNotRecursive) {
    EXPECT_EXIT(
        {
            signal(SIGALRM, SIG_DFL);
            alarm(1);
            auto* section = new CSimpleCriticalSection;
            // Under another name, because the compiler, too, detects the mistake.
            auto* again = section;
            section->Lock();
            again->Lock();
            _exit(0);
        },
        testing::KilledBySignal(SIGALRM), "");
}

TEST(Sleep, TakesTheSubSecondPartInMicroseconds) {
    // 500 sleeps of half a millisecond; if the unit were milliseconds, they would take 250 s.
    const auto start = Clock::now();
    for (int i = 0; i < 500; ++i) {
        SleepEx(500);
    }
    const auto elapsed = Clock::now() - start;
    EXPECT_GE(elapsed, milliseconds(250));
    EXPECT_LT(elapsed, std::chrono::seconds(60));
}

TEST(Sleep, TakesWholeSecondsAsSuch) {
    const auto start = Clock::now();
    SleepEx(1200);
    EXPECT_GE(Clock::now() - start, microseconds(1000200));
}

// A timer signal every 5 ms as long as the object exists.
class SignalStorm {
  public:
    SignalStorm() : m_timer(CreateNewTimer(5, m_signal)) {}
    ~SignalStorm() { DeleteTimer(0, m_timer); }

  private:
    unsigned int m_signal = SIGUSR1;
    void* m_timer;
};

TEST(Sleep, IsNotShortenedBySignals) {
    {
        SignalStorm storm;
        auto start = Clock::now();
        SleepEx(1000);
        EXPECT_GE(Clock::now() - start, milliseconds(1000));
        start = Clock::now();
        SleepMicroseconds(300000);
        EXPECT_GE(Clock::now() - start, milliseconds(300));
    }
    SleepMicroseconds(1000); // a last tick is handled here, and not while the event is locked
    EXPECT_EQ(g_hSigUsr1Event.WaitTimeout(0), 0);
}

TEST(Sleep, MicrosecondsMayExceedASecond) {
    const auto start = Clock::now();
    SleepMicroseconds(1000001);
    EXPECT_GE(Clock::now() - start, microseconds(1000001));
}

void ExpectPeriodicTicks(unsigned int signal, CAutoResetEvent& event) {
    std::thread waiter([&] {
        BlockTimerSignals();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(event.Wait(), 0);
        }
    });
    const auto start = Clock::now();
    unsigned int timerSignal = signal;
    void* timer = CreateNewTimer(20, timerSignal);
    waiter.join();
    EXPECT_GE(Clock::now() - start, milliseconds(20));
    EXPECT_EQ(DeleteTimer(0, timer), 0);
    EXPECT_NE(DeleteTimer(0, timer), 0);
}

TEST(Timer, SetsTheFirstEventPeriodically) {
    ExpectPeriodicTicks(SIGUSR1, g_hSigUsr1Event);
}

TEST(Timer, SetsTheSecondEventPeriodically) {
    ExpectPeriodicTicks(SIGUSR2, g_hSigUsr2Event);
}

TEST(Timer, MillisecondsAreExact) {
    unsigned int signal = SIGUSR2;
    const auto start = Clock::now();
    void* timer = CreateNewTimer(1100, signal);
    CEvent* events[] = {&g_hSigUsr2Event};
    // A poll on the thread that runs the handler would deadlock on its own lock, so another thread
    // waits.
    std::thread waiter([&] {
        BlockTimerSignals();
        EXPECT_EQ(WaitForMultipleObjects(1, events, 0, 60000), 0);
    });
    waiter.join();
    EXPECT_GE(Clock::now() - start, milliseconds(1100));
    DeleteTimer(0, timer);
}

TEST(Timer, ExpiriesBeforeAWaitCollapse) {
    onSigUsr2Timer(SIGUSR2, nullptr, nullptr);
    onSigUsr2Timer(SIGUSR2, nullptr, nullptr);
    EXPECT_EQ(g_hSigUsr2Event.WaitTimeout(0), 0);
    EXPECT_EQ(g_hSigUsr2Event.WaitTimeout(0), 110);
}

TEST(Timer, RefusedSignalGivesNull) {
    unsigned int signal = 100000U;
    EXPECT_EQ(CreateNewTimer(20, signal), nullptr);
}

// The system's number of the first timer of a process is 0, and as an id that is null.
TEST(Timer, ThatWasRefusedIsNotTakenForTheHostsFirst) {
    timer_t hosts = nullptr;
    ASSERT_EQ(timer_create(CLOCK_MONOTONIC, nullptr, &hosts), 0);
    if (hosts != nullptr) {
        GTEST_SKIP() << "the process has had timers before";
    }
    rlimit none{};
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &none), 0);
    unsigned int signal = SIGUSR2;
    void* refused = CreateNewTimer(20, signal);
    EXPECT_EQ(refused, nullptr);
    EXPECT_EQ(DeleteTimer(0, refused), -1);
    itimerspec left{};
    EXPECT_EQ(timer_gettime(hosts, &left), 0);
}

TEST(Timer, ThatIsTheFirstOfItsProcessIsNotNull) {
    unsigned int signal = SIGUSR2;
    const auto start = Clock::now();
    void* timer = CreateNewTimer(20, signal);
    ASSERT_NE(timer, nullptr);
    std::thread waiter([] {
        BlockTimerSignals();
        EXPECT_EQ(g_hSigUsr2Event.Wait(), 0);
    });
    waiter.join();
    EXPECT_GE(Clock::now() - start, milliseconds(20));
    EXPECT_EQ(DeleteTimer(0, timer), 0);
}

TEST(Timer, OtherSignalsKeepTheirHandler) {
    struct sigaction before {};
    before.sa_handler = SIG_IGN;
    sigaction(SIGURG, &before, nullptr);
    unsigned int signal = SIGURG;
    void* timer = CreateNewTimer(1000, signal);
    struct sigaction after {};
    sigaction(SIGURG, nullptr, &after);
    EXPECT_EQ(after.sa_handler, SIG_IGN);
    DeleteTimer(0, timer);
}

TEST(Timer, HandlersKeepErrno) {
    errno = EPIPE;
    onSigUsr1Timer(SIGUSR1, nullptr, nullptr);
    onSigUsr2Timer(SIGUSR2, nullptr, nullptr);
    EXPECT_EQ(errno, EPIPE);
}

TEST(Timer, HandlerIsInstalledWithoutRestart) {
    TimerSetHandler(SIGUSR1, onSigUsr1Timer);
    struct sigaction action {};
    sigaction(SIGUSR1, nullptr, &action);
    EXPECT_EQ(action.sa_sigaction, &onSigUsr1Timer);
    constexpr int kBehaviour =
        SA_SIGINFO | SA_RESTART | SA_NODEFER | static_cast<int>(SA_RESETHAND);
    EXPECT_EQ(action.sa_flags & kBehaviour, SA_SIGINFO);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGUSR2), 0);
}

void HostsHandler(int /*signal*/) {}

TEST(Timer, ReleaseIgnoresLateTicksAndLeavesTheHostsHandler) {
    TimerSetHandler(SIGUSR2, onSigUsr2Timer);
    struct sigaction hosts {};
    hosts.sa_handler = HostsHandler;
    sigaction(SIGUSR1, &hosts, nullptr);
    ReleaseTimerSignals();
    struct sigaction first {};
    struct sigaction second {};
    sigaction(SIGUSR1, nullptr, &first);
    sigaction(SIGUSR2, nullptr, &second);
    EXPECT_EQ(first.sa_handler, &HostsHandler);
    EXPECT_EQ(second.sa_handler, SIG_IGN);
}

TEST(Timer, SignalsCanBeKeptFromAThread) {
    std::thread thread([] {
        BlockTimerSignals();
        sigset_t blocked;
        sigemptyset(&blocked);
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        EXPECT_EQ(sigismember(&blocked, SIGUSR1), 1);
        EXPECT_EQ(sigismember(&blocked, SIGUSR2), 1);
        EXPECT_EQ(sigismember(&blocked, SIGTERM), 0);
    });
    thread.join();
}

TEST(Instance, WorksInTheCurrentDirectory) {
    EXPECT_EQ(g_Instance.GetWorkingDirectory(), "./");
}

} // namespace
