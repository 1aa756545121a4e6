#include "device/Device.h"
#include "tests/support/Files.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr const char* kPath = "/var/lock/tarnwick.ACM7.lock";

std::string AsBytes(int32_t owner) {
    std::string bytes(sizeof owner, '\0');
    memcpy(bytes.data(), &owner, sizeof owner);
    return bytes;
}

void Write(const std::string& contents) {
    std::ofstream(kPath, std::ios::binary) << contents;
}

int32_t DeadProcess() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    return child;
}

ptrdiff_t OpenDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

class LockFile : public testing::Test {
  protected:
    void TearDown() override {
        UnlockDevice();
        fs::remove_all(kPath);
    }
};

TEST_F(LockFile, HoldsTheProcessIdInFourBytesForItsOwnerOnly) {
    umask(0);
    ASSERT_TRUE(LockDevice(7));
    EXPECT_EQ(ReadFile(kPath), AsBytes(getpid()));
    EXPECT_STREQ(g_szLockFilePath, kPath);
    struct stat information {};
    ASSERT_EQ(fstat(g_nLockFile, &information), 0);
    EXPECT_EQ(information.st_mode, static_cast<mode_t>(S_IFREG | 0600));
    EXPECT_EQ(fcntl(g_nLockFile, F_GETFD), FD_CLOEXEC);
}

TEST_F(LockFile, ReleaseClosesAndDeletes) {
    ASSERT_TRUE(LockDevice(7));
    const int descriptor = g_nLockFile;
    UnlockDevice();
    EXPECT_EQ(g_nLockFile, -1);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    EXPECT_FALSE(fs::exists(kPath));
    EXPECT_EQ(std::string(g_szLockFilePath, sizeof g_szLockFilePath), std::string(128, '\0'));
    UnlockDevice();
    EXPECT_TRUE(LockDevice(7));
}

TEST_F(LockFile, OfALiveProcessStays) {
    Write(AsBytes(getppid()));
    EXPECT_FALSE(LockDevice(7));
    EXPECT_EQ(ReadFile(kPath), AsBytes(getppid()));
    EXPECT_EQ(g_nLockFile, -1);
}

TEST_F(LockFile, OfThisProcessCannotBeTakenTwice) {
    ASSERT_TRUE(LockDevice(7));
    EXPECT_FALSE(LockDevice(7));
    EXPECT_EQ(ReadFile(kPath), AsBytes(getpid()));
}

TEST_F(LockFile, OfADeadProcessIsTakenOver) {
    Write(AsBytes(DeadProcess()));
    const ptrdiff_t before = OpenDescriptors();
    EXPECT_TRUE(LockDevice(7));
    EXPECT_EQ(ReadFile(kPath), AsBytes(getpid()));
    EXPECT_EQ(OpenDescriptors(), before + 1);
}

TEST_F(LockFile, OfAProcessGroupCountsAsAlive) {
    for (const int32_t owner : {0, -1}) {
        Write(AsBytes(owner));
        EXPECT_FALSE(LockDevice(7)) << owner;
        EXPECT_EQ(ReadFile(kPath), AsBytes(owner));
    }
}

TEST_F(LockFile, OfAnImpossibleProcessIsTakenOver) {
    // No process group can have this number, far beyond the kernel's limit.
    Write(AsBytes(INT32_MIN + 1));
    EXPECT_TRUE(LockDevice(7));
}

TEST_F(LockFile, OfAProcessWeMayNotSignalCountsAsStale) {
    const bool mayNotSignal = kill(1, 0) != 0;
    Write(AsBytes(1));
    EXPECT_EQ(LockDevice(7), mayNotSignal);
}

TEST_F(LockFile, TooShortStaysForGood) {
    for (const std::string& contents : {std::string(), std::string("ab"), std::string("abc")}) {
        Write(contents);
        const ptrdiff_t before = OpenDescriptors();
        EXPECT_FALSE(LockDevice(7));
        EXPECT_EQ(ReadFile(kPath), contents);
        EXPECT_EQ(OpenDescriptors(), before);
    }
}

