#include "engine/PlayRaw.h"

#include "engine/loaders/LoadMIT.h"
#include "engine/Output.h"
#include "engine/Prepare.h"
#include "engine/Preview.h"
#include "engine/Settings.h"
#include "platform/SharedValue.h"
#include "tests/engine/PlayFixture.h"
#include "tests/support/Eventually.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

TEST_F(PlayRawTest, StopWithNothingPlayingReturnsAtOnce) {
    double leads[12] = {};
    StoreShared(g_OutputSignalCB, nullptr);
    AppendOutputSignalData(0.0, 0.0, leads, false);
    StopOutput();
    StopOutputOnClosing();
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayingTest, LoadingARecordStopsTheOutput) {
    const WillingSimulator simulator(port);
    ASSERT_TRUE(Start());
    // Before it checks whether there is a record.
    EXPECT_EQ(LoadMITHeader("/nonesuch.hea"), nullptr);
    EXPECT_TRUE(OutputThreadsAreGone());

    ASSERT_TRUE(Start());
    ECG_HEADER* header = NewECGHeaderAHA(3, "1001");
    EXPECT_EQ(LoadMITDatabase(header), 1);
    EXPECT_TRUE(OutputThreadsAreGone());
    FreeECGHeader(header);
}

TEST_F(PlayingTest, StopIsCarriedOutAtTheNextRequest) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    std::atomic<bool> stopped{false};
    std::thread host([&stopped] {
        StopOutput();
        stopped = true;
    });
    EXPECT_TRUE(Eventually([] { return g_hStopPlayEvent.WaitTimeout(0) == 0; }));
    EXPECT_TRUE(port.IsQuietFor(500));
    EXPECT_FALSE(stopped);
    port.AskForBuffer();
    // One 'S' answers the request, one ends the play.
    EXPECT_EQ(port.Receive(2), (Wire{'S', 'S'}));
    host.join();
    EXPECT_TRUE(OutputThreadsAreGone());
    EXPECT_EQ(LoadShared(g_nDeviceReadTimeout), 1000U);
    EXPECT_EQ(LoadShared(g_nDeviceWriteTimeout), 2000U);
}

TEST_F(PlayingTest, StopDuringTheBufferLetsItComplete) {
    ASSERT_TRUE(Start());
    ASSERT_EQ(port.Receive(4 + 1).size(), 5U);
    g_hStopPlayEvent.SetEvent();
    EXPECT_EQ(port.Receive(kBuffer - 1).size(), kBuffer - 1);
    Stop(port);
}

TEST_F(PlayingTest, ForceStopEndsThePlayWithoutARequest) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    g_hForceStopPlayEvent.SetEvent();
    EXPECT_EQ(port.Receive(1), Wire{'S'});
    StopOutput();
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayingTest, StopsAtOnceFromManyThreadsReturnWhenTheThreadsAreGone) {
    ASSERT_TRUE(Start());
    const WillingSimulator simulator(port);
    std::vector<std::thread> hosts;
    std::atomic<int> early{0};
    for (int i = 0; i < 4; ++i) {
        hosts.emplace_back([i, &early] {
            if (i % 2 == 0) {
                const CAutoCriticalSection lock(g_CriticalSection);
                StopOutput();
                early += OutputThreadsAreGone() ? 0 : 1;
            } else {
                StopOutputOnClosing();
                early += OutputThreadsAreGone() ? 0 : 1;
            }
        });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    EXPECT_EQ(early, 0);
}

TEST_F(PlayingTest, ANewStartStopsTheEarlierOutput) {
    ASSERT_TRUE(Start());
    {
        const WillingSimulator simulator(port);
        ASSERT_EQ(OutputWaveform(5, nullptr, nullptr), 1);
    }
    EXPECT_EQ(g_nStartPosition, 2500U);
    EXPECT_TRUE(Eventually(IsOutputting));
    Stop(port);
}

TEST_F(PlayingTest, EndsWhenThePortHasBeenClosed) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    port.Unplug();
    StopOutputOnClosing();
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayingTest, EndsWhenTheLineTakesNothing) {
    ASSERT_TRUE(Start());
    port.Fill();
    const auto before = Clock::now();
    port.AskForBuffer();
    // The play thread gives up after the write time-out and then ends the reader; silence would end
    // it after ten seconds only.
    EXPECT_TRUE(Eventually([] { return g_hStopReceiveEvent.WaitTimeout(0) == 0; }));
    EXPECT_GE(Clock::now() - before, seconds(2));
    EXPECT_LT(Clock::now() - before, seconds(9));
    StopOutput();
    EXPECT_TRUE(OutputThreadsAreGone());
}

// A simulator that stays on the bus but sends nothing must not block a stop.
TEST_F(PlayingTest, SilenceOfTenSecondsEndsAStop) {
    const auto before = Clock::now();
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    StopOutput();
    EXPECT_GE(Clock::now() - before, milliseconds(9990));
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayingTest, SilenceOfTenSecondsEndsThePlayAndTheDisplay) {
    const auto before = Clock::now();
    ASSERT_TRUE(Start(KeepPreview));
    ReceiveFirstBuffer();
    EXPECT_TRUE(Eventually(PreviewHasEnded, 60000));
    EXPECT_GE(Clock::now() - before, milliseconds(9990));
    EXPECT_FALSE(IsOutputting());
    StopOutput();
    EXPECT_TRUE(OutputThreadsAreGone());
}

// Any byte is a sign of life.
TEST_F(PlayingTest, StatusRecordsBreakTheSilence) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    for (int i = 0; i < 4; ++i) {
        std::this_thread::sleep_for(seconds(3));
        port.Send({'S', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    }
    EXPECT_TRUE(IsOutputting());
    EXPECT_NE(g_hStopReceiveEvent.WaitTimeout(0), 0);
    Stop(port);
}

// The ten seconds of a stop count from the last buffer, not from the start.
TEST_F(PlayingTest, AStopWaitsForARequestAfterALongPlay) {
    const auto before = Clock::now();
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    while (Clock::now() - before < seconds(11)) {
        EXPECT_TRUE(port.IsQuietFor(1000));
        port.AskForBuffer();
        ASSERT_EQ(port.Receive(kBuffer).size(), kBuffer);
    }
    std::thread host([] { StopOutput(); });
    EXPECT_TRUE(port.IsQuietFor(500));
    EXPECT_EQ(AskWhenStopped(port), (Wire{'S', 'S'}));
    host.join();
}

// Anything but a request does not prolong a stop, which waits for a request.
TEST_F(PlayingTest, TalkWithoutRequestsDoesNotHoldAStop) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    std::atomic<bool> stopped{false};
    std::atomic<bool> talkIsOver{false};
    std::thread talk([&] {
        for (int i = 0; i < 60 && !stopped; ++i) {
            port.Send({'S', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
            std::this_thread::sleep_for(seconds(1));
        }
        talkIsOver = true;
    });
    StopOutput();
    EXPECT_FALSE(talkIsOver);
    EXPECT_TRUE(OutputThreadsAreGone());
    stopped = true;
    talk.join();
}

} // namespace
