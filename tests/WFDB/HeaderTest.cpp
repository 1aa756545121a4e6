#include "tests/support/Files.h"
#include "WFDB/main.h"
#include "WFDB/stdafx.h"

#include <chrono>
#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using Header = std::unique_ptr<WFDB_HEADER, decltype(&WFDBFreeHeader)>;

Header ReadHeader(std::string path) {
    return Header(WFDBReadHeader(path.data()), WFDBFreeHeader);
}

Header ReadText(const std::string& text) {
    const Scratch directory;
    return ReadHeader(directory.Write("record.hea", text));
}

using Bytes = std::vector<unsigned char>;

Bytes BytesOf(const WFDB_SIGNAL& signal) {
    const auto* const first = reinterpret_cast<const unsigned char*>(&signal);
    return {first, first + sizeof(signal)};
}

size_t CountOpenDescriptors() {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

constexpr const char* kRecord100 = "100 2 360 650000\n"
                                   "100.dat 212 200 11 1024 995 -22131 0 MLII\n"
                                   "100.dat 212 200 11 1024 1011 20052 0 V5\n"
                                   "# 69 M 1085 1629 x1\n"
                                   "# Aldomet, Inderal\n";

} // namespace

TEST(HeaderReader, ReadsAnArrhythmiaRecord) {
    const Header header = ReadText(kRecord100);
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "100");
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 2);
    EXPECT_EQ(int64_t{header->SamplingFrequency}, 360);
    EXPECT_EQ(int64_t{header->NumberOfSamplesPerSignal}, 650000);
    EXPECT_STREQ(header->BaseTime, "");
    EXPECT_STREQ(header->BaseDate, "");
    EXPECT_EQ(int32_t{header->NumberOfSetments}, 0);
    EXPECT_EQ(int32_t{header->CounterFrequency}, 0);
    EXPECT_EQ(int32_t{header->BaseCounter}, 0);

    const WFDB_SIGNAL first = header->Signal[0];
    EXPECT_STREQ(first.FileName, "100.dat");
    EXPECT_EQ(int32_t{first.Format}, 212);
    EXPECT_EQ(int32_t{first.SamplesPerFrame}, 1);
    EXPECT_EQ(int32_t{first.Skew}, 0);
    EXPECT_EQ(int32_t{first.ByteOffset}, 0);
    EXPECT_EQ(double{first.ADCGain}, 200.0);
    EXPECT_EQ(int32_t{first.ADCBaseLine}, 1024);
    EXPECT_EQ(first.ADCUnit, '\0');
    EXPECT_EQ(int32_t{first.ADCResolution}, 11);
    EXPECT_EQ(int32_t{first.ADCZero}, 1024);
    EXPECT_EQ(int32_t{first.InitialValue}, 995);
    EXPECT_EQ(int32_t{first.Checksum}, -22131);
    EXPECT_EQ(int32_t{first.BlockSize}, 0);
    EXPECT_STREQ(first.Description, "MLII");
    EXPECT_STREQ(header->Signal[1].Description, "V5");
    EXPECT_EQ(int32_t{header->Signal[1].InitialValue}, 1011);
}

TEST(HeaderReader, ReadsDosLineEnds) {
    const Header header = ReadText("v102s 2 250 75000\r\n"
                                   "v102s.dat 212 2281/mV 0 0 -26 -9286 0 II\r\n"
                                   "v102s.dat 212 1250/NU 0 0 -46 -11021 0 PLETH  \r\n");
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(int64_t{header->NumberOfSamplesPerSignal}, 75000);
    EXPECT_STREQ(header->Signal[0].Description, "II");
    EXPECT_EQ(header->Signal[0].ADCUnit, 'm');
    EXPECT_EQ(int32_t{header->Signal[0].InitialValue}, -26);
    EXPECT_STREQ(header->Signal[1].Description, "PLETH");
}

TEST(HeaderReader, CutsTheRecordNameAtTheSegmentCount) {
    const Header header = ReadText("100/2 1 360 1000\n100.dat 16\n");
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "100");
    EXPECT_EQ(int32_t{header->NumberOfSetments}, 0);
}

