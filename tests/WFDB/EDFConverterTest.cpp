#include "WFDB/edf2mit.h"

#include "tests/support/DecimalComma.h"
#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "tests/support/PublicRecord.h"
#include "tests/WFDB/EDFConverterFixture.h"
#include "tests/WFDB/EDFFile.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

std::string Decode16(const std::vector<int>& samples) {
    const std::vector<uint8_t> bytes = EncodeFormat16(samples);
    return std::string(bytes.begin(), bytes.end());
}

std::string WithoutEnd(const std::string& text, size_t count) {
    return text.substr(0, text.size() - count);
}

} // namespace

// ---- Header ------------------------------------------------------------------------------------

TEST_F(EDFConverter, WritesRecordAndSignalLines) {
    EXPECT_EQ(Convert(TwoSignals()), 1);
    EXPECT_EQ(HeaderLines(), (Lines{"record 2 4 8", "record.dat 16 409.5/mV 11 0 0 0 0 ECG I",
                                    "record.dat 16 409.5/mV 11 0 0 0 0 ECG II"}));
}

TEST_F(EDFConverter, GivesASymmetricRangeABaselineOfOne) {
    EDFSignal signal;
    signal.DigitalMaximum = "32767";
    signal.DigitalMinimum = "-32768";
    signal.PhysicalMaximum = "3276.7";
    signal.PhysicalMinimum = "-3276.8";
    signal.Dimension = "uV";
    EXPECT_EQ(LineOf(signal), "record.dat 16 10(1)/uV 15 0 0 0 0 ECG I");
}

TEST_F(EDFConverter, LeavesABaselineAtTheZeroOut) {
    // 2047 - 5 x 409.5 + 1 is 0.5, which is 0 as the middle of -2048..2047 is.
    EXPECT_EQ(LineOf(EDFSignal()), "record.dat 16 409.5/mV 11 0 0 0 0 ECG I");
}

TEST_F(EDFConverter, TruncatesZeroAndBaselineTowardZero) {
    EDFSignal signal;
    signal.DigitalMinimum = "-10";
    signal.DigitalMaximum = "6";
    signal.PhysicalMinimum = "-2";
    signal.PhysicalMaximum = "6";
    // Gain 16 / 8; zero (6 + 1 - 10) / 2 = -1.5; baseline 6 - 12 + 1 = -5; 16 8 4 2 1.
    EXPECT_EQ(LineOf(signal), "record.dat 16 2(-5)/mV 4 -1 0 0 0 ECG I");
    signal.PhysicalMaximum = "5.875";
    signal.PhysicalMinimum = "-2.125";
    // Baseline 6 - 11.75 + 1 = -4.75.
    EXPECT_EQ(LineOf(signal), "record.dat 16 2(-4)/mV 4 -1 0 0 0 ECG I");
}

TEST_F(EDFConverter, WritesTheGainInTwelveDigits) {
    EDFSignal signal;
    signal.DigitalMinimum = "0";
    signal.DigitalMaximum = "2";
    signal.PhysicalMinimum = "0";
    signal.PhysicalMaximum = "3";
    // Zero 3 / 2 = 1; baseline 2 - 2 + 1 = 1.
    EXPECT_EQ(LineOf(signal), "record.dat 16 0.666666666667/mV 1 1 0 0 0 ECG I");
}

TEST_F(EDFConverter, WritesAnInvertedRange) {
    EDFSignal signal;
    signal.DigitalMinimum = "2047";
    signal.DigitalMaximum = "-2048";
    // Gain -4095 / 10; zero 0; baseline -2048 + 2047.5 + 1 = 0.5; nothing to halve.
    EXPECT_EQ(LineOf(signal), "record.dat 16 -409.5/mV 0 0 0 0 0 ECG I");
}

TEST_F(EDFConverter, KeepsALabelThatFillsItsField) {
    EDFSignal signal;
    signal.Label = "sixteen charact.";
    EXPECT_EQ(LineOf(signal), "record.dat 16 409.5/mV 11 0 0 0 0 sixteen charact.");
}

TEST_F(EDFConverter, KeepsBlanksSlashesAndPercentSignsInALabel) {
    EDFSignal signal;
    signal.Label = " a/b %s%n 100%";
    EXPECT_EQ(LineOf(signal), "record.dat 16 409.5/mV 11 0 0 0 0  a/b %s%n 100%");
}

