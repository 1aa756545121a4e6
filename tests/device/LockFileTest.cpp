#include "device/Device.h"

#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr const char* kPath = "/var/lock/tarnwick.ACM7.lock";

std::string Contents() {
    std::ifstream file(kPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

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
    EXPECT_EQ(Contents(), AsBytes(getpid()));
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
    EXPECT_EQ(Contents(), AsBytes(getppid()));
    EXPECT_EQ(g_nLockFile, -1);
}

TEST_F(LockFile, OfThisProcessCannotBeTakenTwice) {
    ASSERT_TRUE(LockDevice(7));
    EXPECT_FALSE(LockDevice(7));
    EXPECT_EQ(Contents(), AsBytes(getpid()));
}

TEST_F(LockFile, OfADeadProcessIsTakenOver) {
    Write(AsBytes(DeadProcess()));
    const ptrdiff_t before = OpenDescriptors();
    EXPECT_TRUE(LockDevice(7));
    EXPECT_EQ(Contents(), AsBytes(getpid()));
    // The new lock and the stale file's handle, which stays open.
    EXPECT_EQ(OpenDescriptors(), before + 2);
}

TEST_F(LockFile, OfAProcessGroupCountsAsAlive) {
    for (const int32_t owner : {0, -1}) {
        Write(AsBytes(owner));
        EXPECT_FALSE(LockDevice(7)) << owner;
        EXPECT_EQ(Contents(), AsBytes(owner));
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
        EXPECT_EQ(Contents(), contents);
        EXPECT_EQ(OpenDescriptors(), before);
    }
}

TEST_F(LockFile, TooLongIsJudgedByItsFirstFourBytes) {
    Write(AsBytes(getppid()) + "12345678");
    EXPECT_FALSE(LockDevice(7));
    Write(AsBytes(DeadProcess()) + "12345678");
    EXPECT_TRUE(LockDevice(7));
    EXPECT_EQ(Contents(), AsBytes(getpid()));
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

TEST_F(LockFile, AnyPortNumberHasAPath) {
    EXPECT_TRUE(LockDevice(INT_MIN));
    EXPECT_STREQ(g_szLockFilePath, "/var/lock/tarnwick.ACM-2147483648.lock");
}

} // namespace
