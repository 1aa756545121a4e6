#include "device/Device.h"

#include "OpenPort.h"
#include "PseudoPort.h"

#include <aio.h>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

milliseconds ProcessorTime() {
    return milliseconds(clock() * 1000 / CLOCKS_PER_SEC);
}

TEST(ClosedDevice, TransfersNothing) {
    unsigned char byte = 0;
    EXPECT_FALSE(DeviceIsConnected());
    EXPECT_EQ(DeviceReadData(&byte, 1), 0);
    EXPECT_EQ(DeviceWriteData(&byte, 1, 1), 0);
    EXPECT_EQ(DeviceCancelIO(), -1);
    EXPECT_FALSE(DeviceIsAlive());
    DeviceClose();
    EXPECT_EQ(g_hDevice, -1);
}

TEST(ClosedDevice, StillTakesTimeouts) {
    EXPECT_EQ(DeviceSetTimeoutSetting(123, 456), -1);
    EXPECT_EQ(g_nDeviceReadTimeout, 123U);
    EXPECT_EQ(g_nDeviceWriteTimeout, 456U);
}

// Read before any test has changed them.
const uint32_t kInitialReadTimeout = g_nDeviceReadTimeout;
const uint32_t kInitialWriteTimeout = g_nDeviceWriteTimeout;

TEST(ClosedDevice, StartsWithItsTimeouts) {
    EXPECT_EQ(kInitialReadTimeout, 1000U);
    EXPECT_EQ(kInitialWriteTimeout, 2000U);
    EXPECT_EQ(g_nLockFile, -1);
    EXPECT_STREQ(g_szDevicePath, "");
    EXPECT_STREQ(g_szLockFilePath, "");
}

using Read = OpenPort;

TEST_F(Read, GivesWhatHasCome) {
    Device().Send("hello");
    unsigned char buffer[5] = {};
    EXPECT_EQ(DeviceReadData(buffer, 5), 5);
    EXPECT_EQ(Bytes(buffer), "hello");
}

TEST_F(Read, LeavesWhatWasNotAskedFor) {
    Device().Send("hello");
    unsigned char buffer[5] = {};
    EXPECT_EQ(DeviceReadData(buffer, 2), 2);
    EXPECT_EQ(DeviceReadData(buffer + 2, 3), 3);
    EXPECT_EQ(Bytes(buffer), "hello");
}

TEST_F(Read, CollectsPieces) {
    const Peer peer([&] {
        for (const char* piece : {"ab", "c", "def"}) {
            Device().Send(piece);
            std::this_thread::sleep_for(milliseconds(20));
        }
    });
    g_nDeviceReadTimeout = 20000;
    unsigned char buffer[6] = {};
    EXPECT_EQ(DeviceReadData(buffer, 6), 6);
    EXPECT_EQ(Bytes(buffer), "abcdef");
}

TEST_F(Read, OfSilenceEndsAtTheTimeout) {
    g_nDeviceReadTimeout = 200;
    unsigned char buffer[5] = {};
    const auto start = Clock::now();
    EXPECT_EQ(DeviceReadData(buffer, 5), -1);
    EXPECT_GE(Clock::now() - start, milliseconds(200));
}

TEST_F(Read, OfTooLittleGivesThatMuch) {
    g_nDeviceReadTimeout = 200;
    Device().Send("abc");
    unsigned char buffer[5] = {};
    const auto start = Clock::now();
    EXPECT_EQ(DeviceReadData(buffer, 5), 3);
    EXPECT_GE(Clock::now() - start, milliseconds(200));
}

TEST_F(Read, TimeoutCoversTheWholeCall) {
    bool ended = false;
    std::thread device([&] {
        while (!__atomic_load_n(&ended, __ATOMIC_RELAXED)) {
            Device().Send("x");
            std::this_thread::sleep_for(milliseconds(50));
        }
    });
    g_nDeviceReadTimeout = 400;
    std::vector<unsigned char> buffer(10000);
    // If the time-out applied to each wait, this would last 500 s.
    EXPECT_LT(DeviceReadData(buffer.data(), static_cast<int>(buffer.size())), 1000);
    __atomic_store_n(&ended, true, __ATOMIC_RELAXED);
    device.join();
}

TEST_F(Read, WithoutTimeOnlyPolls) {
    g_nDeviceReadTimeout = 0;
    unsigned char buffer[2] = {};
    EXPECT_EQ(DeviceReadData(buffer, 2), -1);
    Device().Send("a");
    while (DeviceReadData(buffer, 1) != 1) {
    }
    EXPECT_EQ(buffer[0], 'a');
}

TEST_F(Read, TimeoutWrapsAt32BitsOfMicroseconds) {
    g_nDeviceReadTimeout = 4294968; // 704 microseconds beyond 2^32
    unsigned char byte = 0;
    EXPECT_EQ(DeviceReadData(&byte, 1), -1);
}

