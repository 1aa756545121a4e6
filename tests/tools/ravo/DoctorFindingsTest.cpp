// The doctor's checks applied to machines that the sandbox cannot imitate: directories stand for
// them.
#include "CommandLine.h"

#include "lab/machine/CalibrationFile.h"
#include "lab/machine/Locks.h"
#include "lab/machine/Modem.h"
#include "lab/machine/Ports.h"
#include "lab/machine/Processes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using lab::Finding;
using lab::Machine;
using lab::State;

namespace {

namespace fs = std::filesystem;

// A user to whom permissions apply, as long as the object exists.
class OrdinaryUser {
  public:
    OrdinaryUser() : m_isOne(!m_isRoot || ::seteuid(kNobody) == 0) {}
    ~OrdinaryUser() {
        if (m_isRoot && ::seteuid(0) != 0) {
            std::abort();
        }
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

    // Not where a root with few privileges knows no other user.
    bool IsOne() const { return m_isOne; }

    static constexpr uid_t kNobody = 65534;
    static constexpr const char* kNone = "there is no user whom permissions bind";

  private:
    const bool m_isRoot = ::geteuid() == 0;
    const bool m_isOne;
};

class DoctorFindingsTest : public testing::Test {
  protected:
    DoctorFindingsTest() {
        m_machine.devices = Make("dev");
        m_machine.locks = Make("lock");
        m_machine.processes = Make("proc");
        m_machine.system = Make("sys");
        m_machine.udevData = Make("udev");
        m_machine.udevRules = {Make("etc/rules.d"), Make("usr/rules.d")};
        m_machine.patience = 0ms;
    }

    std::string Make(const std::string& directory) const {
        fs::create_directories(m_directory / directory);
        return m_directory / directory;
    }

    // A port with the device number 1:3.
    std::string AddPort(const std::string& name = "ttyACM0") const {
        fs::create_symlink("/dev/null", m_directory / ("dev/" + name));
        return m_directory / ("dev/" + name);
    }

    void AddProcess(const std::string& id, const std::string& name,
                    const std::string& opened = "/dev/zero") const {
        m_directory.Write("proc/" + id + "/comm", name + "\n");
        m_directory.Write("proc/" + id + "/cmdline", "/usr/bin/" + name + '\0');
        Make("proc/" + id + "/fd");
        fs::create_symlink(opened, m_directory / ("proc/" + id + "/fd/3"));
    }