TEST(HeaderReader, TakesTheIntegerPartOfTheFrequency) {
    EXPECT_EQ(int64_t{ReadText("r 0 360/11 5\n")->SamplingFrequency}, 360);
    EXPECT_EQ(int64_t{ReadText("r 0 128.5(3) 5\n")->SamplingFrequency}, 128);
    EXPECT_EQ(int64_t{ReadText("r 0 fast 5\n")->SamplingFrequency}, 0);
}

TEST(HeaderReader, KeepsFifteenCharactersOfTimeAndDate) {
    const Header header = ReadText("r 0 360 5 10:20:30.123456789 01/02/2003AAAAAAAA ignored\n");
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->BaseTime, "10:20:30.123456");
    EXPECT_STREQ(header->BaseDate, "01/02/2003AAAAA");
    EXPECT_STREQ(ReadText("r 0 360 5 10:20:30\n")->BaseDate, "");
}

TEST(HeaderReader, KeepsTheFirst255CharactersOfALine) {
    // The rest of a line that is too long is read as the next line, here a signal line.
    const std::string recordLine = "r 1 360 5 10:20:30 ";
    const std::string padding(255 - recordLine.size(), ' ');
    const Header header = ReadText(recordLine + padding + "a.dat 16 100\n");
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->BaseDate, "");
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 1);
    EXPECT_STREQ(header->Signal[0].FileName, "a.dat");
    EXPECT_EQ(double{header->Signal[0].ADCGain}, 100.0);
}

TEST(HeaderReader, NeedsFourFields) {
    EXPECT_EQ(ReadText("100 2 360\n100.dat 212\n"), nullptr);
    EXPECT_EQ(ReadText("100 2\n"), nullptr);
    EXPECT_EQ(ReadText("100\n"), nullptr);
    EXPECT_EQ(ReadText(" \t\r\n"), nullptr);
    EXPECT_EQ(ReadText("\n100 2 360 5\n"), nullptr);
    EXPECT_EQ(ReadText(""), nullptr);
    EXPECT_EQ(ReadText("# comment\n100 1 360 5\n"), nullptr);
}

TEST(HeaderReader, TakesACommentAsTheRecordLine) {
    const Header header = ReadText("# of signals: 1\na.dat 16\n");
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "#");
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 0);
    EXPECT_EQ(int64_t{header->NumberOfSamplesPerSignal}, 1);
}

TEST(HeaderReader, RefusesWhatIsNoFile) {
    const Scratch directory;
    EXPECT_EQ(ReadHeader(directory / "missing.hea"), nullptr);
    EXPECT_EQ(ReadHeader(directory.Path()), nullptr);
    EXPECT_EQ(ReadHeader(""), nullptr);
    EXPECT_EQ(WFDBReadHeader(nullptr), nullptr);
}

TEST(HeaderReader, DropsSignalsThatAreNotInADatFile) {
    const Header header = ReadText("r 3 360 5\n"
                                   "100.sig 212 100 12 7 7 7 7 lost\n"
                                   "\n"
                                   "# 100.dat 212\n"
                                   "a.data 16\n"
                                   "b.dat.old 16 300\n");
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 2);
    EXPECT_STREQ(header->Signal[0].FileName, "a.data");
    EXPECT_EQ(double{header->Signal[0].ADCGain}, 200.0);
    EXPECT_STREQ(header->Signal[0].Description, "");
    EXPECT_STREQ(header->Signal[1].FileName, "b.dat.old");
    EXPECT_EQ(BytesOf(header->Signal[2]), Bytes(sizeof(WFDB_SIGNAL)));
    EXPECT_EQ(BytesOf(header->Signal[3]), Bytes(sizeof(WFDB_SIGNAL)));
}

TEST(HeaderReader, StopsAtTheDeclaredCount) {
    const Header header = ReadText("r 1 360 5\na.dat 16\nb.dat 16\n");
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 1);
    EXPECT_STREQ(header->Signal[1].FileName, "");
}

TEST(HeaderReader, CountsTheSignalsThatTheFileHas) {
    EXPECT_EQ(int64_t{ReadText("r 12 360 5\na.dat 16\n")->NumberOfSignals}, 1);
    EXPECT_EQ(int64_t{ReadText("r 2 360 5\na.dat 16\n100.sig 16\n")->NumberOfSignals}, 1);
    EXPECT_EQ(int64_t{ReadText("r many 360 5\na.dat 16\n")->NumberOfSignals}, 0);
}

