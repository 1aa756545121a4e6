#include "engine/ResponseReader.h"

#include "engine/Output.h"
#include "engine/PlayRaw.h"
#include "platform/SharedValue.h"
#include "tests/engine/PlayFixture.h"
#include "tests/support/Eventually.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace {

std::atomic<int> g_delays{0};
std::atomic<int> g_lastDelay{0};

void KeepDelay(int delay) {
    g_lastDelay = delay;
    ++g_delays;
}

class ResponseTest : public PlayRawTest {
  protected:
    void SetUp() override {
        PlayRawTest::SetUp();
        g_delays = 0;
        StoreShared(g_OutputDelayCB, KeepDelay);
        g_hSendEvent.ResetEvent();
    }
    void TearDown() override { StoreShared(g_hPlayThread, 0); }

    static int Consumed(Wire response) {
        response.reserve(response.size() + 1);
        const unsigned char* after =
            ResponseHandling(response.data(), static_cast<int>(response.size()));
        return static_cast<int>(after - response.data());
    }
};

TEST_F(ResponseTest, RequestWithoutPlayThreadIsIgnored) {
    EXPECT_EQ(Consumed({'N', 0}), 2);
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 110);
}

TEST_F(ResponseTest, RequestWakesThePlayThread) {
    StoreShared(g_hPlayThread, 1);
    EXPECT_EQ(Consumed({'N', 0, 'X'}), 2);
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 0);
}

TEST_F(ResponseTest, RequestAtTheEndCountsAsWhole) {
    StoreShared(g_hPlayThread, 1);
    EXPECT_EQ(Consumed({'N'}), 2);
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 0);
}

TEST_F(ResponseTest, DelayIsReported) {
    EXPECT_EQ(Consumed({'X', 1, 2, 'N'}), 3);
    EXPECT_EQ(g_delays, 1);
    EXPECT_EQ(g_lastDelay, 510);
    EXPECT_EQ(Consumed({'X', 255, 255}), 3);
    EXPECT_EQ(g_lastDelay, 128775); // (25500 + 255) x 5
}

TEST_F(ResponseTest, DelayOfNothingIsNotReported) {
    EXPECT_EQ(Consumed({'X', 0, 0}), 3);
    EXPECT_EQ(g_delays, 0);
}

TEST_F(ResponseTest, DelayWithoutCallbackIsSkipped) {
    StoreShared(g_OutputDelayCB, nullptr);
    EXPECT_EQ(Consumed({'X', 1, 2}), 3);
}

TEST_F(ResponseTest, CutDelayIsDropped) {
    EXPECT_EQ(Consumed({'X', 1}), 2);
    EXPECT_EQ(Consumed({'X'}), 1);
    EXPECT_EQ(g_delays, 0);
}

TEST_F(ResponseTest, StatusIsSkipped) {
    EXPECT_EQ(Consumed(Wire(15, 'S')), 15);
    EXPECT_EQ(Consumed(Wire(17, 'S')), 15);
    EXPECT_EQ(Consumed(Wire(14, 'S')), 14);
    EXPECT_EQ(Consumed({'S'}), 1);
}

TEST_F(ResponseTest, AnythingElseTakesTheRestWithIt) {
    StoreShared(g_hPlayThread, 1);
    EXPECT_EQ(Consumed({0, 'N', 0}), 3);
    EXPECT_EQ(Consumed({'n', 'N', 0, 'X', 1, 2}), 6);
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 110);
    EXPECT_EQ(g_delays, 0);
}

TEST_F(ResponseTest, NothingIsNothing) {
    unsigned char none = 'N';
    EXPECT_EQ(ResponseHandling(&none, 0), &none);
}

TEST_F(PlayingTest, SeveralResponsesInOneRead) {
    g_delays = 0;
    ASSERT_TRUE(Start(nullptr, KeepDelay));
    ReceiveFirstBuffer();
    port.Send({0x4E, 0x00, 0x58, 0x01, 0x02});
    EXPECT_EQ(port.Receive(kBuffer).size(), kBuffer);
    EXPECT_TRUE(Eventually([] { return g_delays == 1; }));
    EXPECT_EQ(g_lastDelay, 510);
    // A status record in front of a request.
    port.Send({'S', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'N', 0});
    EXPECT_EQ(port.Receive(kBuffer).size(), kBuffer);
    // Garbage swallows the request that follows it.
    port.Send({0xFF, 'N', 0});
    EXPECT_TRUE(port.IsQuietFor(300));
    // So does the rest of it, in a reader that has not read since.
    const auto isAnswered = [this] {
        port.AskForBuffer();
        return !port.Receive(1, 1000).empty();
    };
    EXPECT_TRUE(Eventually(isAnswered, 20));
    EXPECT_EQ(port.Receive(kBuffer - 1).size(), kBuffer - 1);
    Stop(port);
}

void EndReaderFromDelay(int /*delay*/) {
    g_hStopReceiveEvent.SetEvent();
    ++g_delays;
}

TEST_F(ResponseTest, ReaderThatHasToEndLeavesTheRestOfARead) {
    ScriptedPort port;
    StoreShared(g_OutputDelayCB, EndReaderFromDelay);
    port.Send({'X', 0, 1, 'X', 0, 2});
    std::thread reader([] { ReadNotifyThread(nullptr); });
    reader.join();
    EXPECT_EQ(g_delays, 1);
}

void StopFromDelay(int /*delay*/) {
    StopOutput();
    ++g_delays;
}

TEST_F(PlayingTest, DelayCallbackMayStop) {
    g_delays = 0;
    ASSERT_TRUE(Start(nullptr, StopFromDelay));
    ReceiveFirstBuffer();
    port.Send({'X', 0, 1});
    EXPECT_TRUE(Eventually([] { return g_delays == 1; }));
    EXPECT_FALSE(OutputThreadsAreGone()); // only asked for
    EXPECT_EQ(AskWhenStopped(port), (Wire{'S', 'S'}));
    StopOutput();
    EXPECT_TRUE(OutputThreadsAreGone());
}

std::atomic<bool> g_hasSlept{false};

void SleepFromDelay(int /*delay*/) {
    std::this_thread::sleep_for(milliseconds(10500));
    g_hasSlept = true;
}

// While the host holds the reader up, or is stopped as a whole, nothing is read: data that the
// simulator sends in the meantime is pending, and it has not fallen silent.
TEST_F(PlayingTest, TimeWithoutALookIsNoSilence) {
    ASSERT_TRUE(Start(nullptr, SleepFromDelay));
    ReceiveFirstBuffer();
    port.Send({'X', 0, 1, 'N', 0});
    ASSERT_TRUE(Eventually([] { return g_hasSlept.load(); }));
    EXPECT_EQ(port.Receive(kBuffer).size(), kBuffer);
    EXPECT_TRUE(IsOutputting());
    Stop(port);
}

void RestartFromDelay(int /*delay*/) {
    g_lastDelay = OutputWaveform(0, nullptr, nullptr);
    ++g_delays;
}

TEST_F(PlayingTest, DelayCallbackCannotStart) {
    g_delays = 0;
    g_lastDelay = -1;
    ASSERT_TRUE(Start(nullptr, RestartFromDelay));
    port.Send({'X', 0, 1});
    EXPECT_TRUE(Eventually([] { return g_delays == 1; }));
    EXPECT_EQ(g_lastDelay, 0);
    Stop(port);
}

} // namespace
