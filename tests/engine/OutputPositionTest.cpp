#include "engine/OutputPosition.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "engine/Output.h"
#include "engine/PlayRaw.h"
#include "engine/ResponseReader.h"
#include "engine/Settings.h"
#include "platform/SharedValue.h"
#include "ScriptedPort.h"
#include "tests/engine/MadeMaterial.h"
#include "tests/support/Eventually.h"

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

constexpr size_t kBuffer = 3200;
constexpr size_t kStartCommand = 4;

OutputPosition Position() {
    OutputPosition position;
    EXPECT_TRUE(GetOutputPosition(position));
    return position;
}

template <typename Condition>
bool PositionEventually(Condition condition) {
    return Eventually([&] { return condition(Position()); });
}

// Output is running, its first buffer has been sent, and the simulator has not requested another
// yet.
class OutputPositionTest : public testing::Test {
  protected:
    void Start(int32_t sixteenBits = 0, uint32_t rate = 500) {
        g_fVoltageRange = 5.0;
        g_bPlayLoop = 1;
        g_bIsISPSupported = 1;
        g_nDACBit = sixteenBits;
        MakeMaterial(MATERIAL_DIRECT, 8, 100000, rate);
        ASSERT_EQ(OutputWaveform(0, nullptr, nullptr), 1);
        ASSERT_EQ(port.Receive(kStartCommand + kBuffer).size(), kStartCommand + kBuffer);
        ASSERT_TRUE(HasSent(1));
    }
    // Returns how many requests the stop took: a request that overtakes it is still answered.
    uint32_t Stop() {
        uint32_t requests = 0;
        g_hStopPlayEvent.SetEvent();
        do {
            ++requests;
            port.AskForBuffer();
        } while (port.Receive(1) != std::vector<unsigned char>{'S'} &&
                 port.Receive(kBuffer - 1).size() == kBuffer - 1);
        port.Send({'?'}); // with input waiting, the end does not take a whole second
        StopOutput();
        return requests;
    }
    static bool HasSent(uint64_t buffers) {
        return PositionEventually([=](const OutputPosition& at) {
            return at.FramesSent == buffers * at.FramesPerRequest;
        });
    }
    void AskAndReceive() {
        port.AskForBuffer();
        ASSERT_EQ(port.Receive(kBuffer).size(), kBuffer);
    }

    ScriptedPort port;
};

TEST(OutputPositionBeforeTest, ThereIsNoneBeforeTheFirstStart) {
    OutputPosition position;
    EXPECT_FALSE(GetOutputPosition(position));
    CountRequest(1);
    CountDelay(5);
    CountFramesSent(250);
    EXPECT_FALSE(GetOutputPosition(position));
}

TEST_F(OutputPositionTest, StartsWithTheStartCommand) {
    const int64_t before = MonotonicNanoseconds();
    Start();
    const OutputPosition at = Position();
    EXPECT_GE(at.StartTime, before);
    EXPECT_LE(at.StartTime, MonotonicNanoseconds());
    EXPECT_EQ(at.FramesSent, 250U);
    EXPECT_EQ(at.FramesPlayed, 0U);
    EXPECT_EQ(at.FirstRequestTime, 0);
    EXPECT_EQ(at.LastRequestTime, 0);
    EXPECT_EQ(at.Requests, 0U);
    EXPECT_EQ(at.FramesPerRequest, 250U);
    EXPECT_EQ(at.NominalRate, 500.0);
    EXPECT_EQ(at.MeasuredRate, 0.0);
    EXPECT_EQ(at.DelayReports, 0U);
    EXPECT_EQ(at.DelayTotal, 0U);
    Stop();
}

// 6 MHz / 360 is 16666.67 counts, of which the clock makes 16667.
TEST_F(OutputPositionTest, NominalRateIsThatOfTheDivider) {
    Start(1, 360);
    EXPECT_EQ(Position().NominalRate, 6000000.0 / 16667);
    EXPECT_EQ(Position().FramesPerRequest, 150U);
    EXPECT_EQ(Position().FramesSent, 150U);
    Stop();
}

TEST_F(OutputPositionTest, FirstRequestProvesNothingAndEachFurtherOneABuffer) {
    Start();
    const int64_t before = MonotonicNanoseconds();
    AskAndReceive();
    ASSERT_TRUE(HasSent(2));
    const OutputPosition first = Position();
    EXPECT_EQ(first.Requests, 1U);
    EXPECT_EQ(first.FramesPlayed, 0U);
    EXPECT_GE(first.FirstRequestTime, before);
    EXPECT_EQ(first.LastRequestTime, first.FirstRequestTime);

    for (uint32_t k = 2; k <= 5; ++k) {
        AskAndReceive();
        ASSERT_TRUE(HasSent(k + 1));
        EXPECT_EQ(Position().Requests, k);
        EXPECT_EQ(Position().FramesPlayed, (k - 1) * 250U);
    }
    EXPECT_EQ(Position().FirstRequestTime, first.FirstRequestTime);
    EXPECT_GT(Position().LastRequestTime, first.FirstRequestTime);
    EXPECT_LE(Position().LastRequestTime, MonotonicNanoseconds());
    Stop();
}