TEST(HeaderReader, TakesANegativeCountAsNone) {
    const Header header = ReadText("r -3 -360 -5\na.dat 16\n");
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 0);
    EXPECT_EQ(int64_t{header->SamplingFrequency}, -360);
    EXPECT_EQ(int64_t{header->NumberOfSamplesPerSignal}, -5);
}

TEST(HeaderReader, RefusesMoreSignalsThanMemoryHolds) {
    EXPECT_EQ(ReadText("r 9223372036854775807 360 5\na.dat 16\n"), nullptr);
    EXPECT_EQ(ReadText("r 99999999999999999999999 360 5\na.dat 16\n"), nullptr);
    EXPECT_EQ(ReadText("r 56938104444591406 360 5\na.dat 16\n"), nullptr);
    EXPECT_EQ(ReadText("r 100000000000 360 5\na.dat 16\n"), nullptr);
}

TEST(HeaderReader, ClampsNumbersThatDoNotFit) {
    const Header header =
        ReadText("r 1 99999999999999999999 -99999999999999999999\n"
                 "a.dat 99999999999x99999999999:99999999999+99999999999 1 "
                 "99999999999 -99999999999 99999999999 -99999999999 4294967296\n");
    ASSERT_NE(header, nullptr);
    constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
    constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
    EXPECT_EQ(int64_t{header->SamplingFrequency}, std::numeric_limits<int64_t>::max());
    EXPECT_EQ(int64_t{header->NumberOfSamplesPerSignal}, std::numeric_limits<int64_t>::min());
    const WFDB_SIGNAL signal = header->Signal[0];
    EXPECT_EQ(int32_t{signal.Format}, kMax);
    EXPECT_EQ(int32_t{signal.SamplesPerFrame}, kMax);
    EXPECT_EQ(int32_t{signal.Skew}, 1);
    EXPECT_EQ(int32_t{signal.ByteOffset}, kMax);
    EXPECT_EQ(int32_t{signal.ADCResolution}, kMax);
    EXPECT_EQ(int32_t{signal.ADCZero}, kMin);
    EXPECT_EQ(int32_t{signal.ADCBaseLine}, kMin);
    EXPECT_EQ(int32_t{signal.InitialValue}, kMax);
    EXPECT_EQ(int32_t{signal.Checksum}, kMin);
    EXPECT_EQ(int32_t{signal.BlockSize}, kMax);
}

TEST(HeaderReader, SurvivesBinaryGarbage) {
    std::string garbage("r 3 360 5 \0\xFF\xFE\n", 14);
    for (int i = 0; i < 4096; ++i) {
        garbage.push_back(static_cast<char>(i * 167 + i / 256));
    }
    const Header header = ReadText(garbage);
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 0);
    EXPECT_EQ(ReadText(std::string(5000, '\0')), nullptr);
    EXPECT_EQ(ReadText(std::string(5000, 'x')), nullptr);
}

