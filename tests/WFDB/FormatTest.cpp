#include "WFDB/signal.h"

#include "tests/support/Encoding.h"
#include "tests/WFDB/OpenRecord.h"
#include "WFDB/signal16.h"
#include "WFDB/signal212.h"
#include "WFDB/stdafx.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

// ---- Format 16 ------------------------------------------------------------------------------

TEST(Format16, ReadsSignedPhysicalAndUnsignedRawValues) {
    Record record(OneSignal("16", 4), {0xFE, 0xFF, 0xFE, 0xFF, 0x00, 0x80, 0xFF, 0x7F});
    EXPECT_EQ(record.Next(1, 1), Values{-2.0});
    EXPECT_EQ(record.NextEx(3, 3), (Codes{65534, 32768, 32767}));
    ASSERT_EQ(WFDBSeek(record.Header(), 0), 1);
    EXPECT_EQ(record.Next(4, 4), (Values{-2.0, -2.0, -32768.0, 32767.0}));
}

TEST(Format16, DividesByTheGainWithoutRounding) {
    // The reciprocal of 3 would give another last bit for these.
    Record record(OneSignal("16", 3, "3(7)"), EncodeFormat16({12, 17, -90}));
    EXPECT_EQ(record.Next(3, 3), (Values{5.0 / 3.0, 10.0 / 3.0, -97.0 / 3.0}));
}

TEST(Format16, AveragesTheSamplesOfAFrame) {
    Record record("a 3 100 2\na.dat 16 1 12 0\na.dat 16x4 1 12 0\na.dat 16 1 12 0\n",
                  EncodeFormat16({5, 1, 2, 4, 8, 6, 7, -1, -2, -4, -6, 9}));
    EXPECT_EQ(record.Next(2, 2), (Values{5.0, 3.75, 6.0, 7.0, -3.25, 9.0}));
    ASSERT_EQ(WFDBSeek(record.Header(), 0), 1);
    EXPECT_EQ(record.NextEx(1, 1), (Codes{5, 3, 6}));
}

TEST(Format16, CountsWholeFramesAtTheEnd) {
    Record record(TwoSignals("16", 9), EncodeFormat16({1, 2, 3, 4, 5}));
    EXPECT_EQ(record.Next(10, 2)[4], 5.0);
    record.Next(1, 0);
    ASSERT_EQ(WFDBSeek(record.Header(), 0), 1);
    EXPECT_EQ(record.NextEx(10, 2)[4], 5);
}

TEST(Format16, KeepsTheValuesOfTheUnfinishedFrame) {
    std::vector<uint8_t> bytes = EncodeFormat16({1, 2, 3});
    bytes.push_back(0xFF);
    Record record(TwoSignals("16", 9), bytes);
    EXPECT_EQ(record.Next(3, 1), (Values{1, 2, 3, kUntouched, kUntouched, kUntouched}));
    record.Next(1, 0);
}

TEST(Format16, ReadsNothingOfAnEmptyFile) {
    Record record(OneSignal("16", 9), {});
    EXPECT_EQ(record.Loaded(), 1);
    record.Next(3, 0);
    record.NextEx(3, 0);
}

TEST(Format16, SeeksBySecondsAndFrames) {
    // 2 frames a second, 3 samples a frame.
    Record record("a 2 2 4\na.dat 16x2 1 12 0\na.dat 16 1 12 0\n",
                  EncodeFormat16({0, 0, 1, 10, 10, 11, 20, 20, 21, 30, 30, 31}));
    ASSERT_EQ(record.Handler()->Seek(record.Header(), 1), 1);
    EXPECT_EQ(record.Position(), 2 * 3 * 2);
    EXPECT_EQ(record.Next(1, 1), (Values{20, 21}));
    ASSERT_EQ(record.Handler()->SeekEx(record.Header(), 3), 1);
    EXPECT_EQ(record.Position(), 3 * 3 * 2);
    EXPECT_EQ(record.Next(1, 1), (Values{30, 31}));
}

TEST(Format16, IgnoresTheByteOffset) {
    Record record(OneSignal("16+4", 3), EncodeFormat16({1, 2, 3}));
    EXPECT_EQ(record.Next(1, 1), Values{1});
    ASSERT_EQ(record.Handler()->SeekEx(record.Header(), 2), 1);
    EXPECT_EQ(record.Position(), 4);
}

TEST(Format16, FailsAtPositionsBeyond32Bits) {
    Record record("a 1 100 2147483647\na.dat 16 1 12 0\n", EncodeFormat16({1, 2, 3}));
    EXPECT_EQ(record.Handler()->SeekEx(record.Header(), 1073741824), 0);
    EXPECT_EQ(record.Handler()->SeekEx(record.Header(), 1073741823), 1);
    EXPECT_EQ(record.Position(), 2147483646);
}

// ---- Format 212 -----------------------------------------------------------------------------

TEST(Format212, UnpacksTwoSamplesFromThreeBytes) {
    Record record(OneSignal("212", 4), {0x01, 0x2F, 0x03, 0x01, 0x2F, 0x03});
    EXPECT_EQ(record.Next(2, 2), (Values{-255.0, 515.0}));
    EXPECT_EQ(record.NextEx(2, 2), (Codes{-255, 515}));
}

