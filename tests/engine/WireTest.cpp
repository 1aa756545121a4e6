#include "engine/Wire.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "engine/Prepare.h"
#include "engine/Settings.h"
#include "tests/engine/MadeMaterial.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <random>
#include <unistd.h>
#include <utility>

namespace {

// The code of a channel, read back bit by bit from the planes of a frame.
int Decode(const unsigned char* planes, int bits, int channel) {
    int code = 0;
    for (int bit = 0; bit < bits; ++bit) {
        code = code * 2 + (planes[bit] >> channel) % 2;
    }
    return code;
}

Frame DecodeFrame(const unsigned char* planes, int bits) {
    Frame frame;
    for (int channel = 0; channel < 8; ++channel) {
        frame[static_cast<size_t>(channel)] = Decode(planes, bits, channel);
    }
    return frame;
}

std::vector<unsigned char> Pack(const Frame& frame, size_t size) {
    std::vector<unsigned char> planes(size, 0xEE);
    if (size == 16) {
        Pack16BitFrame(frame.data(), planes.data());
    } else {
        Pack12BitFrame(frame.data(), planes.data());
    }
    return planes;
}

// ---- Bit planes --------------------------------------------------------------------------------

TEST(BitPlanes, MidScaleIn12BitsSetsTheFirstPlaneOnly) {
    std::vector<unsigned char> expected(12, 0x00);
    expected[0] = 0xFF;
    EXPECT_EQ(Pack({2048, 2048, 2048, 2048, 2048, 2048, 2048, 2048}, 12), expected);
}

TEST(BitPlanes, OneChannelIn16BitsSetsItsBitOnly) {
    std::vector<unsigned char> expected(16, 0x00);
    expected[0] = 0x01;
    EXPECT_EQ(Pack({0x8000, 0, 0, 0, 0, 0, 0, 0}, 16), expected);
}

TEST(BitPlanes, EveryBitOfEveryChannelHasItsPlace) {
    for (size_t channel = 0; channel < 8; ++channel) {
        for (size_t bit = 0; bit < 16; ++bit) {
            Frame frame = {};
            frame[channel] = 1 << bit;
            std::vector<unsigned char> expected(16, 0x00);
            expected[15 - bit] = static_cast<unsigned char>(1 << channel);
            EXPECT_EQ(Pack(frame, 16), expected) << channel << ' ' << bit;
            expected.erase(expected.begin(), expected.begin() + 4);
            EXPECT_EQ(Pack(frame, 12), expected) << channel << ' ' << bit;
        }
    }
}

TEST(BitPlanes, RandomFramesReadBackAsTheyWere) {
    std::mt19937 random(2);
    for (int round = 0; round < 10000; ++round) {
        Frame frame;
        for (int& code : frame) {
            code = static_cast<int>(random() & 0xFFFF);
        }
        ASSERT_EQ(DecodeFrame(Pack(frame, 16).data(), 16), frame);
        for (int& code : frame) {
            code &= 0xFFF;
        }
        ASSERT_EQ(DecodeFrame(Pack(frame, 12).data(), 12), frame);
    }
}

TEST(BitPlanes, BitsAboveTheWidthAreDropped) {
    const Frame wide = {-1, 0x10000, 0x7FFF0001, 0x1234, 0xF000, -4096, 0, 65535};
    EXPECT_EQ(DecodeFrame(Pack(wide, 16).data(), 16),
              (Frame{0xFFFF, 0, 1, 0x1234, 0xF000, 0xF000, 0, 0xFFFF}));
    EXPECT_EQ(DecodeFrame(Pack(wide, 12).data(), 12), (Frame{0xFFF, 0, 1, 0x234, 0, 0, 0, 0xFFF}));
}

// ---- Packet buffer -----------------------------------------------------------------------------

// A pipe in the place of the device; a buffer fits into it.
class PacketBuffer : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(pipe(m_pipe), 0);
        g_hDevice = m_pipe[1];
        g_nDACBit = 0;
    }

    void TearDown() override {
        g_hDevice = -1;
        close(m_pipe[0]);
        close(m_pipe[1]);
    }

    // Sends one buffer and reads it back from the device's side.
    void Send() {
        m_sent.assign(kPacketBufferSize, 0xEE);
        ASSERT_EQ(SendPacket(m_sequence, m_more), 3200);
        ASSERT_EQ(read(m_pipe[0], m_sent.data(), m_sent.size()), 3200);
    }

    const unsigned char* Slot(int packet, int slot) const {
        return m_sent.data() + packet * 64 + 4 + slot * (Bits() == 16 ? 16 : 12);
    }

    int Bits() const { return g_nDACBit != 0 ? 16 : 12; }
    int SlotsPerPacket() const { return Bits() == 16 ? 3 : 5; }

    Frame SlotFrame(int packet, int slot) const { return DecodeFrame(Slot(packet, slot), Bits()); }

    // Channel 0 of every slot of the buffer, in the order in which they are sent.
    std::vector<int> FirstChannel() const {
        std::vector<int> codes;
        for (int packet = 0; packet < 50; ++packet) {
            for (int slot = 0; slot < SlotsPerPacket(); ++slot) {
                codes.push_back(Decode(Slot(packet, slot), Bits(), 0));
            }
        }
        return codes;
    }

    // Loads material whose sample k plays as code 2048 + first + k on channel 0: with a range of 2
    // mV, a code is 1/1000 mV.  The half code keeps truncation independent of the rounding of the
    // scale.
    void LoadRamp(int32_t type, int samples, int first = 0) {
        g_fVoltageRange = 2.0;
        std::vector<double> ramp;
        for (int i = 0; i < samples; ++i) {
            ramp.push_back((first + i + 0.5) / 1000.0);
        }
        LoadSignals(type, 500, std::vector<std::vector<double>>(8, ramp));
        MapLeads({0, 1, 2, 3, 4, 5, 6, 7});
    }

    int m_pipe[2] = {-1, -1};
    unsigned char m_sequence = 0;
    int m_more = 1;
    std::vector<unsigned char> m_sent;
};

