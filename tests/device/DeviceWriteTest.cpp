#include "device/Device.h"

#include "OpenPort.h"
#include "PseudoPort.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <numeric>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

std::vector<unsigned char> Counting(size_t size) {
    std::vector<unsigned char> bytes(size);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    return bytes;
}

using Write = OpenPort;

TEST_F(Write, ReachesTheDevice) {
    auto bytes = Counting(200);
    EXPECT_EQ(DeviceWriteData(bytes.data(), 200, 1), 200);
    EXPECT_EQ(Device().Receive(200), std::string(bytes.begin(), bytes.end()));
}

TEST_F(Write, OfNothingWritesNothing) {
    unsigned char byte = 0;
    EXPECT_EQ(DeviceWriteData(&byte, 0, 1), 0);
    EXPECT_EQ(DeviceWriteData(&byte, -1, 1), 0);
    EXPECT_EQ(Device().ReceivePending(), "");
}

TEST_F(Write, ThatTheDeviceDoesNotTakeGivesZeroAlthoughPartWentOut) {
    g_nDeviceWriteTimeout = 300;
    std::vector<unsigned char> bytes(1000000);
    const auto start = Clock::now();
    EXPECT_EQ(DeviceWriteData(bytes.data(), static_cast<int>(bytes.size()), 0), 0);
    EXPECT_GE(Clock::now() - start, milliseconds(300));
    EXPECT_FALSE(Device().ReceivePending().empty());
}

TEST_F(Write, ToAHungUpPortFails) {
    Device().HangUp();
    unsigned char byte = 0;
    EXPECT_EQ(DeviceWriteData(&byte, 1, 1), 0);
}

TEST_F(Write, IsNotCutShortBySignals) {
    g_nDeviceWriteTimeout = 20000;
    auto bytes = Counting(100000);
    std::string received;
    {
        const Peer peer([&] {
            BlockTimerSignals();
            received = Device().Receive(bytes.size());
        });
        const SignalStorm storm;
        EXPECT_EQ(DeviceWriteData(bytes.data(), 100000, 0), 100000);
    }
    EXPECT_EQ(received, std::string(bytes.begin(), bytes.end()));
}

// A port that keeps the data of separate writes apart.
class PiecewisePort : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, m_ends), 0);
        g_hDevice = m_ends[0];
    }
    void TearDown() override {
        DeviceClose();
        close(m_ends[1]);
    }
    std::vector<ssize_t> PieceSizes() const {
        std::vector<ssize_t> sizes;
        char bytes[4096];
        for (;;) {
            const ssize_t size = read(m_ends[1], bytes, sizeof bytes);
            if (size <= 0) {
                return sizes;
            }
            sizes.push_back(size);
        }
    }

  private:
    int m_ends[2] = {-1, -1};
};

TEST_F(PiecewisePort, GetsAtMost64BytesAtATime) {
    auto bytes = Counting(150);
    EXPECT_EQ(DeviceWriteData(bytes.data(), 150, 0), 150);
    EXPECT_EQ(PieceSizes(), (std::vector<ssize_t>{64, 64, 22}));
    EXPECT_EQ(DeviceWriteData(bytes.data(), 64, 0), 64);
    EXPECT_EQ(PieceSizes(), (std::vector<ssize_t>{64}));
}

TEST_F(PiecewisePort, IsSlowedDownByAnErrorLeftBehind) {
    auto bytes = Counting(150);
    const auto start = Clock::now();
    errno = EAGAIN;
    EXPECT_EQ(DeviceWriteData(bytes.data(), 150, 0), 150);
    EXPECT_GE(Clock::now() - start, milliseconds(30));
}

TEST(WriteError, GivesTheCountSoFar) {
    signal(SIGXFSZ, SIG_IGN);
    FILE* file = tmpfile();
    ASSERT_NE(file, nullptr);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit small = before;
    small.rlim_cur = 100;
    g_hDevice = fileno(file);
    auto bytes = Counting(150);

    setrlimit(RLIMIT_FSIZE, &small);
    const int written = DeviceWriteData(bytes.data(), 150, 0);
    setrlimit(RLIMIT_FSIZE, &before);

    EXPECT_EQ(written, 100);
    g_hDevice = -1;
    fclose(file);
}

} // namespace
