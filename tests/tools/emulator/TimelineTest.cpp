#include "FirmwareFixture.h"

#include <cmath>

namespace {

// 500 frames a second, 250 frames in a buffer; the first frame leaves when the first buffer is
// whole.
class TimelineTest : public FirmwareTest {
  protected:
    std::optional<Clock::duration> LeftAfter(std::uint64_t frame) const {
        const auto time = m_journal.FrameTime(frame);
        return time ? std::optional(*time - m_begin) : std::nullopt;
    }
    std::uint64_t LeftBy(Clock::duration time) const {
        return m_journal.FramesLeftBy(m_begin + time);
    }

    Clock::time_point m_begin = m_now;
};

TEST_F(TimelineTest, TellsWhenEachFrameLeft) {
    Send(kStart500);
    Pass(3s);
    Send(Buffer12(0, 100));
    Send(Buffer12(50, 100));
    Pass(0s);
    EXPECT_EQ(LeftAfter(0), 3s);
    EXPECT_EQ(LeftAfter(1), std::nullopt);
    Pass(998ms);
    EXPECT_EQ(LeftAfter(1), 3002ms);
    EXPECT_EQ(LeftAfter(249), 3498ms);
    EXPECT_EQ(LeftAfter(499), 3998ms);
    EXPECT_EQ(LeftAfter(500), std::nullopt);
    EXPECT_EQ(LeftBy(3s - 1ns), 0U);
    EXPECT_EQ(LeftBy(3s), 1U);
    EXPECT_EQ(LeftBy(3002ms - 1ns), 1U);
    EXPECT_EQ(LeftBy(3998ms), 500U);
    EXPECT_EQ(LeftBy(1h), 500U);
}

TEST_F(TimelineTest, AnUnderrunHoldsTheFramesAfterIt) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(700ms);
    Send(Buffer12(50, 100));
    Pass(100ms);
    EXPECT_EQ(LeftAfter(249), 498ms);
    EXPECT_EQ(LeftAfter(250), 700ms);
    EXPECT_EQ(LeftAfter(251), 702ms);
    EXPECT_EQ(LeftBy(600ms), 250U);
}

TEST_F(TimelineTest, AFastClockIsFast) {
    m_behaviour.clockPpm = 200;
    Send(kStart500);
    for (unsigned buffer = 0; buffer < 20; ++buffer) {
        Send(Buffer12(buffer * 50, 100));
        Pass(490ms);
    }
    // 2500 periods of 2 ms, shorter by the factor 1.0002: 4.9990002 s.
    ASSERT_TRUE(LeftAfter(2500));
    EXPECT_NEAR(std::chrono::duration<double>(*LeftAfter(2500)).count(), 4.999000199960008, 1e-8);
}

TEST_F(TimelineTest, AClockThatChangesKeepsWhatHasBeen) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(99ms);
    m_behaviour.speed = 2;
    m_firmware->ApplySpeed(m_now);
    Pass(10ms);
    EXPECT_EQ(LeftAfter(49), 98ms);
    EXPECT_EQ(LeftAfter(50), 99ms);
    EXPECT_EQ(LeftAfter(51), 100ms);
}

TEST_F(TimelineTest, TheEmulatorsOwnLatenessHoldsTheOutputsFromThatMomentOn) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Send(Buffer12(50, 100));
    Pass(0s);
    m_now += 2s; // it was due to look again at 498 ms
    m_firmware->Advance(m_now, true);
    Pass(10ms);
    EXPECT_EQ(LeftAfter(249), 498ms);
    EXPECT_EQ(LeftAfter(250), 2002ms);
}

TEST_F(TimelineTest, WhatAStopDropsNeverLeft) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(100ms); // 51 frames taken
    Send({'S'});
    Pass(900ms);
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(2ms);
    EXPECT_EQ(LeftAfter(50), 100ms);
    EXPECT_EQ(LeftAfter(51), std::nullopt);
    EXPECT_EQ(LeftAfter(249), std::nullopt);
    EXPECT_EQ(LeftAfter(250), 1s);
    EXPECT_EQ(LeftBy(1s), 52U);
}

TEST_F(TimelineTest, WithoutAClockThereAreNoTimes) {
    m_behaviour.speed = 0;
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(1s);
    EXPECT_EQ(LeftAfter(0), std::nullopt);
    EXPECT_EQ(LeftBy(1s), 0U);
    m_behaviour.speed = 1;
    m_firmware->ApplySpeed(m_now);
    Send(Buffer12(50, 100));
    Pass(0s);
    EXPECT_EQ(LeftAfter(249), std::nullopt);
    EXPECT_EQ(LeftAfter(250), 1s);
}

TEST_F(TimelineTest, HeldBackRequestsDoNotHoldTheClock) {
    m_behaviour.asksLate = 30ms;
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(29ms);
    EXPECT_TRUE(Said().empty());
    Pass(1ms);
    EXPECT_EQ(Said(), kRequest);
    EXPECT_EQ(LeftAfter(15), 30ms);
}

} // namespace