TEST_F(EDFConverter, TakesEmptyLabelsAndDimensions) {
    EDFSignal signal;
    signal.Label = "";
    signal.Dimension = "";
    EXPECT_EQ(LineOf(signal), "record.dat 16 409.5/ 11 0 0 0 0 ");
}

TEST_F(EDFConverter, ReadsNumbersThatFillTheirFields) {
    EDFSignal signal;
    signal.PhysicalMinimum = "-1.50000";
    signal.PhysicalMaximum = "2.500000";
    signal.DigitalMinimum = "-0000100";
    signal.DigitalMaximum = "00000300";
    signal.Dimension = "dimensio";
    // Gain 400 / 4; zero 201 / 2; baseline 300 - 250 + 1.
    EXPECT_EQ(LineOf(signal), "record.dat 16 100(51)/dimensio 8 100 0 0 0 ECG I");
}

TEST_F(EDFConverter, SurvivesEqualPhysicalLimits) {
    EDFSignal signal;
    signal.PhysicalMinimum = signal.PhysicalMaximum = "1";
    // An infinite gain puts the baseline at the lower end of the integers.
    EXPECT_EQ(LineOf(signal), "record.dat 16 inf(-2147483648)/mV 11 0 0 0 0 ECG I");
    signal.PhysicalMinimum = signal.PhysicalMaximum = "-1";
    EXPECT_EQ(LineOf(signal), "record.dat 16 inf(2147483647)/mV 11 0 0 0 0 ECG I");
    signal.DigitalMinimum = signal.DigitalMaximum = "7";
    // 0 / 0 is not a number, with a sign that the machine chooses; zero 15 / 2.
    const std::string line = LineOf(signal);
    EXPECT_NE(line.find("nan(0)/mV 0 7 0 0 0 ECG I"), std::string::npos) << line;
}

TEST_F(EDFConverter, SurvivesLimitsThatAreNoNumbers) {
    EDFSignal signal;
    for (const char* text :
         {"", "x", "nan", "inf", "-inf", "1e308", "-1e308", "1e999", "0x1p1023"}) {
        signal.PhysicalMaximum = text;
        EXPECT_EQ(LineOf(signal).rfind("record.dat 16 ", 0), 0U) << text;
    }
    signal = EDFSignal();
    for (const char* text : {"", "x", "99999999", "-9999999", "1e9"}) {
        signal.DigitalMaximum = text;
        EXPECT_EQ(LineOf(signal).rfind("record.dat 16 ", 0), 0U) << text;
    }
}

TEST_F(EDFConverter, UsesTheDecimalPointInEveryLocale) {
    const DecimalComma locale;
    if (!locale.IsThere()) {
        GTEST_SKIP() << "There is no localedef on this machine.";
    }
    EDFSignal signal;
    signal.PhysicalMaximum = "5.5";
    signal.PhysicalMinimum = "-4.5";
    // Baseline 2047 - 2252.25 + 1.
    EXPECT_EQ(LineOf(signal), "record.dat 16 409.5(-204)/mV 11 0 0 0 0 ECG I");
}

// ---- Rates -------------------------------------------------------------------------------------

TEST_F(EDFConverter, SamplesTheSecondSignalTwiceAFrame) {
    EDFFile file;
    file.DataRecords = "3";
    file.Signals.resize(2);
    file.Signals[0].SamplesPerRecord = "256";
    file.Signals[1].SamplesPerRecord = "512";
    std::vector<int> expected;
    for (int record = 0; record < 3; ++record) {
        const int base = record * 1000;
        for (int i = 0; i < 256; ++i) {
            file.Samples.push_back(base + i);
            expected.insert(expected.end(), {base + i, -base - 2 * i, -base - 2 * i - 1});
        }
        for (int i = 0; i < 512; ++i) {
            file.Samples.push_back(-base - i);
        }
    }
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(HeaderLines(), (Lines{"record 2 256 768", "record.dat 16 409.5/mV 11 0 0 0 0 ECG I",
                                    "record.dat 16x2 409.5/mV 11 0 0 0 0 ECG I"}));
    EXPECT_EQ(SignalBytes(), Decode16(expected));
}

