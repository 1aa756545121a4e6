#include "device/Search.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "platform/SharedValue.h"
#include "PseudoPort.h"

#include <chrono>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

std::string LockPath(int port) {
    return "/var/lock/tarnwick.ACM" + std::to_string(port) + ".lock";
}

void AnswerProbe(const PseudoPort& port, const std::string& answer) {
    EXPECT_EQ(port.Receive(1), "\xAA");
    port.Send(answer);
}

void ExpectNothingOpen() {
    EXPECT_EQ(g_hDevice, -1);
    EXPECT_EQ(g_nLockFile, -1);
    EXPECT_STREQ(g_szDevicePath, "");
    EXPECT_TRUE(fs::is_empty("/var/lock"));
}

class Search : public testing::Test {
  protected:
    void SetUp() override {
        g_nDeviceReadTimeout = 1000;
        g_nDeviceWriteTimeout = 2000;
    }
    void TearDown() override {
        DeviceClose();
        for (const auto& entry : fs::directory_iterator("/var/lock")) {
            fs::remove(entry);
        }
    }
};

TEST_F(Search, WithoutAnyPortFindsNothing) {
    EXPECT_FALSE(FindDevice(-1));
    EXPECT_FALSE(FindDevice(0));
    EXPECT_FALSE(FindDevice(-2));
    EXPECT_FALSE(FindDevice(INT_MAX));
    ExpectNothingOpen();
}

TEST_F(Search, KeepsTheSimulatorsPort) {
    PseudoPort simulator;
    simulator.Plug(2);
    const Peer peer([&] { AnswerProbe(simulator, kIdentity); });
    EXPECT_TRUE(FindDevice(2));
    EXPECT_TRUE(DeviceIsConnected());
    EXPECT_STREQ(g_szDevicePath, "/dev/ttyACM2");
    EXPECT_TRUE(fs::exists(LockPath(2)));
    EXPECT_TRUE(DeviceIsAlive());
}

TEST_F(Search, PassesAnotherDeviceAndLeavesItClosedAndUnlocked) {
    PseudoPort other;
    PseudoPort simulator;
    other.Plug(0);
    simulator.Plug(2);
    bool lockedDuringProbe = false;
    {
        const Peer stranger([&] {
            EXPECT_EQ(other.Receive(1), "\xAA");
            lockedDuringProbe = fs::exists(LockPath(0)) && LoadShared(g_szDevicePath[0]) == '\0';
            other.Send("GPS42");
        });
        const Peer peer([&] { AnswerProbe(simulator, kIdentity); });
        EXPECT_TRUE(FindDevice(-1));
    }
    EXPECT_TRUE(lockedDuringProbe);
    EXPECT_FALSE(fs::exists(LockPath(0)));
    EXPECT_TRUE(fs::exists(LockPath(2)));
    EXPECT_STREQ(g_szDevicePath, "/dev/ttyACM2");
    char open[PATH_MAX] = "";
    const std::string handle = "/proc/self/fd/" + std::to_string(g_hDevice);
    EXPECT_GT(readlink(handle.c_str(), open, sizeof open - 1), 0);
    EXPECT_EQ(open, fs::canonical("/dev/ttyACM2").string());
}

TEST_F(Search, ReachesTheLastPort) {
    PseudoPort simulator;
    simulator.Plug(127);
    const Peer peer([&] { AnswerProbe(simulator, kIdentity); });
    EXPECT_TRUE(FindDevice(-1));
    EXPECT_STREQ(g_szDevicePath, "/dev/ttyACM127");
}

TEST_F(Search, OfAllPortsEndsBefore128) {
    PseudoPort beyond;
    beyond.Plug(128);
    EXPECT_FALSE(FindDevice(-1));
    EXPECT_EQ(beyond.ReceivePending(), "");
}

TEST_F(Search, OfOnePortOpensNoOther) {
    PseudoPort other;
    other.Plug(0);
    EXPECT_FALSE(FindDevice(3));
    EXPECT_EQ(other.ReceivePending(), "");
}

