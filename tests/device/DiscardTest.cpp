#include "device/Device.h"
#include "device/Search.h"
#include "PseudoPort.h"

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr const char* kLock = "/var/lock/tarnwick.ACM0.lock";

std::atomic<bool> isOutputPending{false};
std::atomic<int> discards{0};
std::atomic<bool> wasLockedAtDiscard{false};
std::atomic<int> slowToClose{-1};

constexpr unsigned int kKernelsPatience = 30; // seconds

} // namespace

// Replaces the system's function.  A pseudo-terminal never has pending output, unlike a device that
// is slow to accept it.
extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == TIOCOUTQ && isOutputPending) {
        *static_cast<int*>(argument) = 6400;
        return 0;
    }
    using Ioctl = int(int, unsigned long, ...);
    static auto* const systems = reinterpret_cast<Ioctl*>(dlsym(RTLD_NEXT, "ioctl"));
    return systems(descriptor, request, argument);
}

extern "C" int tcflush(int descriptor, int queue) noexcept {
    ++discards;
    wasLockedAtDiscard = fs::exists(kLock);
    using Tcflush = int(int, int);
    static auto* const systems = reinterpret_cast<Tcflush*>(dlsym(RTLD_NEXT, "tcflush"));
    return systems(descriptor, queue);
}

// The descriptor is free at once, as in the kernel; the wait that follows is ended only by a
// signal.
int close(int descriptor) {
    using Close = int(int);
    static auto* const systems = reinterpret_cast<Close*>(dlsym(RTLD_NEXT, "close"));
    const int result = systems(descriptor);
    if (descriptor == slowToClose) {
        slowToClose = -1;
        sleep(kKernelsPatience);
    }
    return result;
}

namespace {

class Discard : public testing::Test {
  protected:
    void SetUp() override {
        m_port.Plug(0);
        isOutputPending = true;
        discards = 0;
        wasLockedAtDiscard = false;
    }
    void TearDown() override {
        isOutputPending = false;
        DeviceClose();
        fs::remove(kLock);
    }
    PseudoPort& Port() { return m_port; }

  private:
    PseudoPort m_port;
};

TEST_F(Discard, LeavesWhatAnotherHostIsSending) {
    const int32_t owner = getppid();
    std::ofstream(kLock, std::ios::binary)
        .write(reinterpret_cast<const char*>(&owner), sizeof owner);
    EXPECT_FALSE(FindDevice(0));
    EXPECT_EQ(discards, 0);
}

TEST_F(Discard, HappensBeforeAnotherHostMayHaveThePort) {
    DeviceUse(Port().OpenHostSide());
    ASSERT_TRUE(LockDevice(0));
    DeviceClose();
    EXPECT_EQ(discards, 1);
    EXPECT_TRUE(wasLockedAtDiscard);
    EXPECT_FALSE(fs::exists(kLock));
}

TEST_F(Discard, IsNotWaitedForWhereTheDriverCannot) {
    const int port = Port().OpenHostSide();
    DeviceUse(port);
    slowToClose = port;
    const auto begin = std::chrono::steady_clock::now();
    DeviceClose();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(kKernelsPatience));
    EXPECT_EQ(slowToClose, -1);
    EXPECT_EQ(fcntl(port, F_GETFD), -1);
}

} // namespace