// Codes 2048 + first ... one per frame.
std::vector<int> Ramp(int first, int count) {
    std::vector<int> codes;
    for (int i = 0; i < count; ++i) {
        codes.push_back(2048 + first + i);
    }
    return codes;
}

std::vector<int> Join(std::vector<int> codes, const std::vector<int>& more) {
    codes.insert(codes.end(), more.begin(), more.end());
    return codes;
}

TEST_F(PacketBuffer, Carries250FramesOf12Bits) {
    LoadRamp(MATERIAL_MIT, 1000);
    Send();
    EXPECT_EQ(FirstChannel(), Ramp(0, 250));
    EXPECT_EQ(g_nSampleCurrent, 250u);
    EXPECT_EQ(m_more, 1);
    Send();
    EXPECT_EQ(FirstChannel(), Ramp(250, 250));
}

TEST_F(PacketBuffer, Carries150FramesOf16BitsAndZeroFill) {
    g_nDACBit = 1;
    g_fVoltageRange = 5.0;
    LoadSignals(MATERIAL_DIRECT, 500,
                std::vector<std::vector<double>>(8, std::vector<double>(1000, 1.0)));
    Send();
    EXPECT_EQ(g_nSampleCurrent, 150u);
    for (int packet = 0; packet < 50; ++packet) {
        for (int slot = 0; slot < 3; ++slot) {
            EXPECT_EQ(SlotFrame(packet, slot),
                      (Frame{39168, 39168, 39090, 39090, 39090, 39090, 39090, 39090}));
        }
        for (int i = 52; i < 64; ++i) {
            EXPECT_EQ(m_sent[static_cast<size_t>(packet * 64 + i)], 0) << packet << ' ' << i;
        }
    }
}

