#include "FirmwareFixture.h"

namespace {

TEST_F(FirmwareTest, TheFirstBufferComesUnaskedAndTheSecondIsAskedForAtOnce) {
    Send(kStart500);
    Pass(0s);
    EXPECT_TRUE(Said().empty());
    Send(Buffer12(0, 100));
    Pass(0s);
    EXPECT_EQ(Said(), kRequest);
    EXPECT_EQ(Count().unaskedPackets, 0U);
    Send(Packet12(50, 100));
    EXPECT_EQ(Count().unaskedPackets, 0U);
}

TEST_F(FirmwareTest, FurtherBuffersAreAskedForAtTheSampleClocksPace) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(0s);
    Said();
    Send(Buffer12(50, 100));
    // 250 frames of 2 ms: the first is taken at once, the 250th after 498 ms.
    Pass(497ms);
    EXPECT_TRUE(Said().empty());
    Pass(1ms);
    EXPECT_EQ(Said(), kRequest);
    Send(Buffer12(100, 100));
    Pass(499ms);
    EXPECT_TRUE(Said().empty());
    Pass(1ms);
    EXPECT_EQ(Said(), kRequest);
    EXPECT_EQ(Count().underruns, 0U);
    EXPECT_EQ(Count().requests, 3U);
}

TEST_F(FirmwareTest, TheSpeedMultipliesThePace) {
    m_behaviour.speed = 10;
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(0s);
    Said();
    Send(Buffer12(50, 100));
    Pass(49ms);
    EXPECT_TRUE(Said().empty());
    Pass(1ms);
    EXPECT_EQ(Said(), kRequest);
}

TEST_F(FirmwareTest, WithoutAPaceItAsksAsSoonAsItHasABuffer) {
    m_behaviour.speed = 0;
    Send(kStart500);
    for (unsigned buffer = 0; buffer < 10; ++buffer) {
        Send(Buffer12(buffer * 50, 100));
        Pass(0s);
        EXPECT_EQ(Said(), kRequest);
    }
    Pass(1h);
    EXPECT_EQ(Count().underruns, 0U);
    EXPECT_EQ(Count().frames, 2500U);
}

TEST_F(FirmwareTest, ItTakesNoMoreThanItHolds) {
    Send(kStart500);
    EXPECT_EQ(m_firmware->Room(), 6400U);
    Send(Buffer12(0, 100));
    EXPECT_EQ(m_firmware->Room(), 3200U);
    Send(Buffer12(50, 100));
    EXPECT_EQ(m_firmware->Room(), 0U);
    // The first frame is taken at once; a packet's place is free when its fifth frame has been
    // taken.
    m_firmware->Advance(m_now + 7ms, true);
    EXPECT_EQ(m_firmware->Room(), 0U);
    m_firmware->Advance(m_now + 8ms, true);
    EXPECT_EQ(m_firmware->Room(), 64U);
}

TEST_F(FirmwareTest, ASmallerBufferIsOneBuffer) {
    m_settings.bufferBytes = 1;
    SwitchOn();
    Send(kStart500);
    EXPECT_EQ(m_firmware->Room(), 3200U);
}

TEST_F(FirmwareTest, ALateHostUnderrunsAndIsTold) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(0s);
    Said();
    // The 250 frames last until 500 ms; the next buffer arrives at 512 ms.
    Pass(500ms);
    EXPECT_EQ(Count().underruns, 0U);
    Pass(12ms);
    EXPECT_EQ(Count().underruns, 1U);
    EXPECT_TRUE(Said().empty());
    Send(Buffer12(50, 100));
    EXPECT_EQ(Said(), (Bytes{'X', 0, 3})); // 12 ms, in steps of 5 ms
    EXPECT_EQ(Count().delayReports, 1U);
    EXPECT_EQ(Count().delayMs, 15U);
    Pass(400ms);
    EXPECT_EQ(Count().underruns, 1U);
}

TEST_F(FirmwareTest, ALongDelayFillsBothDigits) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(500ms + 5100ms);
    Said();
    Send(Buffer12(50, 100));
    EXPECT_EQ(Said(), (Bytes{'X', 10, 20})); // (10 x 100 + 20) x 5 = 5100
}

TEST_F(FirmwareTest, ADelayIsToldInTheSimulatorsOwnTime) {
    m_behaviour.speed = 100;
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(5ms + 1ms);
    Said();
    Send(Buffer12(50, 100));
    EXPECT_EQ(Said(), (Bytes{'X', 0, 20}));
}

TEST_F(FirmwareTest, WhatLiesOnTheLineIsNoUnderrun) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(0s);
    Said();
    m_now += 600ms;
    m_firmware->Advance(m_now, false);
    Send(Buffer12(50, 100));
    Pass(0s);
    EXPECT_EQ(Count().underruns, 0U);
    EXPECT_EQ(Count().delayReports, 0U);
}

TEST_F(FirmwareTest, ItsOwnLatenessIsNoUnderrun) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(0s);
    Said();
    Send(Buffer12(50, 100));
    Pass(0s);
    // It wanted to look again at 498 ms, to ask for the third buffer, and gets to it at 2 s only:
    // for the host, 498 ms have passed.
    m_now += 2s;
    m_firmware->Advance(m_now, true);
    EXPECT_EQ(Said(), kRequest);
    Pass(499ms);
    EXPECT_EQ(Count().underruns, 0U);
    Pass(10ms);
    EXPECT_EQ(Count().underruns, 1U);
}

TEST_F(FirmwareTest, StoppingEndsThePlayAndForgetsWhatIsHeld) {
    Send(kStart500);
    Send(Buffer12(0, 100));
    Pass(0s);
    Said();
    Pass(100ms); // 51 frames taken
    Send({'S'});
    EXPECT_EQ(Count().droppedFrames, 199U);
    EXPECT_NEAR(Count().playedSeconds, 0.1, 1e-9);
    Pass(10s);
    EXPECT_TRUE(Said().empty());
    EXPECT_EQ(Count().underruns, 0U);
    Send(Packet12(50, 0));
    EXPECT_EQ(Count().packetsOutsidePlay, 1U);
    EXPECT_EQ(Count().frames, 250U);
}

TEST_F(FirmwareTest, StopComesBetweenPacketsInOneRead) {
    Send(kStart500);
    Bytes bytes = Packet12(0, 7);
    bytes.push_back('S');
    const Bytes more = Packet12(1, 9);
    bytes.insert(bytes.end(), more.begin(), more.end());
    Send(bytes);
    EXPECT_EQ(m_journal.Frames(), std::vector<Codes>(5, AllChannels(7)));
    EXPECT_EQ(Count().stops, 1U);
    EXPECT_EQ(Count().packetsOutsidePlay, 1U);
}

TEST_F(FirmwareTest, ASecondStartBeginsAfresh) {
    Send(kStart500);
    Send(Packet12(0, 1));
    Send({0x00, 0xE8, 0xDF, 0x02});
    Send(Packet12(0, 2));
    EXPECT_EQ(Count().sequenceGaps, 0U);
    const auto starts = m_journal.Starts();
    ASSERT_EQ(starts.size(), 2U);
    EXPECT_EQ(starts[1].firstFrame, 5U);
    EXPECT_EQ(starts[1].range, 2);
    EXPECT_DOUBLE_EQ(starts[1].rate, 1000.0);
    EXPECT_EQ(m_journal.Frames()[5], AllChannels(2));
}

} // namespace