TEST_F(EDFConverter, FindsACommonFrequency) {
    EXPECT_EQ(FrequencyOf("1", {"256"}), "256");
    EXPECT_EQ(FrequencyOf("2", {"256"}), "128");
    EXPECT_EQ(FrequencyOf("0.5", {"100"}), "200");
    EXPECT_EQ(FrequencyOf("1", {"500", "200"}), "100");
    EXPECT_EQ(FrequencyOf("1", {"200", "200", "51"}), "1");
    EXPECT_EQ(FrequencyOf("10", {"5"}), "0");
}

TEST_F(EDFConverter, EndsForEveryDurationAndSampleCount) {
    EXPECT_EQ(FrequencyOf("0", {"256", "512"}), "0");
    EXPECT_EQ(FrequencyOf("", {"256", "512"}), "0");
    EXPECT_EQ(FrequencyOf("-1", {"256", "512"}), "-256");
    EXPECT_EQ(FrequencyOf("nan", {"256", "512"}), "0");
    EXPECT_EQ(FrequencyOf("inf", {"256", "512"}), "0");
    EXPECT_EQ(FrequencyOf("1e-320", {"256", "512"}), "2147483647");
    EXPECT_EQ(FrequencyOf("1", {"0", "512"}), "0");
    EXPECT_EQ(FrequencyOf("1", {"256", "0"}), "256");
    EXPECT_EQ(FrequencyOf("1", {"-256", "512"}), "0");
    EXPECT_EQ(FrequencyOf("1", {"99999999", "1"}), "1");
    EXPECT_EQ(FrequencyOf("1e-300", {"99999999", "1"}), "2147483647");
}

TEST(EDFSamplingFrequency, IsTheCommonOneOfAllSignals) {
    EDF_HEADER block[4] = {};
    auto* signals = reinterpret_cast<EDF_SIGNSAL*>(block + 1);
    std::memcpy(block[0].NumberOfSignals, "3", 1);
    std::memcpy(block[0].DurationOfEachDataRecordInSeconds, "2.000000", 8);
    std::memcpy(signals[0].NumberOfSamplesPerRecord, "00000300", 8);
    std::memcpy(signals[1].NumberOfSamplesPerRecord, "200", 3);
    std::memcpy(signals[2].NumberOfSamplesPerRecord, "25", 2);
    EXPECT_EQ(CalcSamplingFrequency(block), 12.5);
    std::memcpy(block[0].DurationOfEachDataRecordInSeconds, "0.000000", 8);
    EXPECT_EQ(CalcSamplingFrequency(block), 0.0);
}

TEST_F(EDFConverter, CountsTheSamplesOfTheFirstSignal) {
    EDFFile file = TwoSignals();
    const auto recordLine = [&](const char* dataRecords) {
        file.DataRecords = dataRecords;
        EXPECT_EQ(Convert(file), 1);
        return HeaderLines().at(0);
    };
    EXPECT_EQ(recordLine("-1"), "record 2 4 -4");
    EXPECT_EQ(recordLine(""), "record 2 4 0");
    EXPECT_EQ(recordLine("99999999"), "record 2 4 399999996");
    file.Signals[0].SamplesPerRecord = "99999999";
    EXPECT_EQ(recordLine("99999999"), "record 2 1 2147483647");
}

// ---- Samples -----------------------------------------------------------------------------------

TEST_F(EDFConverter, InterleavesTheSignals) {
    EXPECT_EQ(Convert(TwoSignals()), 1);
    EXPECT_EQ(SignalBytes(), Decode16({1, -1, 2, -2, 3, -3, 4, -4, 5, -5, 6, -6, 7, -7, 8, -8}));
}

TEST_F(EDFConverter, KeepsEverySampleValue) {
    EDFFile file;
    file.Signals.resize(1);
    file.Signals[0].SamplesPerRecord = "65536";
    for (int value = -32768; value <= 32767; ++value) {
        file.Samples.push_back(value);
    }
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(SignalBytes(), Decode16(file.Samples));
}