TEST(HeaderReader, ClosesTheHeaderFile) {
    const Scratch directory;
    const std::string path = directory.Write("100.hea", std::string(kRecord100));
    const size_t before = CountOpenDescriptors();
    const Header first = ReadHeader(path);
    const Header second = ReadHeader(path);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(HeaderRelease, ClosesBothFiles) {
    const Scratch directory;
    const std::string path = directory.Write("100.hea", std::string(kRecord100));
    const size_t before = CountOpenDescriptors();
    Header header = ReadHeader(path);
    SetSignalFile(header.get(), std::fopen(path.c_str(), "rb"));
    SetAnnotationFile(header.get(), std::fopen(path.c_str(), "rb"));
    EXPECT_EQ(CountOpenDescriptors(), before + 2);
    EXPECT_NE(GetSignalFile(header.get()), nullptr);
    EXPECT_NE(GetAnnotationFile(header.get()), nullptr);
    EXPECT_NE(GetSignalFile(header.get()), GetAnnotationFile(header.get()));
    header.reset();
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(HeaderRelease, IgnoresNull) {
    WFDBFreeHeader(nullptr);
    WFDBMemFree(nullptr);
    WFDBMemFree(std::malloc(8));
    EXPECT_EQ(GetSignalFile(nullptr), nullptr);
    EXPECT_EQ(GetAnnotationFile(nullptr), nullptr);
}

class RecordTime : public testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    static time_t Of(const std::string& timeAndDate) {
        return GetRecordTime(ReadText("r 0 360 5 " + timeAndDate + "\n").get());
    }
};

TEST_F(RecordTime, IsTheFirstOf1900WithoutADate) {
    EXPECT_EQ(Of("10:20:30"), -2208988800 + 10 * 3600 + 20 * 60 + 30);
    EXPECT_EQ(Of(""), -2208988800);
}

TEST_F(RecordTime, ReadsDayMonthYear) {
    EXPECT_EQ(Of("12:00:01 14/07/2003"), 1058184001);
    EXPECT_EQ(Of("00:00 02/01/1970"), 86400);
}

TEST_F(RecordTime, IsLocalTime) {
    setenv("TZ", "EET-2", 1);
    tzset();
    EXPECT_EQ(Of("12:00:01 14/07/2003"), 1058184001 - 7200);
}

TEST_F(RecordTime, IsZeroWhenTheCalendarDoesNotKnowIt) {
    EXPECT_EQ(Of("0:0:0 1/99/2147485547"), 0);
    EXPECT_EQ(Of("23:59:59 31/12/1969"), 0);
    EXPECT_EQ(GetRecordTime(nullptr), 0);
}

TEST_F(RecordTime, KeepsItsDefaultsForGarbage) {
    EXPECT_EQ(Of("noon yesterday"), -2208988800);
}

TEST(Gcd, FindsTheCommonDivisor) {
    EXPECT_EQ(gcd(12.0, 8.0), 4.0);
    EXPECT_EQ(gcd(8.0, 12.0), 4.0);
    EXPECT_EQ(gcd(360.0, 360.0), 360.0);
    EXPECT_EQ(gcd(7.0, 1.0), 1.0);
    EXPECT_EQ(gcd(1.0, 7.0), 1.0);
}

TEST(Gcd, StopsWithinAThousandthOfTheSmallerNumber) {
    EXPECT_EQ(gcd(1000.5, 1000.0), 1000.5);
    EXPECT_EQ(gcd(1000.0, 1000.5), 1000.0);
    EXPECT_EQ(gcd(2000.5, 1000.0), 2000.5 - 1000.0);
}

TEST(Gcd, ReturnsTheFirstNumberWhenThereIsNoDivisor) {
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(gcd(0.0, 5.0), 0.0);
    EXPECT_EQ(gcd(5.0, 0.0), 5.0);
    EXPECT_EQ(gcd(-5.0, 5.0), -5.0);
    EXPECT_EQ(gcd(5.0, -5.0), 5.0);
    EXPECT_EQ(gcd(infinity, 5.0), infinity);
    EXPECT_EQ(gcd(5.0, infinity), 5.0);
    EXPECT_EQ(gcd(5.0, nan), 5.0);
    EXPECT_TRUE(std::isnan(gcd(nan, 5.0)));
}

// A few operations give the result of a million subtractions, of which a header of 9,999 signals
// would require many.  The bound only catches a hang.
TEST(Gcd, IsQuickForNumbersFarApart) {
    const auto start = std::chrono::steady_clock::now();
    double divisor = 0.0;
    for (int i = 0; i < 9999; ++i) {
        divisor += gcd(999999.0 + (i % 2) * 0.5, 1.0);
    }
    EXPECT_EQ(divisor, 5000 * 1.0 + 4999 * 0.5);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(Gcd, EndsForEveryPairOfNumbers) {
    EXPECT_EQ(gcd(3e9, 1.0), 1.0);
    EXPECT_EQ(gcd(1.0, 3e9), 1.0);
    const double extremes[] = {5e-324,
                               1e-323,
                               1e-300,
                               1e-9,
                               0.1,
                               1.0 / 3.0,
                               1.0,
                               1e16,
                               1e17,
                               1e300,
                               std::numeric_limits<double>::max()};
    for (const double a : extremes) {
        for (const double b : extremes) {
            const double divisor = gcd(a, b);
            EXPECT_GT(divisor, 0.0) << a << ' ' << b;
            EXPECT_LE(divisor, std::min(a, b) * 1.001) << a << ' ' << b;
        }
    }
}
