#include "FirmwareFixture.h"

#include <numeric>

namespace {

class LegacyFirmwareTest : public FirmwareTest {
  protected:
    LegacyFirmwareTest() : FirmwareTest(Unit::kLegacy) {}
};

class SixteenBitFirmwareTest : public FirmwareTest {
  protected:
    SixteenBitFirmwareTest() : FirmwareTest(Unit::kSixteenBit) {}
};

const Bytes kReadFlash = {0x12, 0x55, 0xAA, 0x00, 0x00};

TEST_F(FirmwareTest, AnswersTheIdentityProbe) {
    Send({0xAA});
    EXPECT_EQ(Said(), (Bytes{'R', 'V', '2', '0', 0}));
}

TEST_F(FirmwareTest, AnswersTheLegacyModelRequestWithNineteenBytes) {
    Send({0x55});
    const Bytes reply = Said();
    ASSERT_EQ(reply.size(), 19U);
    EXPECT_EQ(std::string(reply.begin(), reply.begin() + 8), "RAVO 1.0");
    EXPECT_EQ(std::string(reply.begin() + 9, reply.begin() + 18), "TR1603042");
}

TEST_F(FirmwareTest, ReadsTheFlashTable) {
    m_behaviour.flash[20] = 0x77;
    Send(kReadFlash);
    const Bytes table = Said();
    ASSERT_EQ(table.size(), 64U);
    EXPECT_EQ(table[0], 0x12);
    EXPECT_EQ(table[1], 0x55);
    EXPECT_EQ(table[2], 0xAA);
    EXPECT_EQ(table[20], 0x77);
}

TEST_F(FirmwareTest, WritesTheFlashTableAndAnswersWithIt) {
    Bytes table(64);
    std::iota(table.begin(), table.end(), std::uint8_t{0});
    table[0] = 0x12;
    table[1] = 0x55;
    table[2] = 0xAA;
    table[3] = 0xFF;
    Send(table);
    EXPECT_EQ(Said(), table);
    Send(kReadFlash);
    EXPECT_EQ(Said(), table);
}

TEST_F(FirmwareTest, TakesAWholeTableForAWriteWhateverItsMarker) {
    Bytes table(64, 0x31);
    table[0] = 0x12;
    table[1] = 0x55;
    table[2] = 0xAA;
    table[3] = 0x00;
    table[4] = 0x00;
    Send(table);
    EXPECT_EQ(Said(), table);
    EXPECT_EQ(m_journal.CountOf(Command::kWriteFlash), 1U);
    EXPECT_EQ(m_journal.CountOf(Command::kReadFlash), 0U);
}

TEST_F(FirmwareTest, TakesACommandInPieces) {
    Send({0x12, 0x55});
    EXPECT_TRUE(Said().empty());
    Send({0xAA, 0x00});
    EXPECT_TRUE(Said().empty());
    Send({0x00});
    EXPECT_EQ(Said().size(), 64U);
}

TEST_F(FirmwareTest, ForgetsACommandThatWasCutOff) {
    Send({0x12, 0x55, 0xAA});
    Pass(999ms);
    EXPECT_EQ(Count().unknownBytes, 0U);
    Pass(1ms);
    EXPECT_EQ(Count().unknownBytes, 3U);
    Send({0xAA});
    EXPECT_EQ(Said().size(), 5U);
}

// The simulator itself may have been late in reading the line.
TEST_F(FirmwareTest, KeepsACommandWhoseRestLiesOnTheLine) {
    Send({0x44, 0x01});
    m_now += 2s;
    m_firmware->Advance(m_now, false);
    Send({0x07});
    EXPECT_EQ(Count().unknownBytes, 0U);
    EXPECT_EQ(Said().size(), 3U);
}

TEST_F(FirmwareTest, AnswersTheLinkIdRequest) {
    m_behaviour.linkId = 0x99;
    Send({0x44, 0x01, 0x07});
    EXPECT_EQ(Said(), (Bytes{0x44, 0x01, 0x99}));
}

TEST_F(FirmwareTest, DecodesTheStaticValue) {
    Bytes command(64, 0);
    command[0] = 0x09;
    command[1] = 0x01;
    const Bytes planes = {0, 0, 0, 0, 0xFF, 0, 0xFF, 0, 0, 0xFF, 0, 0xFF}; // 0x0A5
    std::copy(planes.begin(), planes.end(), command.begin() + 4);
    Send(command);
    EXPECT_TRUE(Said().empty());
    EXPECT_EQ(m_journal.StaticValues(), std::vector<Codes>{AllChannels(0x0A5)});
}

TEST_F(FirmwareTest, CountsBytesThatStartNoCommand) {
    Send({0xFE, 0x09, 0x02, 0x44, 0x02, 0xAA});
    EXPECT_EQ(Count().unknownBytes, 5U);
    EXPECT_EQ(Said().size(), 5U);
}

TEST_F(FirmwareTest, CountsStopAndClose) {
    Send({'S', 'S', 'C'});
    EXPECT_EQ(Count().stops, 2U);
    EXPECT_EQ(Count().closes, 1U);
    EXPECT_TRUE(Said().empty());
}

TEST_F(FirmwareTest, ReadsTheSampleClockFromTheReloadValue) {
    Send(kStart500);
    ASSERT_EQ(m_journal.Starts().size(), 1U);
    EXPECT_EQ(m_journal.Starts()[0].reload, 53615);
    EXPECT_EQ(m_journal.Starts()[0].range, 5);
    EXPECT_DOUBLE_EQ(m_journal.Starts()[0].rate, 500.0);
}

TEST_F(LegacyFirmwareTest, ReadsTheSampleClockWithTheOlderCorrection) {
    Send({0x00, 0xD1, 0x2C, 0x05}); // 65536 - 12000 + 12
    ASSERT_EQ(m_journal.Starts().size(), 1U);
    EXPECT_DOUBLE_EQ(m_journal.Starts()[0].rate, 500.0);
}

TEST_F(LegacyFirmwareTest, DoesNotKnowTheFlashTable) {
    Send(kReadFlash);
    Pass(2s);
    EXPECT_TRUE(Said().empty());
    EXPECT_EQ(m_journal.CountOf(Command::kReadFlash), 1U);
    EXPECT_EQ(Count().unknownBytes, 0U);
    Send({0x55});
    EXPECT_EQ(Said().size(), 19U);
}

TEST_F(FirmwareTest, DecodesTwelveBitFrames) {
    Send(kStart500);
    Bytes packet(64, 0);
    packet[0] = 1;
    // Channel 0 = 0x800, channel 3 = 0x001, channel 7 = 0xFFF, the rest 0.
    std::uint8_t* frame = packet.data() + 4 + 12;
    std::fill_n(frame, 12, std::uint8_t{0x80});
    frame[0] |= 0x01;
    frame[11] |= 0x08;
    Send(packet);
    const std::vector<Codes> frames = m_journal.Frames();
    ASSERT_EQ(frames.size(), 5U);
    EXPECT_EQ(frames[0], Codes{});
    EXPECT_EQ(frames[1], (Codes{0x800, 0, 0, 0x001, 0, 0, 0, 0xFFF}));
    EXPECT_EQ(frames[2], Codes{});
}

TEST_F(SixteenBitFirmwareTest, DecodesSixteenBitFrames) {
    Send(kStart500);
    Bytes packet(64, 0);
    packet[0] = 1;
    packet[4] = 0x01;       // channel 0: 0x8000
    packet[20 + 15] = 0x40; // channel 6: 0x0001
    packet[36 + 7] = 0x04;  // channel 2: 0x0100
    Send(packet);
    const std::vector<Codes> frames = m_journal.Frames();
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[0], (Codes{0x8000, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(frames[1], (Codes{0, 0, 0, 0, 0, 0, 0x0001, 0}));
    EXPECT_EQ(frames[2], (Codes{0, 0, 0x0100, 0, 0, 0, 0, 0}));
}

TEST_F(FirmwareTest, CountsMarkersWhereTheyBelong) {
    Send(kStart500);
    Send(Buffer12(0, 2048));
    EXPECT_EQ(Count().markers, 1U);
    EXPECT_EQ(Count().strayHeaderBytes, 0U);
    Bytes misplaced = Buffer12(50, 2048);
    misplaced[322] = 0;
    misplaced[64 * 6 + 2] = 0x45;
    misplaced[64 * 7 + 3] = 0x01;
    Send(misplaced);
    EXPECT_EQ(Count().markers, 1U);
    EXPECT_EQ(Count().strayHeaderBytes, 2U);
}

TEST_F(FirmwareTest, CountsSequenceGaps) {
    Send(kStart500);
    for (const int sequence : {0, 1, 3, 4, 4, 5}) {
        Send(Packet12(static_cast<std::uint8_t>(sequence), 0));
    }
    EXPECT_EQ(Count().packets, 6U);
    EXPECT_EQ(Count().sequenceGaps, 2U);
}

TEST_F(FirmwareTest, TheSequenceNumberWraps) {
    Send(kStart500);
    m_behaviour.speed = 0;
    m_firmware->ApplySpeed(m_now);
    for (unsigned packet = 0; packet < 300; ++packet) {
        Send(Packet12(static_cast<std::uint8_t>(packet % 256), 0));
    }
    EXPECT_EQ(Count().sequenceGaps, 0U);
}

TEST_F(FirmwareTest, RefusesToStart) {
    m_behaviour.refusesStart = true;
    Send(kStart500);
    Send(Buffer12(0, 1));
    Pass(1s);
    EXPECT_TRUE(Said().empty());
    EXPECT_EQ(Count().starts, 0U);
    EXPECT_EQ(Count().packetsOutsidePlay, 50U);
    EXPECT_EQ(m_journal.CountOf(Command::kStart), 1U);
}

TEST_F(FirmwareTest, StopsAsking) {
    m_behaviour.asks = false;
    Send(kStart500);
    Send(Buffer12(0, 1));
    Pass(1h);
    EXPECT_TRUE(Said().empty());
    m_behaviour.asks = true;
    Pass(0s);
    EXPECT_EQ(Said(), kRequest);
}

TEST_F(FirmwareTest, PutsStatusRecordsIntoTheStream) {
    m_behaviour.speed = 0;
    m_behaviour.statusEvery = 2;
    Send(kStart500);
    Send(Buffer12(0, 1));
    Pass(0s);
    EXPECT_EQ(Said(), kRequest);
    Send(Buffer12(50, 1));
    Pass(0s);
    const Bytes said = Said();
    ASSERT_EQ(said.size(), 17U);
    EXPECT_EQ(said[0], 'S');
    EXPECT_EQ(Bytes(said.begin() + 15, said.end()), kRequest);
    EXPECT_EQ(Count().statusRecords, 1U);
}

TEST_F(FirmwareTest, RepliesAreCutShort) {
    m_behaviour.replies.truncateTo = 4;
    Send({0xAA});
    EXPECT_EQ(Said(), (Bytes{'R', 'V', '2', '0'}));
}

TEST_F(FirmwareTest, RepliesFollowGarbage) {
    m_behaviour.replies.garbageBefore = {0xDE, 0xAD};
    Send({0xAA});
    EXPECT_EQ(Said(), (Bytes{0xDE, 0xAD, 'R', 'V', '2', '0', 0}));
}

TEST_F(FirmwareTest, RepliesAreLateAndInPieces) {
    m_behaviour.replies.late = 100ms;
    m_behaviour.replies.pieceBytes = 2;
    m_behaviour.replies.pieceGap = 30ms;
    Send({0xAA});
    Pass(99ms);
    EXPECT_TRUE(Said().empty());
    Pass(1ms);
    EXPECT_EQ(Said(), (Bytes{'R', 'V'}));
    Pass(30ms);
    EXPECT_EQ(Said(), (Bytes{'2', '0'}));
    Pass(30ms);
    EXPECT_EQ(Said(), (Bytes{0}));
}

TEST_F(FirmwareTest, OnlySoManyRepliesAreSpoilt) {
    m_behaviour.replies.truncateTo = 0;
    m_behaviour.replies.replies = 2;
    Send({0xAA});
    Send({0xAA});
    EXPECT_TRUE(Said().empty());
    Send({0xAA});
    EXPECT_EQ(Said().size(), 5U);
}

TEST_F(FirmwareTest, FramesBeyondTheLimitAreCountedOnly) {
    m_settings.keepFrames = 7;
    Journal journal(m_settings);
    Firmware firmware(m_settings, m_behaviour, journal, nullptr);
    firmware.Receive(kStart500.data(), kStart500.size(), m_now);
    const Bytes buffer = Buffer12(0, 3);
    firmware.Receive(buffer.data(), buffer.size(), m_now);
    EXPECT_EQ(journal.Frames().size(), 7U);
    EXPECT_EQ(journal.Count().frames, 250U);
}

TEST_F(FirmwareTest, AnyBytesAreSurvived) {
    std::uint32_t state = 12345;
    for (std::size_t round = 0; round < 2000; ++round) {
        Bytes bytes(1 + round % 97);
        for (std::uint8_t& byte : bytes) {
            state = state * 1664525U + 1013904223U;
            byte = static_cast<std::uint8_t>(state >> 24U);
        }
        Send(bytes);
        Pass(3ms);
        Said();
    }
    Pass(2s);
    // It still responds afterwards.
    Send({'S', 0xAA});
    const Bytes said = Said();
    ASSERT_GE(said.size(), 5U);
    EXPECT_EQ(Bytes(said.end() - 5, said.end()), (Bytes{'R', 'V', '2', '0', 0}));
}

} // namespace