TEST_F(Search, RefusesAWrongOrShortIdentity) {
    const std::string wrong[] = {"RV21" + std::string(1, '\0'), "RV20\n", std::string(5, '\0'),
                                 "RV20", ""};
    g_nDeviceReadTimeout = 200;
    for (const std::string& answer : wrong) {
        PseudoPort port;
        port.Plug(0);
        const Peer peer([&] { AnswerProbe(port, answer); });
        EXPECT_FALSE(FindDevice(0));
        ExpectNothingOpen();
    }
}

TEST_F(Search, LeavesABusyPortAlone) {
    PseudoPort simulator;
    simulator.Plug(0);
    const int32_t owner = getppid();
    {
        std::ofstream file(LockPath(0), std::ios::binary);
        file.write(reinterpret_cast<const char*>(&owner), sizeof owner);
    }
    EXPECT_FALSE(FindDevice(0));
    EXPECT_EQ(simulator.ReceivePending(), "");
    EXPECT_EQ(g_hDevice, -1);
    EXPECT_EQ(fs::file_size(LockPath(0)), 4U);
}

TEST_F(Search, TakesOverAStaleLock) {
    const pid_t dead = fork();
    if (dead == 0) {
        _exit(0);
    }
    waitpid(dead, nullptr, 0);
    {
        std::ofstream file(LockPath(0), std::ios::binary);
        file.write(reinterpret_cast<const char*>(&dead), sizeof dead);
    }
    PseudoPort simulator;
    simulator.Plug(0);
    const Peer peer([&] { AnswerProbe(simulator, kIdentity); });
    EXPECT_TRUE(FindDevice(0));
}

TEST_F(Search, DoesNotHangOnANodeThatIsNoPort) {
    ASSERT_EQ(mkfifo("/dev/ttyACM0", 0600), 0);
    fs::create_directory("/dev/ttyACM1");
    std::ofstream("/dev/ttyACM2") << "text";
    g_nDeviceReadTimeout = 200;
    EXPECT_FALSE(FindDevice(-1));
    for (const char* path : {"/dev/ttyACM0", "/dev/ttyACM1", "/dev/ttyACM2"}) {
        fs::remove(path);
    }
    ExpectNothingOpen();
}

TEST_F(Search, ChangesTheLineJustAsFarAsNeeded) {
    PseudoPort simulator;
    simulator.Plug(0);
    termios before{};
    tcgetattr(simulator.HostSide(), &before);
    before.c_cflag |= CLOCAL | CREAD;
    before.c_iflag = ICRNL | IXON | IXANY | BRKINT;
    before.c_oflag = OPOST | ONLCR | OCRNL;
    before.c_lflag = ICANON | ECHO | ISIG | IEXTEN;
    before.c_cc[VEOF] = 26;
    before.c_cc[VMIN] = 3;
    before.c_cc[VTIME] = 7;
    cfsetispeed(&before, B9600);
    cfsetospeed(&before, B9600);
    ASSERT_EQ(tcsetattr(simulator.HostSide(), TCSANOW, &before), 0);
    tcgetattr(simulator.HostSide(), &before);

    const Peer peer([&] { AnswerProbe(simulator, kIdentity); });
    ASSERT_TRUE(FindDevice(0));

    termios after{};
    tcgetattr(static_cast<int>(g_hDevice), &after);
    termios expected = before;
    expected.c_cflag &= ~static_cast<tcflag_t>(CLOCAL);
    expected.c_iflag = IXANY | BRKINT | IGNPAR;
    expected.c_oflag = OCRNL;
    expected.c_lflag = 0;
    expected.c_cc[VEOF] = 4;
    cfsetospeed(&expected, B115200);
    EXPECT_EQ(after.c_iflag, expected.c_iflag);
    EXPECT_EQ(after.c_oflag, expected.c_oflag);
    EXPECT_EQ(after.c_cflag, expected.c_cflag);
    EXPECT_EQ(after.c_lflag, expected.c_lflag);
    EXPECT_EQ(memcmp(after.c_cc, expected.c_cc, sizeof after.c_cc), 0);
    EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B115200));
}