TEST_F(OutputPositionTest, RequestThatMeetsTheStopCountsAndStaysReadable) {
    Start();
    AskAndReceive();
    AskAndReceive();
    ASSERT_TRUE(HasSent(3));
    const uint32_t further = Stop();
    EXPECT_EQ(Position().Requests, 2 + further);
    EXPECT_EQ(Position().FramesPlayed, (1 + further) * 250U);
    EXPECT_EQ(Position().FramesSent, (2 + further) * 250U);
}

TEST_F(OutputPositionTest, NoMoreIsPlayedThanWasSent) {
    Start();
    port.Send({'N', 0, 'N', 0, 'N', 0, 'N', 0});
    ASSERT_TRUE(PositionEventually([](const OutputPosition& at) { return at.Requests == 4; }));
    ASSERT_TRUE(PositionEventually([](const OutputPosition& at) { return at.FramesSent >= 500; }));
    EXPECT_LE(Position().FramesPlayed, Position().FramesSent);
    port.Receive(3 * kBuffer, 200);
    Stop();
}

TEST_F(OutputPositionTest, SumsDelaysWithoutACallback) {
    Start();
    port.Send({'X', 1, 2, 'X', 0, 0, 'X', 0, 3}); // (100 + 2) x 5, nothing, 3 x 5
    ASSERT_TRUE(PositionEventually([](const OutputPosition& at) { return at.DelayReports == 3; }));
    EXPECT_EQ(Position().DelayTotal, 525U);
    EXPECT_EQ(Position().Requests, 0U);
    Stop();
}

TEST_F(OutputPositionTest, StartsOverWithEachOutput) {
    Start();
    AskAndReceive();
    port.Send({'X', 0, 1});
    ASSERT_TRUE(HasSent(2));
    const int64_t firstStart = Position().StartTime;
    Stop();
    port.Receive(1);
    Start();
    EXPECT_GT(Position().StartTime, firstStart);
    EXPECT_EQ(Position().Requests, 0U);
    EXPECT_EQ(Position().FramesPlayed, 0U);
    EXPECT_EQ(Position().FirstRequestTime, 0);
    EXPECT_EQ(Position().DelayReports, 0U);
    Stop();
}

// A request that was sent before the start would count as this output's first.
TEST_F(OutputPositionTest, EarlierRequestsAreNoneOfThisOutput) {
    port.Send({'N', 0, 'N', 0, 'X', 1, 1});
    Start();
    EXPECT_EQ(Position().Requests, 0U);
    EXPECT_EQ(Position().DelayReports, 0U);
    EXPECT_TRUE(port.IsQuietFor(100));
    Stop();
}

// A device that never stops sending must not keep the host in the start, or in any call that waits
// for the start.
TEST(EarlierResponsesTest, WithoutEndAreLeft) {
    DeviceUse(open("/dev/zero", O_RDWR));
    DiscardEarlierResponses();
    EXPECT_EQ(LoadShared(g_nDeviceReadTimeout), kIdleReadTimeout);
    DeviceClose();
}

TEST_F(OutputPositionTest, RefusedStartKeepsTheEarlierPosition) {
    Start();
    Stop();
    const OutputPosition before = Position();
    g_nSampleRate = 0;
    ASSERT_EQ(OutputWaveform(0, nullptr, nullptr), 0);
    EXPECT_EQ(Position().StartTime, before.StartTime);
    EXPECT_EQ(Position().FramesSent, before.FramesSent);
}

// Writers change several fields at once: no reader may see one of them without the others.
TEST(OutputPositionReadersTest, SeeWholePositions) {
    BeginOutputPosition(1, 1000.0, 250);
    std::atomic<bool> done{false};
    std::atomic<int> reads{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&] {
            while (!done) {
                const OutputPosition at = Position();
                ASSERT_EQ(at.LastRequestTime, int64_t{at.Requests} * 1000);
                ASSERT_EQ(at.DelayTotal, 5 * at.DelayReports);
                ++reads;
            }
        });
    }
    for (int64_t k = 1; k <= 20000 || reads < 1000; ++k) {
        CountRequest(k * 1000);
        CountDelay(5);
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}

} // namespace
