#include "engine/Prepare.h"

#include "device/Calibration.h"
#include "device/Protocol.h"
#include "engine/loaders/LoadWaveform.h"
#include "engine/Settings.h"
#include "tests/engine/MadeMaterial.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

// Frames are checked as 16-bit codes at the default range of 5 mV: v / 5 x 32000 + 32768.
// With I = 1.0 and II = 0.5 the terminal W is 1.5 x 0.33333333333.
class Prepare : public testing::Test {
  protected:
    void SetUp() override { g_nDACBit = 1; }
};

using PreparedFrame = Prepare;
using PreparedLeadSet = Prepare;

Frame FrameAt(uint64_t position) {
    Frame frame;
    frame.fill(-1);
    g_nSampleCurrent = position;
    PrepareRawData(frame.data());
    return frame;
}

LeadSet LeadsAt(int index) {
    LeadSet leads;
    leads.fill(-1.0);
    PrepareSignalData(index, leads.data());
    return leads;
}

constexpr Frame kZeroFrame = {};
constexpr LeadSet kZeroLeads = {};
constexpr int kMiddle = 32768;
constexpr Frame kMiddleFrame = {kMiddle, kMiddle, kMiddle, kMiddle,
                                kMiddle, kMiddle, kMiddle, kMiddle};

// One instant of eight leads that all differ.
const std::vector<std::vector<double>> kEightLeads = {{1.0},  {0.5},  {0.25}, {-0.5},
                                                      {0.75}, {-1.0}, {1.25}, {-1.5}};
constexpr Frame kEightLeadsFrame = {39168, 35968, 28974, 39406, 30871, 37509, 32767, 35613};
constexpr LeadSet kEightLeadsSet = {1.0,  0.5,  -0.5, -0.75, 0.75, 0.0,
                                    0.25, -0.5, 0.75, -1.0,  1.25, -1.5};

// The same signals in another order, with the mapping that undoes it.
const std::vector<std::vector<double>> kMappedSignals = {{-1.5}, {1.25}, {-1.0}, {0.75},
                                                         {-0.5}, {0.25}, {0.5},  {1.0}};
constexpr std::array<int32_t, 8> kReverseMapping = {7, 6, 5, 4, 3, 2, 1, 0};

// ---- Dispatch ----------------------------------------------------------------------------------

TEST_F(PreparedFrame, IsZeroForKindsOfMaterialThatDoNotExist) {
    for (int32_t type : std::initializer_list<int32_t>{-1, MATERIAL_NONE, 8, 127, 128, 134,
                                                       2147483647, -2147483647 - 1}) {
        LoadSignals(type, 500, kEightLeads);
        EXPECT_EQ(FrameAt(0), kZeroFrame) << type;
        EXPECT_EQ(LeadsAt(0), kZeroLeads) << type;
    }
}

TEST_F(PreparedFrame, IsZeroPastTheEnd) {
    MapLeads({0, 1, 2, 3, 4, 5, 6, 7});
    for (int32_t type : {MATERIAL_DIRECT, MATERIAL_AHA, MATERIAL_MIT, MATERIAL_TABLE,
                         MATERIAL_EDF_FOUR_CHEST, MATERIAL_EDF}) {
        LoadSignals(type, 500, kEightLeads);
        EXPECT_NE(FrameAt(0), kZeroFrame) << type;
        EXPECT_EQ(FrameAt(1), kZeroFrame) << type;
        EXPECT_EQ(FrameAt(std::numeric_limits<uint64_t>::max()), kZeroFrame) << type;
    }
}

TEST_F(PreparedLeadSet, IsZeroPastTheEndAndBeforeTheStart) {
    MapLeads({0, 1, 2, 3, 4, 5, 6, 7});
    for (int32_t type : {MATERIAL_DIRECT, MATERIAL_AHA, MATERIAL_MIT, MATERIAL_TARNWICK,
                         MATERIAL_TABLE, MATERIAL_EDF_FOUR_CHEST, MATERIAL_EDF}) {
        LoadSignals(type, 500, kEightLeads);
        EXPECT_NE(LeadsAt(0), kZeroLeads) << type;
        for (int index : {1, 2147483647, -1, -2147483647 - 1}) {
            EXPECT_EQ(LeadsAt(index), kZeroLeads) << type << ' ' << index;
        }
    }
}

TEST_F(PreparedFrame, IsZeroWithNothingLoaded) {
    EXPECT_EQ(FrameAt(0), kZeroFrame);
    EXPECT_EQ(LeadsAt(0), kZeroLeads);
}

