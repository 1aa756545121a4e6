// Obstacles that another user of the machine can create: they may prevent the use of the port, but
// must neither hang the library nor make it write or remove anything that is not its own.
#include "device/Calibration.h"
#include "device/Device.h"
#include "device/Protocol.h"
#include "device/Search.h"
#include "PseudoPort.h"
#include "ravo/search.h"
#include "tests/support/Files.h"

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr const char* kLock = "/var/lock/tarnwick.ACM0.lock";
constexpr const char* kVictim = "/var/lock/victim";
constexpr const char* kCalibration = "/usr/local/tarnwick/ravo/RAVO_DAC05-170256.txt";
constexpr int32_t kNobodysProcess = INT32_MIN + 1; // beyond the kernel's limit

std::string AsBytes(int32_t number) {
    std::string bytes(sizeof number, '\0');
    memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

void Write(const char* path, const std::string& contents) {
    std::ofstream(path, std::ios::binary) << contents;
}

// ---- In the lock directory ---------------------------------------------------------------------

struct Plant {
    const char* name;
    std::function<bool()> put; // at kLock; kVictim is a file that must stay as it is
};

class HostilePort : public testing::Test {
  protected:
    void SetUp() override {
        m_port.Plug(0);
        g_nDeviceReadTimeout = 200;
        g_nDeviceWriteTimeout = 200;
        Write(kVictim, AsBytes(kNobodysProcess) + "mine");
    }
    void TearDown() override {
        DeviceClose();
        fs::remove_all(kLock);
        fs::remove(kVictim);
    }
    const PseudoPort& Port() const { return m_port; }

  private:
    PseudoPort m_port;
};

class HostileLock : public HostilePort, public testing::WithParamInterface<Plant> {};

const Plant kPlants[] = {
    {"LinkToAFile", [] { return symlink(kVictim, kLock) == 0; }},
    {"LinkToItself", [] { return symlink(kLock, kLock) == 0; }},
    {"LinkToADevice", [] { return symlink("/dev/zero", kLock) == 0; }},
    {"Fifo", [] { return mkfifo(kLock, 0666) == 0; }},
    {"Directory", [] { return fs::create_directories(std::string(kLock) + "/full"); }},
    {"Empty", [] { return (Write(kLock, ""), true); }},
    {"ProcessOfSomebodyElse", [] { return (Write(kLock, AsBytes(getppid())), true); }},
    {"AllProcesses", [] { return (Write(kLock, AsBytes(-1)), true); }},
};

INSTANTIATE_TEST_SUITE_P(Plants, HostileLock, testing::ValuesIn(kPlants),
                         [](const auto& plant) { return plant.param.name; });

TEST_P(HostileLock, KeepsThePortFromBeingUsedAndDoesNoMore) {
    ASSERT_TRUE(GetParam().put());
    EXPECT_FALSE(FindDevice(0));
    EXPECT_EQ(ReadFile(kVictim), AsBytes(kNobodysProcess) + "mine");
    EXPECT_TRUE(fs::exists(fs::symlink_status(kLock)));
    EXPECT_EQ(Port().ReceivePending(), "");
    RAVO_SEARCH_ENTRY entry{};
    ASSERT_TRUE(RAVOGetSearchReport(0, &entry));
    EXPECT_TRUE(entry.Finding == RAVO_FINDING_LOCKED ||
                entry.Finding == RAVO_FINDING_LOCK_UNREADABLE)
        << entry.Text;
}

// A further name of another user's file: only the name is removed, never the file or its contents.
TEST_F(HostilePort, FurtherNameOfAFileCostsOnlyThatName) {
    ASSERT_EQ(link(kVictim, kLock), 0);
    ASSERT_TRUE(LockDevice(0));
    EXPECT_EQ(ReadFile(kVictim), AsBytes(kNobodysProcess) + "mine");
    EXPECT_EQ(ReadFile(kLock), AsBytes(getpid()));
}

// ---- On the port -------------------------------------------------------------------------------

// Another program may have the port open, too, and stop the line.
TEST_F(HostilePort, StoppedLineEndsTheProbeInTime) {
    ASSERT_EQ(tcflow(Port().HostSide(), TCOOFF), 0);
    EXPECT_FALSE(FindDevice(0));
    EXPECT_FALSE(DeviceIsConnected());
    EXPECT_FALSE(fs::exists(kLock));
    tcflow(Port().HostSide(), TCOON);
}

// A device that sends for ever is read no further than an answer is long.
TEST_F(HostilePort, EndlessAnswerEndsTheProbe) {
    const Peer flood([&] {
        EXPECT_EQ(Port().Receive(1), "\xAA");
        Port().Send(std::string(3000, 'N'));
    });
    EXPECT_FALSE(FindDevice(0));
    EXPECT_FALSE(DeviceIsConnected());
}

// ---- The calibration file ----------------------------------------------------------------------

class HostileCalibration : public testing::Test {
  protected:
    void SetUp() override {
        strcpy(g_strSerialNumber, "05-170256");
        g_nDACBit = 0;
        g_bDACAvailable = 7;
    }
    void TearDown() override { fs::remove_all(kCalibration); }
};

TEST_F(HostileCalibration, OfTerabytesIsReadNoFurtherThanTheTable) {
    Write(kCalibration, "1,2,3\n");
    ASSERT_EQ(truncate(kCalibration, off_t{1} << 42U), 0);
    LoadDACFile(); // 32,768 pieces of 255 bytes at most
    EXPECT_EQ(g_bDACAvailable, 1);
    EXPECT_EQ(g_DACError[0], 1.0);
}

TEST_F(HostileCalibration, ThatLeadsToAnEndlessDeviceIsNotRead) {
    ASSERT_EQ(symlink("/dev/zero", kCalibration), 0);
    LoadDACFile();
    EXPECT_EQ(g_bDACAvailable, 0);
}

TEST_F(HostileCalibration, ThatLeadsToItselfIsNotRead) {
    ASSERT_EQ(symlink(kCalibration, kCalibration), 0);
    LoadDACFile();
    EXPECT_EQ(g_bDACAvailable, 0);
}

} // namespace