TEST_F(Read, OfNothingGivesNothing) {
    unsigned char byte = 0;
    EXPECT_EQ(DeviceReadData(&byte, 0), 0);
    EXPECT_EQ(DeviceReadData(&byte, -1), 0);
    EXPECT_EQ(DeviceReadData(nullptr, 0), 0);
}

TEST_F(Read, OfAHungUpPortEndsAtTheTimeoutWithoutSpinning) {
    Device().HangUp();
    g_nDeviceReadTimeout = 500;
    unsigned char buffer[5] = {};
    const auto start = Clock::now();
    const milliseconds used = ProcessorTime();
    EXPECT_EQ(DeviceReadData(buffer, 5), -1);
    EXPECT_GE(Clock::now() - start, milliseconds(500));
    EXPECT_LT(ProcessorTime() - used, milliseconds(250));
}

TEST_F(Read, OfAHungUpPortWithoutTimeEnds) {
    Device().HangUp();
    g_nDeviceReadTimeout = 0;
    unsigned char byte = 0;
    EXPECT_EQ(DeviceReadData(&byte, 1), -1);
}

TEST_F(Read, IsNotCutShortBySignals) {
    g_nDeviceReadTimeout = 300;
    unsigned char byte = 0;
    const auto start = Clock::now();
    {
        const SignalStorm storm;
        EXPECT_EQ(DeviceReadData(&byte, 1), -1);
    }
    EXPECT_GE(Clock::now() - start, milliseconds(300));
}

TEST_F(Read, FailsWhenTheHandleIsClosedMeanwhile) {
    std::thread closer([] {
        std::this_thread::sleep_for(milliseconds(50));
        DeviceClose();
    });
    g_nDeviceReadTimeout = 300;
    unsigned char byte = 0;
    EXPECT_LE(DeviceReadData(&byte, 1), 0);
    closer.join();
    EXPECT_FALSE(DeviceIsConnected());
}

TEST_F(Read, NeverTakesBytesFromAFileOpenedUnderTheOldNumber) {
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    std::thread closer([&] {
        std::this_thread::sleep_for(milliseconds(50));
        const auto device = static_cast<int>(g_hDevice);
        Device().Send("x");
        DeviceClose();
        dup2(pipeEnds[0], device);
        EXPECT_EQ(write(pipeEnds[1], "not for you", 11), 11);
    });
    g_nDeviceReadTimeout = 300;
    unsigned char buffer[5] = {};
    EXPECT_LE(DeviceReadData(buffer, 5), 1);
    closer.join();
    char kept[11];
    EXPECT_EQ(read(pipeEnds[0], kept, sizeof kept), 11);
}

TEST_F(Read, WorksWithHandlesBeyondADescriptorSet) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    setrlimit(RLIMIT_NOFILE, &limit);
    const int high = fcntl(static_cast<int>(g_hDevice), F_DUPFD_CLOEXEC, FD_SETSIZE + 100);
    if (high == -1) {
        GTEST_SKIP() << "the system allows too few open files";
    }
    DeviceClose();
    g_hDevice = high;
    Device().Send("a");
    unsigned char byte = 0;
    EXPECT_EQ(DeviceReadData(&byte, 1), 1);
    EXPECT_EQ(DeviceWriteData(&byte, 1, 0), 1);
    EXPECT_EQ(Device().Receive(1), "a");
}

using Timeouts = OpenPort;

TEST_F(Timeouts, AreStoredAndTheLineIsWaitedFor) {
    const auto start = Clock::now();
    EXPECT_EQ(DeviceSetTimeoutSetting(200, 2000), 1);
    EXPECT_GE(Clock::now() - start, milliseconds(200));
    EXPECT_EQ(g_nDeviceReadTimeout, 200U);
    EXPECT_EQ(g_nDeviceWriteTimeout, 2000U);
}

TEST_F(Timeouts, DoNotWaitForAReadablePortAndConsumeNothing) {
    Device().Send("a");
    EXPECT_EQ(DeviceSetTimeoutSetting(0xFFFFFFFF, 2000), 1);
    unsigned char byte = 0;
    EXPECT_EQ(DeviceReadData(&byte, 1), 1);
    EXPECT_EQ(byte, 'a');
}

TEST_F(Timeouts, TellThatThePortIsNotWritable) {
    Device().Fill();
    EXPECT_EQ(DeviceSetTimeoutSetting(0, 100), 0);
}

TEST_F(Timeouts, WaitThroughSignals) {
    const auto start = Clock::now();
    {
        const SignalStorm storm;
        EXPECT_EQ(DeviceSetTimeoutSetting(200, 0), 1);
    }
    EXPECT_GE(Clock::now() - start, milliseconds(200));
}

using Close = OpenPort;

TEST_F(Close, ReleasesEverything) {
    ASSERT_TRUE(LockDevice(3));
    DeviceSetPath("/dev/ttyACM3");
    const auto descriptor = static_cast<int>(g_hDevice);
    EXPECT_TRUE(DeviceIsConnected());
    DeviceClose();
    EXPECT_FALSE(DeviceIsConnected());
    EXPECT_EQ(g_hDevice, -1);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    EXPECT_FALSE(std::filesystem::exists("/var/lock/tarnwick.ACM3.lock"));
    EXPECT_EQ(std::string(g_szDevicePath, sizeof g_szDevicePath), std::string(512, '\0'));
}