// 24.8 days into a waveform its 32-bit sample number becomes negative.
TEST_F(PreparedLeadSet, IsZeroWhereThePositionIsNoIndex) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 1.0, 2.0), 1);
    LeadSet leads;
    PrepareSignalDataAt(2147483647, leads.data());
    EXPECT_EQ(leads[0], -1.0); // 0.647 s into a period whose second half is low
    PrepareSignalDataAt(2147483648, leads.data());
    EXPECT_EQ(leads, kZeroLeads);
}

// ---- Direct ------------------------------------------------------------------------------------

TEST_F(PreparedFrame, DirectCarriesTheChestLeadsBackwards) {
    for (int32_t type : {MATERIAL_DIRECT, MATERIAL_TABLE}) {
        LoadSignals(type, 500, kEightLeads);
        EXPECT_EQ(FrameAt(0), kEightLeadsFrame) << type;
    }
}

TEST_F(PreparedFrame, DirectIn12Bits) {
    g_nDACBit = 0;
    LoadSignals(MATERIAL_DIRECT, 500, kEightLeads);
    EXPECT_EQ(FrameAt(0), (Frame{2448, 2248, 1810, 2462, 1929, 2344, 2047, 2225}));
}

TEST_F(PreparedFrame, DirectCorrectsEachChannelByItsOwnRow) {
    g_nDACBit = 0;
    g_bDACAvailable = 1;
    LoadSignals(MATERIAL_DIRECT, 500, std::vector<std::vector<double>>(8, {0.0}));
    for (int channel = 0; channel < 8; ++channel) {
        g_DACError[channel * 4096 + 2048] = 2048.0 + channel;
    }
    EXPECT_EQ(FrameAt(0), (Frame{2048, 2047, 2046, 2045, 2044, 2043, 2042, 2041}));
}

TEST_F(PreparedFrame, DirectHoldsEverySignalToTheRange) {
    LoadSignals(MATERIAL_DIRECT, 500, {{7.0}, {-6.0}, {9.0}, {0.0}, {0.0}, {0.0}, {0.0}, {0.0}});
    // I and II are limited before they cancel in W; V1 contributes 5.0 x 0.592731022038923.
    EXPECT_EQ(FrameAt(0), (Frame{64768, 768, kMiddle, kMiddle, kMiddle, kMiddle, kMiddle, 51735}));
}

TEST_F(PreparedFrame, DirectAddsTheNoiseOfTheInstantToEveryChannel) {
    LoadSignals(MATERIAL_DIRECT, 500, std::vector<std::vector<double>>(8, {0.0}));
    g_NoiseData[3] = 1000;
    g_nNoiseCurrent = 3;
    g_NoiseOn = 1;
    const Frame expected = {39168, 39168, 39168, 39168, 39168, 39168, 39168, 39168};
    EXPECT_EQ(FrameAt(0), expected);
    g_WaveformType = MATERIAL_TABLE;
    EXPECT_EQ(FrameAt(0), kMiddleFrame);
}

TEST_F(PreparedFrame, DirectAtASampleOfItsOwn) {
    LoadSignals(MATERIAL_DIRECT, 500, std::vector<std::vector<double>>(8, {0.0, 1.0, 0.0}));
    g_nSampleCurrent = 0;
    Frame frame;
    DoPrepareRawDataDirectModeEx(1, frame.data());
    EXPECT_EQ(frame[0], 39168);
    EXPECT_EQ(frame[2], 39090); // (1 + 2 x 0.33333333333) x 0.592731022038923
    for (int index : {-1, 3, -2147483647 - 1, 2147483647}) {
        frame.fill(-1);
        DoPrepareRawDataDirectModeEx(index, frame.data());
        EXPECT_EQ(frame, kZeroFrame) << index;
    }
}

TEST_F(PreparedFrame, DirectTakesThePositionAsA32BitInteger) {
    LoadSignals(MATERIAL_DIRECT, 500, std::vector<std::vector<double>>(8, {0.0, 1.0}));
    g_nSampleCurrent = (uint64_t{1} << 32) + 1;
    Frame frame;
    DoPrepareRawDataDirectMode(frame.data());
    EXPECT_EQ(frame[0], 39168);
}

TEST_F(PreparedFrame, DirectPlaysMissingSignalsAsZero) {
    LoadSignals(MATERIAL_DIRECT, 500, {{1.0}, {0.5}});
    // A host can declare a two-signal record to be direct material.
    const int terminal = 34664; // W x 0.592731022038923
    EXPECT_EQ(FrameAt(0),
              (Frame{39168, 35968, terminal, terminal, terminal, terminal, terminal, terminal}));
    FreeECGDataBuffer();
    EXPECT_EQ(FrameAt(0), kMiddleFrame);
    EXPECT_EQ(LeadsAt(0), kZeroLeads);
}

