#include "tools/emulator/Sandbox.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <set>
#include <string>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::set<std::string> EntriesOf(const fs::path& directory) {
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

TEST(Sandbox, TheTestsRunInsideOne) {
    EXPECT_TRUE(emulator::IsInSandbox());
}

TEST(Sandbox, AMarkOfAnotherNamespaceIsNotBelieved) {
    const char* mark = getenv("RAVO_SANDBOX");
    ASSERT_NE(mark, nullptr);
    const std::string own = mark;
    setenv("RAVO_SANDBOX", "mnt:[1]", 1);
    EXPECT_FALSE(emulator::IsInSandbox());
    unsetenv("RAVO_SANDBOX");
    EXPECT_FALSE(emulator::IsInSandbox());
    setenv("RAVO_SANDBOX", own.c_str(), 1);
    EXPECT_TRUE(emulator::IsInSandbox());
}

TEST(Sandbox, DevHoldsTheEssentialNodesAndNothingElse) {
    const std::set<std::string> allowed = {"null",   "zero",   "full", "random", "urandom",
                                           "tty",    "shm",    "pts",  "ptmx",   "stdin",
                                           "stdout", "stderr", "fd"};
    const std::set<std::string> present = EntriesOf("/dev");
    EXPECT_TRUE(std::includes(allowed.begin(), allowed.end(), present.begin(), present.end()));
    for (const char* needed : {"null", "zero", "urandom", "pts", "ptmx", "stdin", "fd"}) {
        EXPECT_EQ(present.count(needed), 1U) << needed;
    }
}

TEST(Sandbox, TheNodesWork) {
    std::ofstream nothing("/dev/null");
    EXPECT_TRUE(nothing << "gone" << std::flush);
    std::ifstream zeros("/dev/zero", std::ios::binary);
    EXPECT_EQ(zeros.get(), 0);
    std::ifstream entropy("/dev/urandom", std::ios::binary);
    EXPECT_NE(entropy.get(), std::ifstream::traits_type::eof());
}

TEST(Sandbox, PseudoTerminalsAreItsOwn) {
    const int control = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_NE(control, -1);
    ASSERT_EQ(grantpt(control), 0);
    ASSERT_EQ(unlockpt(control), 0);
    EXPECT_STREQ(ptsname(control), "/dev/pts/0");
    const int line = open("/dev/pts/0", O_RDWR | O_NOCTTY);
    EXPECT_NE(line, -1);
    close(line);
    close(control);
}