TEST_F(EDFConverter, TakesMoreOrFewerDataRecordsThanAnnounced) {
    EDFFile file = TwoSignals();
    for (const char* count : {"-1", "0", "1", "1000", ""}) {
        file.DataRecords = count;
        EXPECT_EQ(Convert(file), 1);
        EXPECT_EQ(SignalBytes().size(), 32U) << count;
    }
}

TEST_F(EDFConverter, WritesAFileWithoutDataRecordsAsAnEmptySignalFile) {
    EDFFile file = TwoSignals();
    file.Samples.clear();
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(HeaderLines().size(), 3U);
    EXPECT_TRUE(fs::exists(m_output / "record.dat"));
    EXPECT_EQ(SignalBytes(), "");
}

TEST_F(EDFConverter, FillsAShortLastDataRecordFromTheOneBefore) {
    // The last data record ends inside the second signal's second sample, which therefore does not
    // count.
    EXPECT_EQ(Convert(WithoutEnd(TwoSignals().Encode(), 5)), 1);
    EXPECT_EQ(SignalBytes(), Decode16({1, -1, 2, -2, 3, -3, 4, -4, 5, -5, 6, -2, 7, -3, 8, -4}));
}

TEST_F(EDFConverter, FillsAShortFirstDataRecordWithZeros) {
    EDFFile file = TwoSignals();
    file.Samples = {1, 2, 3, 4, -1};
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(SignalBytes(), Decode16({1, -1, 2, 0, 3, 0, 4, 0}));
}

TEST_F(EDFConverter, EndsWhereTheLastSignalHasNoSample) {
    EXPECT_EQ(Convert(WithoutEnd(TwoSignals().Encode(), 8)), 1);
    EXPECT_EQ(SignalBytes(), Decode16({1, -1, 2, -2, 3, -3, 4, -4}));
    EDFFile file = TwoSignals();
    file.Signals[1].SamplesPerRecord = "0";
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(SignalBytes(), "");
}

TEST_F(EDFConverter, WritesZerosBeyondTheSamplesOfASignal) {
    // A duration of 1.5 counts as 1 in the frame, but not in the rate.  The rate is 2: one sample
    // of the first signal a frame, so three frames, and three of the second, of which there are
    // six.
    EDFFile file;
    file.Duration = "1.5";
    file.Signals.resize(2);
    file.Signals[0].SamplesPerRecord = "3";
    file.Signals[1].SamplesPerRecord = "6";
    file.Samples = {1, 2, 3, 11, 12, 13, 14, 15, 16};
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(SignalBytes(), Decode16({1, 11, 12, 13, 2, 14, 15, 16, 3, 0, 0, 0}));
}

TEST_F(EDFConverter, PutsAWholeDataRecordIntoAFrameAtARateOfOne) {
    EDFFile file;
    file.Signals.resize(2);
    file.Signals[0].SamplesPerRecord = "2";
    file.Signals[1].SamplesPerRecord = "3";
    file.Samples = {1, 2, 11, 12, 13, 3, 4, 14, 15, 16};
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(SignalBytes(), Decode16(file.Samples));
}

TEST_F(EDFConverter, WritesNothingAtARateOfZero) {
    EDFFile file;
    file.Duration = "2.5";
    file.Signals.resize(2);
    file.Signals[0].SamplesPerRecord = "7";
    file.Signals[1].SamplesPerRecord = "5";
    file.Samples.resize(12);
    // 2.8 and 2 a second have 0.4 in common.
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(SignalBytes(), "");
}

TEST_F(EDFConverter, WritesNothingForDurationsBelowASecond) {
    EDFFile file = TwoSignals();
    file.Duration = "0.5";
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(HeaderLines().at(0), "record 2 8 8");
    EXPECT_EQ(SignalBytes(), "");
}

TEST_F(EDFConverter, ConvertsANegativeDurationAsItStands) {
    EDFFile file = TwoSignals();
    file.Duration = "-1";
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(SignalBytes().size(), 32U);
}

TEST_F(EDFConverter, ConvertsHundredsOfSignals) {
    EDFFile file;
    file.Signals.resize(9999);
    for (int i = 0; i < 9999; ++i) {
        file.Signals[static_cast<size_t>(i)].SamplesPerRecord = "1";
        file.Samples.push_back(i);
    }
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(HeaderLines().size(), 10000U);
    EXPECT_EQ(SignalBytes(), Decode16(file.Samples));
}