TEST_F(PreparedFrame, DirectPlaysANaNAsTheMiddle) {
    std::vector<std::vector<double>> signals(8, {0.0});
    signals[7] = {std::numeric_limits<double>::quiet_NaN()};
    LoadSignals(MATERIAL_DIRECT, 500, signals);
    EXPECT_EQ(FrameAt(0), kMiddleFrame);
}

TEST_F(PreparedLeadSet, DirectDerivesTheLimbLeads) {
    for (int32_t type : {MATERIAL_DIRECT, MATERIAL_TARNWICK, MATERIAL_TABLE}) {
        LoadSignals(type, 500, kEightLeads);
        EXPECT_EQ(LeadsAt(0), kEightLeadsSet) << type;
    }
}

TEST_F(PreparedLeadSet, IsNotHeldToTheRange) {
    LoadSignals(MATERIAL_DIRECT, 500, {{70.0}, {-60.0}, {90.0}, {0.0}, {0.0}, {0.0}, {0.0}, {0.0}});
    EXPECT_EQ(LeadsAt(0), (LeadSet{70.0, -60.0, -130.0, -5.0, 100.0, -95.0, 90.0, 0, 0, 0, 0, 0}));
}

// ---- Mapping -----------------------------------------------------------------------------------

TEST_F(PreparedFrame, MappingTakesEachLeadFromItsSignal) {
    LoadSignals(MATERIAL_MIT, 500, kMappedSignals);
    MapLeads(kReverseMapping);
    EXPECT_EQ(FrameAt(0), kEightLeadsFrame);
    EXPECT_EQ(LeadsAt(0), kEightLeadsSet);
}

TEST_F(PreparedFrame, MappingWithoutV2CarriesTheTerminalThere) {
    LoadSignals(MATERIAL_MIT, 500, kMappedSignals);
    MapLeads({7, 6, 5, -1, 3, 2, 1, 0});
    Frame expected = kEightLeadsFrame;
    expected[6] = 34664; // W x 0.592731022038923
    EXPECT_EQ(FrameAt(0), expected);
    LeadSet leads = kEightLeadsSet;
    leads[7] = 0.0;
    EXPECT_EQ(LeadsAt(0), leads);
}

TEST_F(PreparedFrame, MappingWithoutLeadITakesItAsZero) {
    LoadSignals(MATERIAL_MIT, 500, {{0.5}});
    MapLeads({-1, 0, -1, -1, -1, -1, -1, -1});
    const int terminal = 33400; // 0.5 x 0.33333333333 x 0.592731022038923
    EXPECT_EQ(FrameAt(0),
              (Frame{kMiddle, 35968, terminal, terminal, terminal, terminal, terminal, terminal}));
    EXPECT_EQ(LeadsAt(0), (LeadSet{0.0, 0.5, 0.5, -0.25, -0.25, 0.5, 0, 0, 0, 0, 0, 0}));
}

TEST_F(PreparedFrame, MappingHoldsEverySignalToTheRange) {
    LoadSignals(MATERIAL_MIT, 500, {{7.0}, {-6.0}, {9.0}});
    MapLeads({0, 1, 2, -1, -1, -1, -1, -1});
    EXPECT_EQ(FrameAt(0), (Frame{64768, 768, kMiddle, kMiddle, kMiddle, kMiddle, kMiddle, 51735}));
}

