#include "CommandLine.h"
#include "DoctorFixture.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The number of a process that has ended and was not given to another one yet.
pid_t DeadProcess() {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
    return child;
}

} // namespace

TEST_F(DoctorTest, LockOfALivingOwner) {
    ::prctl(PR_SET_NAME, "holder");
    WriteFile(kLock, OwnerBytes(::getpid()));
    const std::string id = std::to_string(::getpid());
    ExpectLockInTheWay("failed   /dev/ttyACM0 lock: /var/lock/tarnwick.ACM0.lock belongs to "
                       "holder (process " +
                       id + ")\n           End it: kill " + id +
                       "\n           If it has nothing to do with the simulator, its number was "
                       "once that of a program that crashed: sudo rm "
                       "/var/lock/tarnwick.ACM0.lock\n");
}

TEST_F(DoctorTest, LockOfADeadOwner) {
    const pid_t dead = DeadProcess();
    WriteFile(kLock, OwnerBytes(dead));
    emulator::Simulator simulator(Unit());
    const Result result = Doctor();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 lock"),
              "warning  /dev/ttyACM0 lock: /var/lock/tarnwick.ACM0.lock was left by process " +
                  std::to_string(dead) +
                  ", which has ended\n           Nothing to do: the library takes it over.\n");
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer").rfind("ok       ", 0), 0U) << result.out;
    ExpectNothingLeft(simulator);
}

TEST_F(DoctorTest, LockThatIsShort) {
    WriteFile(kLock, "12");
    ExpectLockInTheWay("failed   /dev/ttyACM0 lock: /var/lock/tarnwick.ACM0.lock holds 2 of the 4 "
                       "bytes of a process number\n           The library never removes such a "
                       "file: sudo rm /var/lock/tarnwick.ACM0.lock\n");
}

TEST_F(DoctorTest, LockThatIsEmpty) {
    WriteFile(kLock, "");
    ExpectLockInTheWay("failed   /dev/ttyACM0 lock: /var/lock/tarnwick.ACM0.lock holds 0 of the 4 "
                       "bytes of a process number\n           The library never removes such a "
                       "file: sudo rm /var/lock/tarnwick.ACM0.lock\n");
}

TEST_F(DoctorTest, LockThatNamesNoProcess) {
    WriteFile(kLock, OwnerBytes(0));
    ExpectLockInTheWay("failed   /dev/ttyACM0 lock: /var/lock/tarnwick.ACM0.lock names no process: "
                       "0\n           The library treats its owner as alive and never removes it: "
                       "sudo rm /var/lock/tarnwick.ACM0.lock\n");
}

TEST_F(DoctorTest, LockThatCannotBeRead) {
    fs::create_directory(kLock);
    ExpectLockInTheWay(
        "failed   /dev/ttyACM0 lock: /var/lock/tarnwick.ACM0.lock may not be read: Is a directory\n"
        "           See who holds the port: sudo ravo doctor\n"
        "           If no program does, the library still never removes this file: sudo rm "
        "/var/lock/tarnwick.ACM0.lock\n");
}

TEST_F(DoctorTest, LockOfAnotherUser) {
    emulator::Simulator simulator(Unit());
    ::chmod("/dev/ttyACM0", 0666);
    WriteFile(kLock, OwnerBytes(::getpid()));
    ASSERT_EQ(::chmod(kLock, 0), 0);
    const Result result = RavoAsOrdinaryUser({"doctor"});
    if (result.status == 126) {
        GTEST_SKIP() << "other users may not run what was built here";
    }
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 lock")
                  .rfind("failed   /dev/ttyACM0 lock: /var/lock/tarnwick.ACM0.lock may not be "
                         "read: Permission denied\n",
                         0),
              0U)
        << result.out;
    EXPECT_EQ(simulator.Seen().Count().hostOpenings, 0U);
}

TEST_F(DoctorTest, LockDirectoryThatMayNotBeWritten) {
    emulator::Simulator simulator(Unit());
    ::chmod("/dev/ttyACM0", 0666);
    ASSERT_EQ(::chmod("/var/lock", 0555), 0);
    const Result result = RavoAsOrdinaryUser({"doctor"});
    if (result.status == 126) {
        GTEST_SKIP() << "other users may not run what was built here";
    }
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_EQ(Lines(result, "lock directory"),
              "failed   lock directory: /var/lock may not be written: Permission denied\n"
              "           Let every user write there, as is usual: sudo chmod 1777 /var/lock\n");
    EXPECT_EQ(simulator.Seen().Count().hostOpenings, 0U);
}