TEST_F(LockFile, TooLongIsJudgedByItsFirstFourBytes) {
    Write(AsBytes(getppid()) + "12345678");
    EXPECT_FALSE(LockDevice(7));
    Write(AsBytes(DeadProcess()) + "12345678");
    EXPECT_TRUE(LockDevice(7));
    EXPECT_EQ(ReadFile(kPath), AsBytes(getpid()));
}

TEST_F(LockFile, ThatIsNoFileRefusesWithoutHanging) {
    ASSERT_EQ(mkfifo(kPath, 0600), 0);
    EXPECT_FALSE(LockDevice(7));
    EXPECT_TRUE(fs::is_fifo(kPath));
    fs::remove(kPath);

    fs::create_directory(kPath);
    EXPECT_FALSE(LockDevice(7));
    EXPECT_TRUE(fs::is_directory(kPath));
    fs::remove(kPath);

    fs::create_symlink("/nowhere/at/all", kPath);
    EXPECT_FALSE(LockDevice(7));
    EXPECT_TRUE(fs::is_symlink(kPath));
}

TEST_F(LockFile, ThatCannotBeWrittenIsDeleted) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit tooSmall = before;
    tooSmall.rlim_cur = 2;
    setrlimit(RLIMIT_FSIZE, &tooSmall);
    const bool locked = LockDevice(7);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_FALSE(locked);
    EXPECT_FALSE(fs::exists(kPath));
    EXPECT_EQ(g_nLockFile, -1);
}

// The action of another process between two of our system calls, as often as it likes.
TEST_F(LockFile, OfTheOneThatCameFirstSurvivesTheReleaseOfALateOne) {
    ASSERT_TRUE(LockDevice(7));
    fs::remove(kPath);
    Write(AsBytes(getppid()));
    UnlockDevice();
    EXPECT_EQ(ReadFile(kPath), AsBytes(getppid()));
}

TEST_F(LockFile, IsNotFollowedWhereItIsALink) {
    constexpr const char* kVictim = "/var/lock/victim";
    std::ofstream(kVictim, std::ios::binary) << AsBytes(DeadProcess());
    fs::create_symlink(kVictim, kPath);
    EXPECT_EQ(TryLockDevice(7).outcome, LockOutcome::kUnreadable);
    EXPECT_TRUE(fs::is_symlink(kPath));
    EXPECT_TRUE(fs::exists(kVictim));
    fs::remove(kVictim);
}

// Each process takes the lock over from a dead owner and holds it until all have tried; the one
// that gets it reports so through the pipe.
TEST_F(LockFile, OfADeadProcessIsTakenOverByOneOfMany) {
    constexpr int kRounds = 300;
    constexpr int kHosts = 4;
    for (int round = 0; round < kRounds; ++round) {
        Write(AsBytes(DeadProcess()));
        int start[2] = {};
        int taken[2] = {};
        int end[2] = {};
        ASSERT_TRUE(pipe(start) == 0 && pipe(taken) == 0 && pipe(end) == 0);
        pid_t hosts[kHosts] = {};
        for (pid_t& host : hosts) {
            host = fork();
            if (host == 0) {
                close(start[1]);
                close(end[1]);
                char byte = 0;
                while (read(start[0], &byte, 1) > 0) {
                }
                const char isTaken = LockDevice(7) ? 'T' : 'F';
                const bool isSaid = write(taken[1], &isTaken, 1) == 1;
                while (read(end[0], &byte, 1) > 0) {
                }
                _exit(isSaid ? 0 : 1);
            }
        }
        close(start[1]);
        std::string answers(kHosts, '?');
        for (char& answer : answers) {
            EXPECT_EQ(read(taken[0], &answer, 1), 1);
        }
        close(end[1]);
        for (const pid_t host : hosts) {
            waitpid(host, nullptr, 0);
        }
        for (const int descriptor : {start[0], taken[0], taken[1], end[0]}) {
            close(descriptor);
        }
        ASSERT_LE(std::count(answers.begin(), answers.end(), 'T'), 1) << "round " << round;
        fs::remove(kPath);
    }
}

TEST_F(LockFile, AnyPortNumberHasAPath) {
    EXPECT_TRUE(LockDevice(INT_MIN));
    EXPECT_STREQ(g_szLockFilePath, "/var/lock/tarnwick.ACM-2147483648.lock");
}

} // namespace