TEST(Sandbox, TheLockDirectoryIsEmptyAndOpenToAll) {
    EXPECT_TRUE(EntriesOf("/var/lock").empty());
    struct stat status = {};
    ASSERT_EQ(stat("/var/lock", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 01777U);
    EXPECT_TRUE(std::ofstream("/var/lock/tarnwick.ACM0.lock") << "held");
    EXPECT_TRUE(fs::remove("/var/lock/tarnwick.ACM0.lock"));
}

TEST(Sandbox, TheCalibrationDirectoryIsEmptyAndWritable) {
    EXPECT_EQ(EntriesOf("/usr/local/tarnwick"), std::set<std::string>{"ravo"});
    EXPECT_TRUE(EntriesOf("/usr/local/tarnwick/ravo").empty());
    EXPECT_TRUE(std::ofstream("/usr/local/tarnwick/ravo/RAVO_DAC1603042.txt") << "1");
    EXPECT_TRUE(fs::remove("/usr/local/tarnwick/ravo/RAVO_DAC1603042.txt"));
}

TEST(Sandbox, TheRestOfUsrLocalIsStillThere) {
    EXPECT_TRUE(fs::is_directory("/usr/local/bin"));
}

// One side of an alternating exchange between two processes.
class Turns {
  public:
    Turns() {
        EXPECT_EQ(pipe2(m_there, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(m_back, O_CLOEXEC), 0);
    }
    bool PassToChild() const { return write(m_there[1], "x", 1) == 1; }
    bool AwaitParent() const { return ReadByte(m_there[0]); }
    bool PassToParent() const { return write(m_back[1], "x", 1) == 1; }
    bool AwaitChild() {
        close(m_back[1]); // a child that died is reported
        return ReadByte(m_back[0]);
    }

  private:
    static bool ReadByte(int descriptor) {
        char byte = 0;
        return read(descriptor, &byte, 1) == 1;
    }
    int m_there[2] = {-1, -1};
    int m_back[2] = {-1, -1};
};

// A machine of its own whose lock directory is a link, as on most systems.
bool MakeMachineWithLinkedLockDirectory() {
    return unshare(CLONE_NEWNS) == 0 && mount("tmpfs", "/run", "tmpfs", MS_NOSUID, "") == 0 &&
           mount("tmpfs", "/var", "tmpfs", MS_NOSUID, "") == 0 &&
           fs::create_directory("/run/lock") && symlink("/run/lock", "/var/lock") == 0;
}

int LiveInSandbox(const Turns& turns) {
    std::string whyNot;
    if (!emulator::EnterSandbox(whyNot)) {
        return 1;
    }
    const bool isOwn =
        EntriesOf("/var/lock").empty() && bool(std::ofstream("/var/lock/own") << "1");
    if (!isOwn || !turns.PassToParent() || !turns.AwaitParent()) {
        return 2;
    }
    std::error_code busy;
    fs::remove_all("/var/lock", busy);
    const bool isStillOwn = fs::is_directory("/var/lock") && EntriesOf("/var/lock").empty() &&
                            bool(std::ofstream("/var/lock/again") << "1");
    return isStillOwn ? 0 : 3;
}

// Removes the directory to which the link points and puts another in place of the link; exits with
// the result of the process in the sandbox, or with 100 when anything of it leaked out.
int RemoveLockDirectoryUnderASandbox() {
    if (!MakeMachineWithLinkedLockDirectory()) {
        return 99;
    }
    Turns turns;
    const pid_t child = fork();
    if (child == 0) {
        _exit(LiveInSandbox(turns));
    }
    const bool isReady = turns.AwaitChild();
    bool stayedInside = fs::is_empty("/run/lock") && rmdir("/run/lock") == 0 &&
                        unlink("/var/lock") == 0 && fs::create_directory("/var/lock");
    turns.PassToChild();
    int status = 0;
    waitpid(child, &status, 0);
    stayedInside = stayedInside && fs::is_empty("/var/lock") && !fs::exists("/run/lock");
    return isReady && !stayedInside ? 100 : WEXITSTATUS(status);
}

TEST(Sandbox, KeepsItsLockDirectoryWhateverBecomesOfTheMachines) {
    EXPECT_EXIT(_exit(RemoveLockDirectoryUnderASandbox()), testing::ExitedWithCode(0), "");
}

// The result of a child that may not be root when it enters a nested sandbox.
enum Finding : int { kIsolated, kForbidden, kNoPrivilegeToDrop, kBroken };

int EnterAsNobody() {
    if (geteuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)) {
        return kNoPrivilegeToDrop;
    }
    // A process that has dropped privileges may not write its own id maps until it declares itself
    // inspectable, as a process started by an ordinary user is.
    prctl(PR_SET_DUMPABLE, 1);
    std::string whyNot;
    if (!emulator::EnterSandbox(whyNot)) {
        return whyNot.find("user namespaces") != std::string::npos ? kForbidden : kBroken;
    }
    const bool isOwn = emulator::IsInSandbox() && !fs::exists("/dev/ttyACM7") &&
                       static_cast<bool>(std::ofstream("/dev/ttyACM8") << "own") &&
                       static_cast<bool>(std::ofstream("/var/lock/own") << "own") &&
                       static_cast<bool>(std::ofstream("/usr/local/tarnwick/ravo/own") << "own");
    return isOwn ? kIsolated : kBroken;
}

TEST(Sandbox, AnOrdinaryUserGetsOneToo) {
    ASSERT_TRUE(std::ofstream("/dev/ttyACM7") << "of the outer sandbox");
    const pid_t child = fork();
    if (child == 0) {
        _exit(EnterAsNobody());
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(fs::remove("/dev/ttyACM7"));
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == kForbidden || WEXITSTATUS(status) == kNoPrivilegeToDrop) {
        GTEST_SKIP() << "This system gives ordinary users no namespaces.";
    }
    EXPECT_EQ(WEXITSTATUS(status), kIsolated);
    EXPECT_FALSE(fs::exists("/dev/ttyACM8"));
    EXPECT_FALSE(fs::exists("/var/lock/own"));
    EXPECT_FALSE(fs::exists("/usr/local/tarnwick/ravo/own"));
}

} // namespace