TEST_F(PacketBuffer, HeadersCountEveryPacketAndWrap) {
    LoadRamp(MATERIAL_MIT, 1000);
    m_sequence = 230;
    Send();
    for (int packet = 0; packet < 50; ++packet) {
        const unsigned char* header = m_sent.data() + packet * 64;
        EXPECT_EQ(header[0], 0x01);
        EXPECT_EQ(header[1], (230 + packet) % 256);
        EXPECT_EQ(header[2], packet == 5 ? 0x45 : 0x00);
        EXPECT_EQ(header[3], 0x00);
    }
    EXPECT_EQ(m_sequence, 24);
}

TEST_F(PacketBuffer, CarriesItsMarkWhateverItHolds) {
    for (int bit : {0, 1}) {
        g_nDACBit = bit;
        for (int32_t type : {MATERIAL_NONE, MATERIAL_DIRECT, MATERIAL_SINE}) {
            LoadRamp(type, 10);
            Send();
            EXPECT_EQ(m_sent[322], 0x45);
        }
    }
}

TEST_F(PacketBuffer, IsTheStaticBuffer) {
    LoadRamp(MATERIAL_MIT, 1000);
    Send();
    EXPECT_EQ(std::memcmp(g_nSendPacket, m_sent.data(), 3200), 0);
}

TEST_F(PacketBuffer, FramesCarryAllChannels) {
    g_nDACBit = 1;
    LoadSignals(MATERIAL_DIRECT, 500,
                {{1.0, 0.0},
                 {0.5, 0.0},
                 {0.25, 0.0},
                 {-0.5, 0.0},
                 {0.75, 0.0},
                 {-1.0, 0.0},
                 {1.25, 0.0},
                 {-1.5, 0.0}});
    Send();
    EXPECT_EQ(SlotFrame(0, 0), (Frame{39168, 35968, 28974, 39406, 30871, 37509, 32767, 35613}));
}

// ---- End of the material -----------------------------------------------------------------------

TEST_F(PacketBuffer, AfterTheEndThePacketStaysZeroAndTheRestRepeatsTheLastFrame) {
    LoadRamp(MATERIAL_MIT, 7 * 5 + 2); // ends after the second frame of packet 7
    Send();
    std::vector<int> expected = Ramp(0, 37);
    expected.resize(40, 0);
    expected.resize(250, 2048 + 36);
    EXPECT_EQ(FirstChannel(), expected);
    for (int slot = 2; slot < 5; ++slot) {
        EXPECT_EQ(SlotFrame(7, slot), Frame{}) << slot;
    }
    EXPECT_EQ(SlotFrame(8, 0), SlotFrame(7, 1));
    EXPECT_EQ(SlotFrame(49, 4), SlotFrame(7, 1));
    EXPECT_EQ(m_sent[322], 0x45);
    EXPECT_EQ(m_more, 0);
    EXPECT_EQ(g_nSampleCurrent, 0u) << "rewound to the start position";
}

TEST_F(PacketBuffer, TheEndInTheLastSlotOfAPacketLeavesNoZeros) {
    LoadRamp(MATERIAL_MIT, 10);
    Send();
    EXPECT_EQ(FirstChannel(), Join(Ramp(0, 10), std::vector<int>(240, 2057)));
}

TEST_F(PacketBuffer, TheEndInTheLastSlotOfTheBufferIsSeenAtOnce) {
    LoadRamp(MATERIAL_MIT, 250);
    Send();
    EXPECT_EQ(FirstChannel(), Ramp(0, 250));
    EXPECT_EQ(m_more, 0);
}

TEST_F(PacketBuffer, AfterTheEndABufferOfItsOwnIsZero) {
    LoadRamp(MATERIAL_MIT, 250);
    Send();
    Send();
    EXPECT_EQ(FirstChannel(), std::vector<int>(250, 0));
    EXPECT_EQ(m_sequence, 100);
    EXPECT_EQ(m_more, 0);
}