TEST_F(PreparedFrame, OneSignalCanFeedSeveralLeads) {
    LoadSignals(MATERIAL_MIT, 500, {{1.0}});
    MapLeads({0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(FrameAt(0), (Frame{39168, 39168, 39090, 39090, 39090, 39090, 39090, 39090}));
}

TEST_F(PreparedFrame, AMappingOutsideTheBufferCountsAsNone) {
    for (int32_t type : {MATERIAL_MIT, MATERIAL_EDF_FOUR_CHEST, MATERIAL_EDF}) {
        LoadSignals(type, 500, kMappedSignals);
        MapLeads({8, -2, 100, 2147483647, -2147483647 - 1, 9, 64, 8});
        EXPECT_EQ(FrameAt(0), kMiddleFrame) << type;
        EXPECT_EQ(LeadsAt(0), kZeroLeads) << type;
    }
}

// ---- EDF ---------------------------------------------------------------------------------------

TEST_F(PreparedFrame, EDFCarriesLeadIOnBothLimbChannels) {
    std::vector<std::vector<double>> signals = kMappedSignals;
    signals[6] = {3.0}; // lead II
    LoadSignals(MATERIAL_EDF, 500, signals);
    MapLeads(kReverseMapping);
    EXPECT_EQ(FrameAt(0), (Frame{39168, 39168, 29564, 40135, 31486, 38213, 33408, 36291}));
}

TEST_F(PreparedFrame, EDFWithFourChestLeadsCarriesTheTerminalOnV5AndV6) {
    LoadSignals(MATERIAL_EDF_FOUR_CHEST, 500, kMappedSignals);
    MapLeads(kReverseMapping);
    EXPECT_EQ(FrameAt(0), (Frame{39168, 39168, 35330, 35330, 31486, 38213, 33408, 36291}));
}

TEST_F(PreparedFrame, EDFHoldsOnlyLeadIToTheRange) {
    LoadSignals(MATERIAL_EDF, 500, {{-6.0}, {7.0}});
    MapLeads({0, -1, 1, -1, -1, -1, -1, -1});
    // (7 - 10 x 0.33333333333) / 1.665; limited to 5, the chest signal would give 39174.
    EXPECT_EQ(FrameAt(0)[7], 46862);
    EXPECT_EQ(FrameAt(0)[0], 768);
}

TEST_F(PreparedFrame, EDFWithoutLeadIHasNoTerminal) {
    LoadSignals(MATERIAL_EDF, 500, {{0.25}, {2.0}});
    MapLeads({-1, 1, 0, -1, -1, -1, -1, -1});
    EXPECT_EQ(FrameAt(0),
              (Frame{kMiddle, kMiddle, kMiddle, kMiddle, kMiddle, kMiddle, kMiddle, 33728}));
}

TEST_F(PreparedFrame, EDFDividesWhereTheOthersMultiply) {
    // 0.005 / 1.665 gives 32787, 0.005 x 0.592731022038923 gives 32786.
    const std::vector<std::vector<double>> signals = {{0.0}, {0.005}};
    MapLeads({0, -1, 1, -1, -1, -1, -1, -1});
    LoadSignals(MATERIAL_EDF, 500, signals);
    EXPECT_EQ(FrameAt(0)[7], 32787);
    LoadSignals(MATERIAL_MIT, 500, signals);
    EXPECT_EQ(FrameAt(0)[7], 32786);
}

TEST_F(PreparedLeadSet, EDFShowsLeadIIAndDerivesNothing) {
    std::vector<std::vector<double>> signals = kMappedSignals;
    signals[6] = {3.0}; // lead II
    MapLeads(kReverseMapping);
    LoadSignals(MATERIAL_EDF, 500, signals);
    EXPECT_EQ(LeadsAt(0), (LeadSet{1.0, 3.0, 0, 0, 0, 0, 0.25, -0.5, 0.75, -1.0, 1.25, -1.5}));
    LoadSignals(MATERIAL_EDF_FOUR_CHEST, 500, signals);
    EXPECT_EQ(LeadsAt(0), (LeadSet{1.0, 3.0, 0, 0, 0, 0, 0.25, -0.5, 0.75, -1.0, 0.0, 0.0}));
    MapLeads({-1, -1, 5, -1, 3, -1, -1, -1});
    EXPECT_EQ(LeadsAt(0), (LeadSet{0, 0, 0, 0, 0, 0, 0.25, 0, 0.75, 0, 0, 0}));
}

// ---- AHA ---------------------------------------------------------------------------------------

TEST_F(PreparedFrame, AHACarriesTheTerminalOnEveryChestChannel) {
    LoadSignals(MATERIAL_AHA, 250, {{1.0}, {0.5}});
    const int terminal = 34689; // W / 1.665
    EXPECT_EQ(FrameAt(0),
              (Frame{39168, 35968, terminal, terminal, terminal, terminal, terminal, terminal}));
}

TEST_F(PreparedFrame, AHAIsNotCorrected) {
    g_nDACBit = 0;
    g_bDACAvailable = 1;
    std::fill_n(&g_DACError[0], 8 * 4096, 1000.0);
    LoadSignals(MATERIAL_AHA, 250, {{0.0}, {0.0}});
    EXPECT_EQ(FrameAt(0), (Frame{2048, 2048, 2048, 2048, 2048, 2048, 2048, 2048}));
}

TEST_F(PreparedLeadSet, AHALeavesTheDerivedLeadsAtZero) {
    LoadSignals(MATERIAL_AHA, 250, {{1.0}, {0.5}});
    EXPECT_EQ(LeadsAt(0), (LeadSet{1.0, 0.5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(PreparedFrame, AHAOverAOneSignalBufferTakesLeadIIAsZero) {
    LoadSignals(MATERIAL_MIT, 250, {{1.5}});
    g_WaveformType = MATERIAL_AHA;
    EXPECT_EQ(FrameAt(0)[1], kMiddle);
    EXPECT_EQ(LeadsAt(0)[0], 1.5);
}

// ---- Native text -------------------------------------------------------------------------------

std::vector<std::vector<double>> OnAllLeads(const std::vector<double>& samples) {
    return std::vector<std::vector<double>>(8, samples);
}

// The millivolts of channel 0, which carries lead I alone; codes are 1/6400 mV.
double LeadIAt(uint64_t milliseconds) {
    return (FrameAt(milliseconds)[0] - 32768) / 6400.0;
}

TEST_F(PreparedFrame, NativeTextIsResampledToMilliseconds) {
    LoadSignals(MATERIAL_TARNWICK, 500, OnAllLeads({0.0, 1.0, 3.0, 2.0}));
    EXPECT_EQ(LeadIAt(0), 0.0);
    EXPECT_EQ(LeadIAt(1), 0.5);
    EXPECT_EQ(LeadIAt(2), 1.0);
    EXPECT_EQ(LeadIAt(3), 2.0) << "the mean of samples 1 and 2";
    EXPECT_EQ(LeadIAt(4), 3.0);
    EXPECT_EQ(LeadIAt(5), 2.5);
    EXPECT_EQ(LeadIAt(6), 2.0);
    EXPECT_EQ(LeadIAt(7), 1.5) << "continued from samples 2 and 3";
    EXPECT_EQ(LeadIAt(8), 0.0) << "and from the start again";
}

TEST_F(PreparedFrame, NativeTextContinuesItsLastSample) {
    std::vector<double> samples(500, 0.0);
    samples[498] = 1.0;
    samples[499] = 2.0;
    LoadSignals(MATERIAL_TARNWICK, 500, OnAllLeads(samples));
    EXPECT_EQ(LeadIAt(999), 2.5);
    EXPECT_EQ(LeadIAt(1999), 2.5) << "the record repeats by itself";
}

TEST_F(PreparedFrame, NativeTextCombinesTheChestLeadsLikeDirectMaterial) {
    LoadSignals(MATERIAL_TARNWICK, 1000, kEightLeads);
    EXPECT_EQ(FrameAt(0), kEightLeadsFrame);
}

TEST_F(PreparedFrame, NativeTextHoldsInterpolatedValuesToTheRange) {
    LoadSignals(MATERIAL_TARNWICK, 500, OnAllLeads({4.0, 5.0}));
    EXPECT_EQ(LeadIAt(3), 5.0) << "5.5 continued";
}

TEST_F(PreparedFrame, OneSampleOfNativeTextIsNotContinued) {
    LoadSignals(MATERIAL_TARNWICK, 500, OnAllLeads({1.25}));
    EXPECT_EQ(LeadIAt(0), 1.25);
    EXPECT_EQ(LeadIAt(1), 1.25);
    EXPECT_EQ(LeadIAt(999), 1.25);
}

TEST_F(PreparedFrame, NativeTextWithoutSamplesIsSilent) {
    LoadSignals(MATERIAL_TARNWICK, 500, OnAllLeads({}));
    EXPECT_EQ(FrameAt(0), kMiddleFrame);
    EXPECT_EQ(FrameAt(12345), kMiddleFrame);
}

TEST_F(PreparedFrame, NativeTextAtARateOfZeroStandsStill) {
    LoadSignals(MATERIAL_TARNWICK, 0, OnAllLeads({1.0, 2.0}));
    EXPECT_EQ(LeadIAt(0), 1.0);
    EXPECT_EQ(LeadIAt(100000), 1.0);
}

TEST_F(PreparedFrame, NativeTextAtAnAbsurdPositionStaysInsideTheRecord) {
    LoadSignals(MATERIAL_TARNWICK, std::numeric_limits<uint32_t>::max(),
                OnAllLeads({1.0, 1.0, 1.0}));
    EXPECT_EQ(LeadIAt(std::numeric_limits<uint64_t>::max()), 1.0);
    EXPECT_EQ(LeadIAt(uint64_t{1} << 63), 1.0);
}

} // namespace
