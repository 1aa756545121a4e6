#include "device/SearchReport.h"

#include "device/Device.h"
#include "device/Search.h"
#include "platform/LastError.h"
#include "PseudoPort.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;

std::vector<RAVO_SEARCH_ENTRY> Entries() {
    std::vector<RAVO_SEARCH_ENTRY> entries;
    RAVO_SEARCH_ENTRY entry{};
    while (RAVOGetSearchReport(static_cast<int>(entries.size()), &entry)) {
        entries.push_back(entry);
    }
    return entries;
}

void ExpectOneEntry(int port, RAVO_FINDING finding, const std::string& text) {
    const std::vector<RAVO_SEARCH_ENTRY> entries = Entries();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].Port, port);
    EXPECT_EQ(entries[0].Finding, finding);
    EXPECT_EQ(entries[0].Text, text);
}

std::string Reason(RAVO_ERROR expected) {
    SetSearchFailure();
    char text[1024] = "";
    EXPECT_EQ(RAVOGetLastError(text, sizeof text), expected);
    return text;
}

void WriteLock(int port, int32_t owner) {
    std::ofstream file("/var/lock/tarnwick.ACM" + std::to_string(port) + ".lock", std::ios::binary);
    file.write(reinterpret_cast<const char*>(&owner), sizeof owner);
}

class SearchReport : public testing::Test {
  protected:
    void SetUp() override {
        g_nDeviceReadTimeout = 200;
        g_nDeviceWriteTimeout = 200;
    }
    void TearDown() override {
        DeviceClose();
        for (const auto& entry : fs::directory_iterator("/var/lock")) {
            fs::remove_all(entry);
        }
    }
};

TEST_F(SearchReport, NamesThePortThatIsNotThere) {
    EXPECT_FALSE(FindDevice(3));
    ExpectOneEntry(3, RAVO_FINDING_ABSENT, "/dev/ttyACM3: there is no such port");
    EXPECT_EQ(Reason(RAVO_ERROR_NOT_CONNECTED),
              "no simulator: /dev/ttyACM3: there is no such port");
}

TEST_F(SearchReport, OfAllPortsNamesOnlyThoseThatAreThere) {
    EXPECT_FALSE(FindDevice(-1));
    EXPECT_TRUE(Entries().empty());
    EXPECT_EQ(Reason(RAVO_ERROR_NOT_CONNECTED),
              "no simulator: there is no port /dev/ttyACM0 to /dev/ttyACM127");
}

TEST_F(SearchReport, SaysWhyThePortCannotBeOpened) {
    fs::create_directory("/dev/ttyACM1");
    EXPECT_FALSE(FindDevice(-1));
    fs::remove("/dev/ttyACM1");
    ExpectOneEntry(1, RAVO_FINDING_CANNOT_OPEN, "/dev/ttyACM1: cannot be opened: Is a directory");
    EXPECT_EQ(Entries()[0].SystemError, EISDIR);
    Reason(RAVO_ERROR_SYSTEM);
}

TEST_F(SearchReport, NamesTheProcessThatHoldsTheLock) {
    PseudoPort simulator;
    simulator.Plug(0);
    WriteLock(0, getppid());
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(getppid()) + "/comm"), name);
    EXPECT_FALSE(FindDevice(-1));
    const std::string text =
        "/dev/ttyACM0: held by process " + std::to_string(getppid()) + " (" + name + ")";
    ExpectOneEntry(0, RAVO_FINDING_LOCKED, text);
    EXPECT_EQ(Entries()[0].Owner, getppid());
    EXPECT_EQ(Entries()[0].OwnerName, name);
    EXPECT_EQ(Reason(RAVO_ERROR_BUSY), "no simulator: " + text);
}