TEST_F(PacketBuffer, EveryKindWithAnEndEnds) {
    for (int32_t type : std::initializer_list<int32_t>{
             MATERIAL_NONE, MATERIAL_DIRECT, MATERIAL_AHA, MATERIAL_MIT, MATERIAL_TABLE,
             MATERIAL_EDF_FOUR_CHEST, MATERIAL_EDF, 8, 127, -1}) {
        LoadRamp(type, 20);
        g_nSampleCurrent = 0;
        m_more = 1;
        Send();
        EXPECT_EQ(m_more, 0) << type;
    }
}

TEST_F(PacketBuffer, LoopingStartsOverAtTheStartPosition) {
    LoadRamp(MATERIAL_MIT, 100);
    g_bPlayLoop = 1;
    g_nStartPosition = 40;
    g_nSampleCurrent = 40;
    Send();
    const std::vector<int> round = Ramp(40, 60);
    std::vector<int> expected = Join(Join(Join(Join(round, round), round), round), Ramp(40, 10));
    EXPECT_EQ(FirstChannel(), expected);
    EXPECT_EQ(m_more, 1);
    EXPECT_EQ(g_nSampleCurrent, 50u);
}

TEST_F(PacketBuffer, AStartBehindTheEndPlaysZerosForEver) {
    LoadRamp(MATERIAL_MIT, 100);
    g_nSampleCurrent = 101;
    Send();
    EXPECT_EQ(FirstChannel(), std::vector<int>(250, 0));
    EXPECT_EQ(m_more, 1);
    EXPECT_EQ(g_nSampleCurrent, 351u);
}

TEST_F(PacketBuffer, PeriodicMaterialHasNoEnd) {
    for (int32_t type : std::initializer_list<int32_t>{128, MATERIAL_SINE, MATERIAL_TRIANGLE_PULSE,
                                                       134, 2147483647}) {
        LoadRamp(type, 2);
        g_nSampleCurrent = 0;
        Send();
        EXPECT_EQ(m_more, 1) << type;
        EXPECT_EQ(g_nSampleCurrent, 250u) << type;
    }
}

TEST_F(PacketBuffer, NativeTextEndsByTimeAndDoesNotRewind) {
    LoadRamp(MATERIAL_TARNWICK, 50); // at 500 per second: 100 ms
    Send();
    EXPECT_EQ(m_more, 0);
    EXPECT_EQ(g_nSampleCurrent, 100u);
    const std::vector<int> codes = FirstChannel();
    EXPECT_EQ(codes[0], 2048);
    EXPECT_EQ(codes[2], 2049);
    EXPECT_EQ(codes[98], 2097);
    EXPECT_EQ(codes[100], codes[99]);
    EXPECT_EQ(codes[249], codes[99]);
}

TEST_F(PacketBuffer, NativeTextEndsByRealDivision) {
    LoadRamp(MATERIAL_TARNWICK, 51);
    g_nSampleRate = 1000; // 51 ms; whole seconds would be 0
    Send();
    EXPECT_EQ(g_nSampleCurrent, 51u);
    EXPECT_EQ(m_more, 0);
    EXPECT_EQ(SlotFrame(10, 1), Frame{}) << "the rest of packet 10 stays zero";
}

TEST_F(PacketBuffer, LoopingNativeTextCountsOn) {
    LoadRamp(MATERIAL_TARNWICK, 50);
    g_bPlayLoop = 1;
    Send();
    EXPECT_EQ(m_more, 1);
    EXPECT_EQ(g_nSampleCurrent, 250u);
    EXPECT_EQ(FirstChannel()[100], FirstChannel()[0]);
}

TEST_F(PacketBuffer, NativeTextWithARateOfZeroIsDefined) {
    LoadRamp(MATERIAL_TARNWICK, 50);
    g_nSampleRate = 0;
    Send();
    EXPECT_EQ(m_more, 1);
    g_nSampleCount = 0;
    Send();
    EXPECT_EQ(m_more, 1);
}

// ---- Noise -------------------------------------------------------------------------------------