// A service has no terminal, and the port must not become one: its loss would end the service.
TEST_F(Search, MakesNoPortTheTerminalOfTheHost) {
    PseudoPort stranger;
    stranger.Plug(0);
    g_nDeviceReadTimeout = 100;
    EXPECT_EXIT(
        {
            const bool leads = setsid() != -1;
            FindDevice(0);
            const bool hasTerminal = tcgetsid(stranger.HostSide()) != -1;
            _exit(leads && !hasTerminal ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(stranger.Receive(1), "\xAA");
}

TEST_F(Search, HandsNeitherPortNorLockToChildren) {
    PseudoPort simulator;
    simulator.Plug(0);
    const Peer peer([&] { AnswerProbe(simulator, kIdentity); });
    ASSERT_TRUE(FindDevice(0));
    EXPECT_EQ(fcntl(static_cast<int>(g_hDevice), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(g_nLockFile, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(static_cast<int>(g_hDevice), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
}

TEST_F(Search, FindsInTheNextRoundADeviceThatStillHeldOldBytes) {
    std::vector<std::string> stale = {"NNN", "NNNNNNNN"};
    while (!stale.empty()) {
        PseudoPort simulator;
        simulator.Plug(0);
        const auto start = Clock::now();
        auto said = start;
        {
            const Peer peer([&] {
                EXPECT_EQ(simulator.Receive(1), "\xAA");
                simulator.Send(stale.back());
                std::this_thread::sleep_for(milliseconds(5));
                simulator.Send(kIdentity);
                said = Clock::now();
            });
            EXPECT_FALSE(FindDevice(0));
        }
        if (said - start >= milliseconds(50)) {
            continue; // after the pause, when pending input is discarded
        }
        stale.pop_back();
        {
            const Peer peer([&] { AnswerProbe(simulator, kIdentity); });
            EXPECT_TRUE(FindDevice(0));
        }
        // Nothing is left that could precede the next reply.
        g_nDeviceReadTimeout = 100;
        unsigned char byte = 0;
        EXPECT_EQ(DeviceReadData(&byte, 1), -1);
        g_nDeviceReadTimeout = 1000;
        DeviceClose();
    }
}

TEST_F(Search, ThatIsClosedMeanwhileDoesNotSucceed) {
    PseudoPort simulator;
    simulator.Plug(0);
    {
        const Peer peer([&] {
            EXPECT_EQ(simulator.Receive(1), "\xAA");
            DeviceClose();
            simulator.Send(kIdentity);
        });
        EXPECT_FALSE(FindDevice(0));
    }
    ExpectNothingOpen();
}

TEST_F(Search, WithoutAttemptsFailsAtOnce) {
    PseudoPort simulator;
    simulator.Plug(0);
    EXPECT_FALSE(DeviceConnect(0, 0));
    EXPECT_FALSE(DeviceConnect(0, -1));
    EXPECT_EQ(simulator.ReceivePending(), "");
}

TEST_F(Search, PausesAfterEachFailedAttempt) {
    const auto start = Clock::now();
    EXPECT_FALSE(DeviceConnect(-1, 2));
    EXPECT_GE(Clock::now() - start, seconds(2));
}

TEST_F(Search, SucceedsInALaterAttempt) {
    PseudoPort simulator;
    simulator.Plug(1);
    const Peer peer([&] {
        AnswerProbe(simulator, "wrong");
        AnswerProbe(simulator, kIdentity);
    });
    const auto start = Clock::now();
    EXPECT_TRUE(DeviceConnect(-1, 2));
    EXPECT_GE(Clock::now() - start, seconds(1));
    EXPECT_STREQ(g_szDevicePath, "/dev/ttyACM1");
}

} // namespace