TEST_F(Close, OfAClosedPortKeepsTheLock) {
    DeviceClose();
    ASSERT_TRUE(LockDevice(3));
    DeviceClose();
    EXPECT_NE(g_nLockFile, -1);
    UnlockDevice();
}

TEST_F(Close, ByManyThreadsClosesOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back(DeviceClose);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(g_hDevice, -1);
}

TEST_F(Close, OfAnEarlierOpeningLeavesTheNextOneAlone) {
    const uint32_t opening = DeviceOpening();
    DeviceClose();
    DeviceUse(Device().OpenHostSide());
    DeviceSetPath("/dev/ttyACM3");
    ASSERT_TRUE(LockDevice(3));
    DeviceCloseOpening(opening);
    EXPECT_TRUE(DeviceIsConnected());
    EXPECT_STREQ(g_szDevicePath, "/dev/ttyACM3");
    EXPECT_NE(g_nLockFile, -1);
    DeviceCloseOpening(DeviceOpening());
    EXPECT_FALSE(DeviceIsConnected());
    EXPECT_STREQ(g_szDevicePath, "");
    EXPECT_EQ(g_nLockFile, -1);
}

TEST_F(Close, LetsTheLastCommandThrough) {
    unsigned char command = 'C';
    EXPECT_EQ(DeviceWriteData(&command, 1, 1), 1);
    DeviceClose();
    EXPECT_EQ(Device().Receive(1), "C");
}

TEST_F(Close, OfAStuckPortEnds) {
    std::vector<unsigned char> bytes(1000000);
    g_nDeviceWriteTimeout = 100;
    ASSERT_EQ(DeviceWriteData(bytes.data(), static_cast<int>(bytes.size()), 0), 0);
    DeviceClose();
    EXPECT_EQ(g_hDevice, -1);
}

TEST_F(Close, OfAHungUpPortEnds) {
    Device().HangUp();
    DeviceClose();
    EXPECT_EQ(g_hDevice, -1);
}

TEST_F(Timeouts, CancellingFindsNothingOutstanding) {
    EXPECT_EQ(DeviceCancelIO(), AIO_ALLDONE);
}

using Presence = OpenPort;

TEST_F(Presence, IsThatTheSystemListsThePort) {
    Device().Plug(12);
    EXPECT_FALSE(DeviceIsAlive());
    DeviceSetPath("/dev/ttyACM12");
    EXPECT_TRUE(DeviceIsAlive());
    DeviceSetPath("/dev/ttyACM1");
    EXPECT_FALSE(DeviceIsAlive());
    DeviceSetPath("/dev/ttyACM12");
    Device().Unplug();
    EXPECT_FALSE(DeviceIsAlive());
}

TEST_F(Presence, IsFoundAmongManyPorts) {
    PseudoPort others[20];
    int number = 0;
    for (PseudoPort& other : others) {
        other.Plug(number++);
    }
    Device().Plug(99);
    DeviceSetPath("/dev/ttyACM0");
    EXPECT_TRUE(DeviceIsAlive());
    DeviceSetPath("/dev/ttyACM99");
    EXPECT_TRUE(DeviceIsAlive());
    DeviceClose();
    EXPECT_FALSE(DeviceIsAlive());
}

TEST_F(Presence, IsFoundWhileSignalsArrive) {
    Device().Plug(0);
    DeviceSetPath("/dev/ttyACM0");
    const SignalStorm storm;
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(DeviceIsAlive());
    }
}

// Each of these keeps some shell, or ls, from listing the port under its plain name.
TEST_F(Presence, DoesNotDependOnTheHostsEnvironment) {
    constexpr const char* kSettings[][2] = {
        {"QUOTING_STYLE", "shell-always"}, {"SHELLOPTS", "noglob"}, {"GLOBIGNORE", "/dev/ttyACM*"}};
    Device().Plug(12);
    DeviceSetPath("/dev/ttyACM12");
    for (const auto& [name, value] : kSettings) {
        setenv(name, value, 1);
        EXPECT_TRUE(DeviceIsAlive()) << name;
        unsetenv(name);
    }
}

TEST_F(Presence, ComparesWholePaths) {
    EXPECT_FALSE(DeviceCheckPath(""));
    DeviceSetPath("/dev/ttyACM1");
    EXPECT_TRUE(DeviceCheckPath("/dev/ttyACM1"));
    EXPECT_FALSE(DeviceCheckPath("/dev/ttyACM12"));
    EXPECT_FALSE(DeviceCheckPath("/dev/ttyACM"));
    EXPECT_FALSE(DeviceCheckPath(""));
    EXPECT_FALSE(DeviceCheckPath(nullptr));
}

} // namespace