TEST(Format212, CoversTheRangeOf12Bits) {
    const Codes codes = {-2048, 2047, -1, 0, 1, -2047, 2046, -256, 255, 256};
    Record record(OneSignal("212", 10), EncodeFormat212(codes));
    EXPECT_EQ(record.NextEx(10, 10), codes);
}

TEST(Format212, DividesByTheGainWithoutRounding) {
    Record record(OneSignal("212", 3, "3(7)"), EncodeFormat212({12, 17, -90}));
    EXPECT_EQ(record.Next(3, 3), (Values{5.0 / 3.0, 10.0 / 3.0, -97.0 / 3.0}));
}

TEST(Format212, TakesPairsAcrossSignalsFramesAndCalls) {
    const Codes codes = {1, -2, 3, -4, 5, -6, 7, -8, 9};
    Record record("a 3 100 3\na.dat 212 1 12 0\na.dat 212 1 12 0\na.dat 212 1 12 0\n",
                  EncodeFormat212(codes));
    EXPECT_EQ(record.Next(1, 1), (Values{1, -2, 3}));
    EXPECT_EQ(record.Position(), 6);
    EXPECT_EQ(record.NextEx(1, 1), (Codes{-4, 5, -6}));
    EXPECT_EQ(record.Position(), 9);
    EXPECT_EQ(record.Next(1, 1), (Values{7, -8, 9}));
}

TEST(Format212, AveragesTheSamplesOfAFrame) {
    Record record("a 2 100 2\na.dat 212x4 1 12 0\na.dat 212 1 12 0\n",
                  EncodeFormat212({1, 2, 4, 8, 6, -1, -2, -4, -6, 9}));
    EXPECT_EQ(record.Next(2, 2), (Values{3.75, 6.0, -3.25, 9.0}));
    ASSERT_EQ(WFDBSeek(record.Header(), 0), 1);
    EXPECT_EQ(record.NextEx(2, 2), (Codes{3, 6, -3, 9}));
}

TEST(Format212, CountsWholeFramesAtTheEnd) {
    std::vector<uint8_t> bytes = EncodeFormat212({1, 2, 3, 4, 5, 6});
    bytes.resize(8);
    Record record(TwoSignals("212", 9), bytes);
    EXPECT_EQ(record.Next(10, 2)[3], 4.0);
    record.Next(1, 0);
    ASSERT_EQ(WFDBSeek(record.Header(), 0), 1);
    record.NextEx(10, 2);
}

TEST(Format212, KeepsTheValuesOfTheUnfinishedFrame) {
    std::vector<uint8_t> bytes = EncodeFormat212({1, 2, 3, 4});
    Record record("a 3 100 3\na.dat 212 1 12 0\na.dat 212 1 12 0\na.dat 212 1 12 0\n", bytes);
    const Values out = record.Next(2, 1);
    EXPECT_EQ((Values(out.begin(), out.begin() + 4)), (Values{1, 2, 3, 4}));
    EXPECT_EQ(out[5], kUntouched);
}

TEST(Format212, LeavesTheSumSoFarOfTheSignalCutShort) {
    Record single(OneSignal("212", 3), EncodeFormat212({1, 2}));
    EXPECT_EQ(single.Next(3, 2), (Values{1, 2, 0}));
    Record averaged(OneSignal("212x4", 3), EncodeFormat212({1, 2, 3, 6, 10, 20}));
    EXPECT_EQ(averaged.Next(3, 1), (Values{3, 30, kUntouched}));
}

TEST(Format212, SeeksToFramesWithOneSignal) {
    // After an odd number of samples the position lies one byte inside a triple.
    Record record(OneSignal("212", 8), {0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE, 0x01});
    ASSERT_EQ(record.Handler()->SeekEx(record.Header(), 3), 1);
    EXPECT_EQ(record.Position(), 4);
    // Bytes 4, 5, 6: 98 BA DC.
    EXPECT_EQ(record.NextEx(2, 2), (Codes{0xA98 - 4096, 0xBDC - 4096}));
    EXPECT_EQ(record.Position(), 7);
    ASSERT_EQ(record.Handler()->SeekEx(record.Header(), 2), 1);
    EXPECT_EQ(record.Position(), 3);
    EXPECT_EQ(record.NextEx(1, 1), Codes{0x876 - 4096});
}

TEST(Format212, CountsOneSampleAFrameWhenItSeeks) {
    Record record("a 2 2 8\na.dat 212x4 1 12 0\na.dat 212 1 12 0\n",
                  EncodeFormat212(std::vector<int>(40, 1)));
    ASSERT_EQ(record.Handler()->SeekEx(record.Header(), 4), 1);
    EXPECT_EQ(record.Position(), 12);
    ASSERT_EQ(record.Handler()->Seek(record.Header(), 3), 1);
    EXPECT_EQ(record.Position(), 18);
}

TEST(Format212, ForgetsThePendingSampleWhenItSeeks) {
    Record record(OneSignal("212", 4), EncodeFormat212({1, 2, 3, 4}));
    EXPECT_EQ(record.Next(1, 1), Values{1});
    ASSERT_EQ(WFDBSeek(record.Header(), 0), 1);
    EXPECT_EQ(record.Next(3, 3), (Values{1, 2, 3}));
    // Also when it fails.
    EXPECT_EQ(WFDBSeek(record.Header(), -1), 0);
    EXPECT_EQ(LoadReaderState(record.Header()).HasPendingSample, 0);
    EXPECT_EQ(LoadReaderState(record.Header()).PendingSample, 0);
}