    Scratch m_directory;
    Machine m_machine;
};

constexpr const char* kNoRule =
    "Install the udev rule 70-ravo.rules, which gives the port to the user at the machine's "
    "own screen and keeps modem probing away from it; then plug the simulator in again.";

} // namespace

// ---- Ports --------------------------------------------------------------------------------------

TEST_F(DoctorFindingsTest, PortsAreThoseThatTheLibrarySearches) {
    for (const char* name :
         {"ttyACM10", "ttyACM127", "ttyACM128", "ttyACM2", "ttyACM", "ttyACMx", "ttyUSB0"}) {
        AddPort(name);
    }
    EXPECT_EQ(lab::PortsPresent(m_machine, std::nullopt), (std::vector<int>{2, 10, 127}));
    EXPECT_EQ(lab::PortsPresent(m_machine, 10), std::vector<int>{10});
    EXPECT_EQ(lab::PortsPresent(m_machine, 3), std::vector<int>{});
}

TEST_F(DoctorFindingsTest, MissingDriverIsNamed) {
    EXPECT_NE(lab::CheckPorts(m_machine, std::nullopt).cure.find("sudo modprobe cdc_acm"),
              std::string::npos);
    Make("sys/bus/usb/drivers/cdc_acm");
    EXPECT_EQ(
        lab::CheckPorts(m_machine, std::nullopt).cure,
        "Plug the simulator in and switch it on.\n"
        "If it is plugged in, try another cable or USB port; `dmesg` shows whether it arrives.\n"
        "Without a simulator, run ravo under ravo-emulator.");
}

TEST_F(DoctorFindingsTest, FileInPlaceOfADevice) {
    const std::string path = m_directory.Write("dev/ttyACM0", "01");
    const Finding finding = lab::CheckPermission(m_machine, path);
    EXPECT_EQ(finding.state, State::kFailed);
    EXPECT_EQ(finding.code, "not-a-device");
    EXPECT_EQ(finding.cure, "Delete it (sudo rm " + path + ") and plug the simulator in again.");
}

TEST_F(DoctorFindingsTest, NameThatLeadsNowhere) {
    const std::string path = m_directory / "dev/ttyACM0";
    fs::create_symlink("/dev/nothing-of-this-name", path);
    EXPECT_EQ(lab::PortsPresent(m_machine, std::nullopt), std::vector<int>{0});
    const Finding finding = lab::CheckPermission(m_machine, path);
    EXPECT_EQ(finding.state, State::kFailed);
    EXPECT_EQ(finding.code, "no-device");
    EXPECT_EQ(finding.sentence, "leads nowhere: No such file or directory");
}

// The node comes first, its permission a moment later.
TEST_F(DoctorFindingsTest, PermissionThatLagsTheNode) {
    const std::string path = m_directory.Write("dev/ttyACM0", "");
    ASSERT_EQ(::chmod(m_directory.Path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    const uid_t owner = ::geteuid() == 0 ? OrdinaryUser::kNobody : ::geteuid();
    if (::chown(path.c_str(), owner, static_cast<gid_t>(-1)) != 0) {
        GTEST_SKIP() << OrdinaryUser::kNone;
    }
    const OrdinaryUser user;
    EXPECT_EQ(lab::CheckPermission(m_machine, path).code, "permission-denied");

    m_machine.patience = 60s;
    std::thread udev([&] {
        std::this_thread::sleep_for(100ms);
        ::chmod(path.c_str(), 0600);
    });
    EXPECT_EQ(lab::CheckPermission(m_machine, path).code, "not-a-device"); // so it may be used
    udev.join();
}

TEST_F(DoctorFindingsTest, GroupIsJoinedByNameOrNumber) {
    const lab::User user{"ada", {100}, {100}};
    EXPECT_EQ(
        lab::PermissionCure(m_machine, user, 4000000000U, 0660),
        std::string("Join the group and log in again: sudo usermod -aG 4000000000 ada\nOr: ") +
            kNoRule);
}

TEST_F(DoctorFindingsTest, GroupThatThisLoginHasNotTakenYet) {
    const lab::User user{"ada", {100, 4000000000U}, {100}};
    EXPECT_EQ(lab::PermissionCure(m_machine, user, 4000000000U, 0660),
              "ada is in the group 4000000000, but not yet in this login: log out and in again.");
}

TEST_F(DoctorFindingsTest, GroupsThatAreNoCure) {
    const lab::User user{"ada", {100}, {100}};
    EXPECT_EQ(lab::PermissionCure(m_machine, user, 0, 0660), kNoRule);
    EXPECT_EQ(lab::PermissionCure(m_machine, user, 20, 0640), kNoRule);
    EXPECT_EQ(lab::PermissionCure(m_machine, user, 20, 0600), kNoRule);
}

TEST_F(DoctorFindingsTest, RuleThatIsInstalledHasToBeApplied) {
    const std::string rule = m_directory.Write("usr/rules.d/70-ravo.rules", "");
    EXPECT_EQ(lab::RuleCure(m_machine),
              rule + " gives the port to the user at the machine's own screen and keeps "
                     "modem probing away from it: plug the simulator in again.");
}

TEST_F(DoctorFindingsTest, UserIsKnown) {
    const lab::User user = lab::CurrentUser();
    EXPECT_FALSE(user.name.empty());
    EXPECT_NE(std::find(user.taken.begin(), user.taken.end(), ::getegid()), user.taken.end());
    EXPECT_FALSE(user.given.empty());
}

// ---- Other programs -----------------------------------------------------------------------------

TEST_F(DoctorFindingsTest, HoldersAreNamed) {
    const std::string path = AddPort();
    AddProcess("41", "minicom", "/dev/null");
    AddProcess("42", "bash");
    AddProcess("43", "screen", "/dev/null");
    Make("proc/self");
    const Finding finding = lab::CheckUse(m_machine, path);
    EXPECT_EQ(finding.state, State::kFailed);
    EXPECT_EQ(finding.code, "held");
    EXPECT_TRUE(finding.sentence == "held by minicom (process 41), screen (process 43)" ||
                finding.sentence == "held by screen (process 43), minicom (process 41)")
        << finding.sentence;
    EXPECT_TRUE(finding.cure == "End it, or make it release the port: kill 41 43" ||
                finding.cure == "End it, or make it release the port: kill 43 41")
        << finding.cure;
}

TEST_F(DoctorFindingsTest, ModemManagerIsWaitedFor) {
    const std::string path = AddPort();
    AddProcess("41", "ModemManager", "/dev/null");
    EXPECT_EQ(
        lab::CheckUse(m_machine, path).cure,
        "It probes new ports for up to 20 seconds: wait, and see the finding about modem probing.");
}

TEST_F(DoctorFindingsTest, HolderThatPassesIsNone) {
    const std::string path = AddPort();
    AddProcess("41", "udevadm", "/dev/null");
    EXPECT_EQ(lab::CheckUse(m_machine, path).code, "held");
    m_machine.patience = 60s;
    std::thread holder([&] {
        std::this_thread::sleep_for(100ms);
        fs::remove(m_directory / "proc/41/fd/3");
    });
    EXPECT_EQ(lab::CheckUse(m_machine, path).code, "free");
    holder.join();
}

// A program that is being started shares the files of the one that starts it.
TEST_F(DoctorFindingsTest, OwnChildIsNoOtherHolder) {
    const std::string path = AddPort();
    AddProcess("41", "ravo", "/dev/null");
    m_directory.Write("proc/41/status",
                      "Name:\travo\nPPid:\t" + std::to_string(::getpid()) + "\nTracerPid:\t0\n");
    EXPECT_EQ(lab::CheckUse(m_machine, path).code, "free");
    AddProcess("42", "ravo", "/dev/null");
    m_directory.Write("proc/42/status", "Name:\travo\nPPid:\t1\n");
    EXPECT_EQ(lab::CheckUse(m_machine, path).sentence, "held by ravo (process 42)");
}

TEST_F(DoctorFindingsTest, ProgramsThatMayNotBeLookedAtAreCounted) {
    const std::string path = AddPort();
    AddProcess("41", "secret", "/dev/null");
    AddProcess("42", "kthreadd");
    m_directory.Write("proc/42/cmdline", "");
    ASSERT_EQ(::chmod((m_directory / "proc/41/fd").c_str(), 0), 0);
    ASSERT_EQ(::chmod((m_directory / "proc/42/fd").c_str(), 0), 0);
    ASSERT_EQ(::chmod(m_directory.Path().c_str(), 0755), 0);
    {
        const OrdinaryUser user;
        if (!user.IsOne()) {
            GTEST_SKIP() << OrdinaryUser::kNone;
        }
        const Finding finding = lab::CheckUse(m_machine, path);
        EXPECT_EQ(finding.state, State::kOk);
        EXPECT_EQ(finding.sentence,
                  "no program holds it; 1 processes of other users could not be inspected");
    }
    ASSERT_EQ(::chmod((m_directory / "proc/41/fd").c_str(), 0700), 0);
    ASSERT_EQ(::chmod((m_directory / "proc/42/fd").c_str(), 0700), 0);
}

TEST_F(DoctorFindingsTest, ProcessesThatCannotBeListed) {
    m_machine.processes = m_directory / "no";
    const Finding finding = lab::CheckUse(m_machine, AddPort());
    EXPECT_EQ(finding.state, State::kWarning);
    EXPECT_EQ(finding.sentence, m_directory / "no" + " cannot be read: No such file or directory");
}

// Every mount of pseudo-terminals has a number 0 of its own.
TEST_F(DoctorFindingsTest, PseudoTerminalOfAnotherMountIsAnotherOne) {
    const int control = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_NE(control, -1);
    ASSERT_EQ(::unlockpt(control), 0);
    char name[64] = {};
    ASSERT_EQ(::ptsname_r(control, name, sizeof name), 0);
    struct stat terminal {};
    ASSERT_EQ(::stat(name, &terminal), 0);
    const std::string twin = m_directory / "twin";
    if (::mknod(twin.c_str(), S_IFCHR | 0600, terminal.st_rdev) != 0) {
        ::close(control);
        GTEST_SKIP() << "devices cannot be made here";
    }
    AddProcess("41", "sh", twin);
    EXPECT_EQ(lab::CheckUse(m_machine, name).code, "free");
    AddProcess("42", "sh", name);
    EXPECT_EQ(lab::CheckUse(m_machine, name).sentence, "held by sh (process 42)");
    ::close(control);
}

// ---- Modem probing ------------------------------------------------------------------------------

TEST_F(DoctorFindingsTest, NoModemManager) {
    AddProcess("41", "NetworkManager");
    const Finding finding = lab::CheckModemProbing(m_machine, AddPort());
    EXPECT_EQ(finding.state, State::kOk);
    EXPECT_EQ(finding.code, "none");
}

TEST_F(DoctorFindingsTest, ModemManagerThatWasNotTold) {
    AddProcess("41", "ModemManager");
    m_directory.Write("udev/c1:3", "S:serial/by-id/x\nE:ID_MM_DEVICE_IGNORE=0\n");
    const Finding finding = lab::CheckModemProbing(m_machine, AddPort());
    EXPECT_EQ(finding.state, State::kWarning);
    EXPECT_EQ(finding.code, "probing");
    EXPECT_EQ(finding.sentence,
              "ModemManager (process 41) was not told to leave the port alone, and may hold it for "
              "20 seconds after it has appeared");
    EXPECT_EQ(finding.cure, kNoRule);
}

TEST_F(DoctorFindingsTest, ModemManagerThatWasToldAtThePort) {
    AddProcess("41", "ModemManager");
    const std::string path = AddPort();
    for (const char* mark : {"ID_MM_DEVICE_IGNORE", "ID_MM_PORT_IGNORE"}) {
        m_directory.Write("udev/c1:3", std::string("G:uaccess\nE:") + mark + "=1\n");
        const Finding finding = lab::CheckModemProbing(m_machine, path);
        EXPECT_EQ(finding.state, State::kOk);
        EXPECT_EQ(finding.code, "ignored");
    }
}

TEST_F(DoctorFindingsTest, ModemManagerThatWasToldAtTheUsbDevice) {
    AddProcess("41", "ModemManager");
    const std::string path = AddPort();
    m_directory.Write("sys/devices/usb1/dev", "189:7\n");
    Make("sys/devices/usb1/interface");
    Make("sys/dev/char/1:3");
    fs::create_symlink(m_directory / "sys/devices/usb1/interface",
                       m_directory / "sys/dev/char/1:3/device");
    EXPECT_EQ(lab::CheckModemProbing(m_machine, path).code, "probing");
    m_directory.Write("udev/c189:7", "E:ID_MM_DEVICE_IGNORE=1\n");
    EXPECT_EQ(lab::CheckModemProbing(m_machine, path).code, "ignored");
}

// ---- Locks --------------------------------------------------------------------------------------

TEST_F(DoctorFindingsTest, LockDirectoryThatIsMissing) {
    m_machine.locks = m_directory / "no";
    const Finding finding = lab::CheckLockDirectory(m_machine);
    EXPECT_EQ(finding.state, State::kFailed);
    EXPECT_EQ(finding.code, "lock-directory-missing");
    EXPECT_EQ(finding.sentence, m_machine.locks + " is not a directory");
    EXPECT_EQ(finding.cure,
              "Create it: sudo mkdir -m 1777 -p $(realpath -m " + m_machine.locks + ")");
}

TEST_F(DoctorFindingsTest, LockIsTakenAsTheLibraryTakesIt) {
    const std::string path = m_directory / "lock/tarnwick.ACM5.lock";
    {
        const lab::PortLock lock(m_machine, 5);
        EXPECT_TRUE(lock.IsTaken());
        const int32_t me = ::getpid();
        EXPECT_EQ(ReadFile(path), std::string(reinterpret_cast<const char*>(&me), sizeof me));
        struct stat file {};
        ASSERT_EQ(::stat(path.c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 07777U, 0600U);
        EXPECT_FALSE(lab::PortLock(m_machine, 5).IsTaken());
        EXPECT_TRUE(fs::exists(path));
    }
    EXPECT_FALSE(fs::exists(path));
}

// ---- Calibration --------------------------------------------------------------------------------

namespace {

// 4096 correct lines, except that line `number` (from 1) reads `line`.
std::string CalibrationWith(int number, const std::string& line) {
    std::string content;
    for (int at = 1; at <= 4096; ++at) {
        content += at == number ? line : "1.5, -2,0.25 1e-3,,0 0 0 -.5\n";
    }
    return content;
}

} // namespace

TEST_F(DoctorFindingsTest, ShapesOfACalibrationFile) {
    const std::vector<std::pair<std::string, std::string>> expected = {
        {CalibrationWith(0, ""), ""},
        {CalibrationWith(3, " 1 2 3 4 5 6 7 8 \r\n"), ""},
        {CalibrationWith(4096, "1 2 3 4 5 6 7 8"), ""},
        {"", "ends after line 0"},
        {CalibrationWith(9, ""), "ends after line 4095"},
        {CalibrationWith(9, "0 0 0 0 0 0 0 0\n0 0 0 0 0 0 0 0\n"), "goes on after line 4096"},
        {CalibrationWith(9, "\n"), "line 9 holds 0 numbers"},
        {CalibrationWith(9, "1 2 3 4 5 6 7\n"), "line 9 holds 7 numbers"},
        {CalibrationWith(9, "1 2 3 4 5 6 7 8 9\n"), "line 9 holds 9 numbers"},
        {CalibrationWith(1, "1 2 3 x4 5 6 7 8\n"), "line 1 \"x4\" is not a number"},
        {CalibrationWith(1, "1 2 3 4x 5 6 7 8\n"), "line 1 \"4x\" is not a number"},
        {CalibrationWith(1, "1\t2 3 4 5 6 7 8\n"), "line 1 \"1?2\" is not a number"},
        {CalibrationWith(1, "1;2;3;4;5;6;7;8\n"), "line 1 \"1;2;3;4;5;6;7;8\" is not a number"},
        {CalibrationWith(2, "1 2 3 nan 5 6 7 8\n"), "line 2 \"nan\" is not a number"},
        {CalibrationWith(2, "1 2 3 4 5 6 7 8" + std::string(239, ' ') + "\n"), ""},
        {CalibrationWith(2, "1 2 3 4 5 6 7 8" + std::string(240, ' ') + "\n"),
         "line 2 is longer than 254 characters"},
    };
    for (const auto& [content, fault] : expected) {
        EXPECT_EQ(lab::WrongShape(m_directory.Write("RAVO_DAC.txt", content)), fault);
    }
}

TEST_F(DoctorFindingsTest, CalibrationThatMayNotBeRead) {
    const std::string file = m_directory.Write("RAVO_DAC.txt", CalibrationWith(0, ""));
    EXPECT_EQ(lab::CheckCalibration(12, file).code, "loaded");
    ASSERT_EQ(::chmod(m_directory.Path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(file.c_str(), 0), 0);
    const OrdinaryUser user;
    if (!user.IsOne()) {
        GTEST_SKIP() << OrdinaryUser::kNone;
    }
    const Finding finding = lab::CheckCalibration(12, file);
    EXPECT_EQ(finding.state, State::kFailed);
    EXPECT_EQ(finding.code, "calibration-unreadable");
    EXPECT_EQ(finding.sentence, file + " cannot be read: Permission denied");
}