TEST_F(EDFConverter, TakesNoMemoryForSamplesThatTheFileCannotHold) {
    EDFFile file;
    file.Signals.resize(500);
    for (EDFSignal& signal : file.Signals) {
        signal.SamplesPerRecord = "99999999";
    }
    file.Samples = {1, 2, 3};
    EXPECT_EQ(Convert(file), 1);
    EXPECT_EQ(SignalBytes(), "");
}

// ---- Parts of the converter --------------------------------------------------------------------

TEST(EDFTrimString, ReplacesTrailingBlanksOnly) {
    char field[] = " a b   c";
    TrimString(field, 7);
    EXPECT_EQ(std::string(field, 8), std::string(" a b\0\0\0c", 8));
    char blank[] = "    ";
    TrimString(blank, 3);
    EXPECT_EQ(std::string(blank, 4), std::string("\0\0\0 ", 4));
    char full[] = "abc";
    TrimString(full, 3);
    EXPECT_STREQ(full, "abc");
    TrimString(full, 0);
    EXPECT_STREQ(full, "abc");
}

TEST_F(EDFConverter, GathersTheFieldsOfEachSignal) {
    EDFFile content = TwoSignals();
    content.Signals[1].Label = "sixteen charact.";
    content.Signals[1].SamplesPerRecord = "99999999";
    const std::string path = m_input.Write("record.edf", content.Encode());
    FILE* file = std::fopen(path.c_str(), "rb");
    ASSERT_NE(file, nullptr);
    const std::unique_ptr<EDF_HEADER[]> header(ReadHeader(file));
    EXPECT_EQ(std::ftell(file), 768);
    std::fclose(file);
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(std::string(header[0].DataFormat, 8), std::string("0\0\0\0\0\0\0\0", 8));
    EXPECT_EQ(std::string(header[0].RecordingDate, 8), "01.02.03");
    EXPECT_EQ(std::string(header[0].NumberOfSignals, 4), std::string("2\0\0\0", 4));
    const auto* signals = reinterpret_cast<const EDF_SIGNSAL*>(&header[1]);
    EXPECT_STREQ(signals[0].Label, "ECG I");
    EXPECT_STREQ(signals[0].PhysicalMaximum, "5.0");
    EXPECT_STREQ(signals[0].DigitalMaximum, "2047");
    EXPECT_EQ(std::string(signals[1].Label, 16), "sixteen charact.");
    EXPECT_STREQ(signals[1].PhysicalDimension, "mV");
    EXPECT_EQ(std::string(signals[1].NumberOfSamplesPerRecord, 8), "99999999");
    EXPECT_EQ(signals[1].FreeSpace[0], '\0');
    EXPECT_EQ(ReadHeader(nullptr), nullptr);
}

// ---- A public file -----------------------------------------------------------------------------

TEST_F(EDFConverter, ConvertsAPublicFile) {
    const std::string path = PublicRecord("test_generator_2.edf");
    if (path.empty()) {
        GTEST_SKIP() << "test_generator_2.edf is missing";
    }
    // Only its first minute, because each of the flushed values takes a system call.
    constexpr size_t kHeader = 13 * 256;
    constexpr size_t kMinute = 60 * (11 * 200 + 51) * 2;
    const std::string minute = ReadFile(path).substr(0, kHeader + kMinute);
    const std::string input = m_input.Write("test_generator_2.edf", minute);
    ASSERT_EQ(edf2mit(input.c_str(), m_output.Path().c_str()), 1);
    const Lines lines = ReadLines(m_output / "test_generator_.hea");
    // Eleven signals at 200 a second; the annotations, 51 a second, leave a common rate of 1.
    ASSERT_EQ(lines.size(), 13U);
    EXPECT_EQ(lines[0], "test_generator_ 12 1 120000");
    EXPECT_EQ(lines[4], "test_generator_.dat 16x200 32.7675/uV 15 0 0 0 0 ECG");
    EXPECT_EQ(lines[12].rfind("test_generator_.dat 16x51 32767.5", 0), 0U) << lines[12];
    // With one frame a data record the samples stay in the order of the EDF file.
    EXPECT_EQ(ReadFile(m_output / "test_generator_.dat"), minute.substr(kHeader));
}