// Every program chooses its name itself, and a terminal may obey what it reads there.
TEST_F(SearchReport, PassesNoControlCharacterOn) {
    PseudoPort simulator;
    simulator.Plug(0);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t owner = fork();
    if (owner == 0) {
        prctl(PR_SET_NAME, "a\033[31m\177b");
        write(ready[1], "", 1);
        pause();
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    close(ready[1]);
    WriteLock(0, owner);
    EXPECT_FALSE(FindDevice(0));
    kill(owner, SIGKILL);
    waitpid(owner, nullptr, 0);
    EXPECT_STREQ(Entries()[0].OwnerName, "a?[31m?b");
}

TEST_F(SearchReport, SaysThatALockFileNamesNobody) {
    PseudoPort simulator;
    simulator.Plug(0);
    std::ofstream("/var/lock/tarnwick.ACM0.lock") << "ab";
    EXPECT_FALSE(FindDevice(0));
    ExpectOneEntry(
        0, RAVO_FINDING_LOCK_UNREADABLE,
        "/dev/ttyACM0: its lock file in /var/lock names no process and is never removed");
    WriteLock(0, 0);
    EXPECT_FALSE(FindDevice(0));
    ExpectOneEntry(0, RAVO_FINDING_LOCKED,
                   "/dev/ttyACM0: its lock file says that it is in use, but not by whom");
}

TEST_F(SearchReport, SaysThatNobodyAnswers) {
    PseudoPort silent;
    silent.Plug(0);
    EXPECT_FALSE(FindDevice(0));
    ExpectOneEntry(0, RAVO_FINDING_NO_ANSWER, "/dev/ttyACM0: the device does not answer");
    Reason(RAVO_ERROR_SILENT);
}

TEST_F(SearchReport, SaysThatThePortTakesNothing) {
    PseudoPort full;
    full.Plug(0);
    full.Fill();
    EXPECT_FALSE(FindDevice(0));
    ExpectOneEntry(0, RAVO_FINDING_CANNOT_WRITE, "/dev/ttyACM0: it takes no bytes");
}

TEST_F(SearchReport, QuotesAForeignAnswer) {
    PseudoPort modem;
    modem.Plug(0);
    const Peer peer([&] {
        EXPECT_EQ(modem.Receive(1), "\xAA");
        modem.Send("GP\x01S");
    });
    EXPECT_FALSE(FindDevice(0));
    ExpectOneEntry(0, RAVO_FINDING_FOREIGN_ANSWER,
                   "/dev/ttyACM0: another device answers: 47 50 01 53 (\"GP.S\")");
    EXPECT_EQ(Entries()[0].AnswerSize, 4U);
    EXPECT_EQ(memcmp(Entries()[0].Answer, "GP\x01S", 5), 0);
}

TEST_F(SearchReport, EndsAndSaysSo) {
    RAVO_SEARCH_ENTRY entry{};
    EXPECT_FALSE(FindDevice(3));
    EXPECT_TRUE(RAVOGetSearchReport(0, &entry));
    EXPECT_FALSE(RAVOGetSearchReport(1, &entry));
    EXPECT_EQ(RAVOGetLastError(nullptr, 0), RAVO_ERROR_END);
    EXPECT_FALSE(RAVOGetSearchReport(-1, &entry));
    EXPECT_EQ(RAVOGetLastError(nullptr, 0), RAVO_ERROR_ARGUMENT);
    EXPECT_FALSE(RAVOGetSearchReport(0, nullptr));
    EXPECT_EQ(RAVOGetLastError(nullptr, 0), RAVO_ERROR_ARGUMENT);
}

TEST_F(SearchReport, SaysThatThePortWentAway) {
    PseudoPort simulator;
    simulator.Plug(0);
    const Peer peer([&] {
        EXPECT_EQ(simulator.Receive(1), "\xAA");
        simulator.Unplug();
    });
    EXPECT_FALSE(FindDevice(0));
    ExpectOneEntry(0, RAVO_FINDING_LOST, "/dev/ttyACM0: it disappeared while it was being asked");
}

TEST_F(SearchReport, NamesTheSimulatorAndWhetherItHasAFlashTable) {
    PseudoPort simulator;
    simulator.Plug(2);
    const Peer peer([&] {
        EXPECT_EQ(simulator.Receive(1), "\xAA");
        simulator.Send(kIdentity);
    });
    EXPECT_TRUE(FindDevice(-1));
    ExpectOneEntry(2, RAVO_FINDING_SIMULATOR, "/dev/ttyACM2: the simulator");
    NoteFlashTable(false);
    ExpectOneEntry(
        2, RAVO_FINDING_NO_FLASH_TABLE,
        "/dev/ttyACM2: a simulator that sent no flash table: taken for an older 12-bit unit");
    NoteFlashTable(true);
    ExpectOneEntry(2, RAVO_FINDING_SIMULATOR, "/dev/ttyACM2: the simulator");
    EXPECT_EQ(Reason(RAVO_ERROR_NOT_CONNECTED),
              "/dev/ttyACM2: the simulator, found too late or lost again");
}

TEST_F(SearchReport, OfSeveralPortsSummarisesTheOneThatTellsMost) {
    PseudoPort silent;
    PseudoPort held;
    silent.Plug(0);
    held.Plug(5);
    WriteLock(5, getppid());
    EXPECT_FALSE(FindDevice(-1));
    EXPECT_EQ(Entries().size(), 2U);
    const std::string held5 =
        "no simulator: /dev/ttyACM5: held by process " + std::to_string(getppid());
    EXPECT_EQ(Reason(RAVO_ERROR_BUSY).rfind(held5, 0), 0U);
}

TEST_F(SearchReport, OfASearchThatJustBeganSaysSo) {
    EXPECT_FALSE(FindDevice(3));
    ForgetSearchRounds();
    EXPECT_TRUE(Entries().empty());
    EXPECT_STREQ(LastFailure().text, "no round of a search has finished yet");
    EXPECT_EQ(Reason(RAVO_ERROR_NOT_CONNECTED), "no port could be asked in so short a time");
}

TEST_F(SearchReport, ARoundReplacesTheOneBefore) {
    EXPECT_FALSE(FindDevice(3));
    EXPECT_FALSE(FindDevice(4));
    ExpectOneEntry(4, RAVO_FINDING_ABSENT, "/dev/ttyACM4: there is no such port");
}

// ---- What only an ordinary user meets with -----------------------------------------------------

// Runs in a child as the user nobody; prints what the search of port 0 found and exits with the
// reason. Does not use the report, which is refused to a forked child.
void SearchAsNobody(const std::function<bool()>& prepare) {
    const bool isReady = prepare() && (geteuid() != 0 || seteuid(kNobody) == 0);
    if (!isReady || FindDevice(0)) {
        _exit(RAVO_ERROR_NONE);
    }
    SetSearchFailure();
    std::fprintf(stderr, "%s\n", LastFailure().text);
    _exit(LastFailure().code);
}

class SearchReportOfNobody : public SearchReport {
  protected:
    void SetUp() override {
        SearchReport::SetUp();
        m_port.Plug(0);
        ASSERT_EQ(chmod("/dev/ttyACM0", 0666), 0);
    }
    PseudoPort& Port() { return m_port; }

  private:
    PseudoPort m_port;
};

TEST_F(SearchReportOfNobody, SaysThatAnotherProgramHasThePortForItself) {
    EXPECT_EXIT(SearchAsNobody([&] { return ioctl(Port().HostSide(), TIOCEXCL) == 0; }),
                testing::ExitedWithCode(RAVO_ERROR_BUSY), "has opened it exclusively");
}

TEST_F(SearchReportOfNobody, SaysThatThePortMayNotBeOpened) {
    EXPECT_EXIT(SearchAsNobody([] { return chmod("/dev/ttyACM0", 0600) == 0; }),
                testing::ExitedWithCode(RAVO_ERROR_SYSTEM), "cannot be opened: Permission denied");
}

TEST_F(SearchReportOfNobody, SaysThatNoLockMayBeMade) {
    EXPECT_EXIT(SearchAsNobody([] { return chmod("/var/lock", 0755) == 0; }),
                testing::ExitedWithCode(RAVO_ERROR_SYSTEM),
                "cannot be made in /var/lock: Permission denied");
    chmod("/var/lock", 01777);
}

// The holder is unknown; a message that it names no process would lead its reader to delete the
// file.
TEST_F(SearchReportOfNobody, SaysThatALockMayNotBeRead) {
    const auto lockByRoot = [] {
        WriteLock(0, getppid());
        return chmod("/var/lock/tarnwick.ACM0.lock", 0600) == 0;
    };
    EXPECT_EXIT(SearchAsNobody(lockByRoot), testing::ExitedWithCode(RAVO_ERROR_SYSTEM),
                "its lock file in /var/lock cannot be read: Permission denied");
}

TEST_F(SearchReportOfNobody, SaysThatAStaleLockMayNotBeRemoved) {
    const auto staleLockOfRoot = [] {
        WriteLock(0, INT32_MIN + 1); // beyond the kernel's limit: no process
        return chmod("/var/lock/tarnwick.ACM0.lock", 0666) == 0 && chmod("/var/lock", 01777) == 0;
    };
    EXPECT_EXIT(SearchAsNobody(staleLockOfRoot), testing::ExitedWithCode(RAVO_ERROR_SYSTEM),
                "cannot be made in /var/lock: Operation not permitted");
}

TEST_F(SearchReportOfNobody, SaysThatTheLockDirectoryIsMissing) {
    const auto coverVar = [] {
        return unshare(CLONE_NEWNS) == 0 &&
               mount("tmpfs", "/var", "tmpfs", MS_NOSUID, "mode=0755") == 0;
    };
    EXPECT_EXIT(SearchAsNobody(coverVar), testing::ExitedWithCode(RAVO_ERROR_SYSTEM),
                "the lock directory /var/lock is missing");
}

} // namespace