TEST_F(PacketBuffer, TheNoiseAdvancesOncePerFrame) {
    LoadSignals(MATERIAL_DIRECT, 500,
                std::vector<std::vector<double>>(8, std::vector<double>(1000, 0.0)));
    g_fVoltageRange = 2.0;
    for (int i = 0; i < 10000; ++i) {
        g_NoiseData[i] = i % 100;
    }
    g_NoiseOn = 1;
    g_nNoiseCurrent = 9990;
    Send();
    const std::vector<int> codes = FirstChannel();
    EXPECT_EQ(codes[0], 2048 + 90);
    EXPECT_EQ(codes[9], 2048 + 99);
    EXPECT_EQ(codes[10], 2048 + 0) << "position 10000 is position 0";
    EXPECT_EQ(g_nNoiseCurrent, 240u);
}

TEST_F(PacketBuffer, TheNoiseStopsWithTheMaterial) {
    LoadRamp(MATERIAL_MIT, 10);
    Send();
    EXPECT_EQ(g_nNoiseCurrent, 9u) << "the frame that ended the material does not advance it";
    g_bPlayLoop = 1;
    m_more = 1;
    Send();
    EXPECT_EQ(g_nNoiseCurrent, 259u);
}

// ---- Write -------------------------------------------------------------------------------------

TEST_F(PacketBuffer, WithoutADeviceNothingIsWritten) {
    LoadRamp(MATERIAL_MIT, 1000);
    const int64_t device = std::exchange(g_hDevice, -1);
    EXPECT_EQ(SendPacket(m_sequence, m_more), 0);
    g_hDevice = device;
}

// ---- Start command -----------------------------------------------------------------------------

TEST(StartCommand, ReloadsTheSampleClockForTheRate) {
    EXPECT_EQ(SampleClockReload(3, 500, true), 53615u);
    EXPECT_EQ(SampleClockReload(3, 500, false), 53548u);
    EXPECT_EQ(SampleClockReload(129, 1000, true), 59615u);
}

TEST(StartCommand, NativeTextPlaysAt1000WhateverItsRate) {
    EXPECT_EQ(SampleClockReload(4, 500, true), 59615u);
    EXPECT_EQ(SampleClockReload(4, 0, true), 59615u);
    EXPECT_EQ(SampleClockReload(4, 250, false), 59548u);
}

TEST(StartCommand, TruncatesOnceAtTheEnd) {
    EXPECT_EQ(SampleClockReload(3, 360, true), 48948u);  // 65536 - 16666.67 + 79
    EXPECT_EQ(SampleClockReload(3, 128, false), 18673u); // 65536 - 46875 + 12
}

TEST(StartCommand, HoldsTheReloadValueTo16Bits) {
    EXPECT_EQ(SampleClockReload(3, 0, true), 0u);
    EXPECT_EQ(SampleClockReload(3, 1, true), 0u);
    EXPECT_EQ(SampleClockReload(3, 91, false), 0u);   // 65536 - 65934.07 + 12
    EXPECT_EQ(SampleClockReload(3, 92, false), 330u); // 65536 - 65217.39 + 12
    EXPECT_EQ(SampleClockReload(3, 100000, true), 65535u);
    EXPECT_EQ(SampleClockReload(3, 4294967295u, true), 65535u);
}

TEST(StartCommand, CarriesTheRangeInWholeMillivolts) {
    EXPECT_EQ(OutputRangeByte(5.0), 5u);
    EXPECT_EQ(OutputRangeByte(2.5), 2u);
    EXPECT_EQ(OutputRangeByte(2.99), 3u);
    EXPECT_EQ(OutputRangeByte(2.98), 2u);
}

TEST(StartCommand, HoldsTheRangeToOneByte) {
    EXPECT_EQ(OutputRangeByte(0.0), 0u);
    EXPECT_EQ(OutputRangeByte(-5.0), 0u);
    EXPECT_EQ(OutputRangeByte(300.0), 255u);
    EXPECT_EQ(OutputRangeByte(std::numeric_limits<double>::infinity()), 255u);
    EXPECT_EQ(OutputRangeByte(std::numeric_limits<double>::quiet_NaN()), 0u);
}

} // namespace
