#include "WFDB/signal.h"

#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "tests/support/PublicRecord.h"
#include "WFDB/main.h"
#include "WFDB/signal16.h"
#include "WFDB/signal212.h"
#include "WFDB/stdafx.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <sys/stat.h>

namespace {

constexpr double kUntouched = 12345.0;

// A record in a directory of its own, opened for reading.
class Record {
  public:
    Record(const std::string& header, const std::vector<uint8_t>& samples,
           const std::string& fileName = "a.dat") {
        std::string path = m_directory.Write("a.hea", header);
        m_directory.Write(fileName, samples);
        m_header = WFDBReadHeader(path.data());
        m_loaded = WFDBLoadSignal(m_directory.Path().c_str(), m_header);
    }
    ~Record() { WFDBFreeHeader(m_header); }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    WFDB_HEADER* Header() { return m_header; }
    int Loaded() const { return m_loaded; }
    const SIGNAL_HANDLER* Handler() { return GetSignalHandler(m_header); }

    std::vector<double> Next(int frames, int expectedFrames) {
        const auto signals = static_cast<size_t>(m_header->NumberOfSignals);
        std::vector<double> out(signals * static_cast<size_t>(frames), kUntouched);
        EXPECT_EQ(WFDBNextSample(m_header, out.data(), frames), expectedFrames);
        return out;
    }
    std::vector<int> NextEx(int frames, int expectedFrames) {
        const auto signals = static_cast<size_t>(m_header->NumberOfSignals);
        std::vector<int> out(signals * static_cast<size_t>(frames), -12345);
        EXPECT_EQ(Handler()->NextSampleEx(m_header, out.data(), frames), expectedFrames);
        return out;
    }
    long Position() { return std::ftell(GetSignalFile(m_header)); }

  private:
    Scratch m_directory;
    WFDB_HEADER* m_header = nullptr;
    int m_loaded = 0;
};

std::string OneSignal(const std::string& format, int frames, const std::string& gain = "1") {
    return "a 1 100 " + std::to_string(frames) + "\na.dat " + format + " " + gain + " 12 0\n";
}

std::string TwoSignals(const std::string& format, int frames) {
    return "a 2 100 " + std::to_string(frames) + "\na.dat " + format + " 1 12 0\na.dat " + format +
           " 1 12 0\n";
}

using Values = std::vector<double>;
using Codes = std::vector<int>;

} // namespace

// ---- Choice of the reader and opening -------------------------------------------------------

TEST(SignalHandler, FollowsTheFormatOfTheFirstSignal) {
    WFDB_HEADER header = {};
    header.Signal[0].Format = 16;
    EXPECT_EQ(GetSignalHandler(&header), &g_SignalHandler16);
    header.Signal[0].Format = 212;
    EXPECT_EQ(GetSignalHandler(&header), &g_SignalHandler212);
    for (const int format : {0, 8, 61, 80, 160, 310, 311, -16, 65552}) {
        header.Signal[0].Format = format;
        EXPECT_EQ(GetSignalHandler(&header), nullptr) << format;
    }
    EXPECT_EQ(GetSignalHandler(nullptr), nullptr);
}

TEST(LoadSignal, JoinsDirectoryAndFileName) {
    const Scratch directory;
    std::string path = directory.Write("a.hea", OneSignal("16", 1));
    directory.Write("a.dat", EncodeFormat16({7}));
    for (const std::string& spelling : {directory.Path(), directory.Path() + "/"}) {
        WFDB_HEADER* header = WFDBReadHeader(path.data());
        EXPECT_EQ(WFDBLoadSignal(spelling.c_str(), header), 1) << spelling;
        EXPECT_EQ(IsReadableHeader(header), 1);
        WFDBFreeHeader(header);
    }
}

TEST(LoadSignal, TakesAnEmptyDirectoryAsTheCurrentOne) {
    const Scratch directory;
    directory.Write("a.hea", OneSignal("16", 1));
    directory.Write("a.dat", EncodeFormat16({7}));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.Path());
    char path[] = "a.hea";
    WFDB_HEADER* header = WFDBReadHeader(path);
    EXPECT_EQ(WFDBLoadSignal("", header), 1);
    std::filesystem::current_path(before);
    double value = kUntouched;
    EXPECT_EQ(WFDBNextSample(header, &value, 1), 1);
    EXPECT_EQ(value, 7.0);
    WFDBFreeHeader(header);
}

TEST(LoadSignal, FailsWithoutAFile) {
    const Scratch directory;
    std::string path = directory.Write("a.hea", OneSignal("16", 1));
    WFDB_HEADER* header = WFDBReadHeader(path.data());
    EXPECT_EQ(WFDBLoadSignal(directory.Path().c_str(), header), 0);
    EXPECT_EQ(WFDBLoadSignal(nullptr, header), 0);
    EXPECT_EQ(IsReadableHeader(header), 0);
    WFDBFreeHeader(header);
    EXPECT_EQ(WFDBLoadSignal(directory.Path().c_str(), nullptr), 0);
}

TEST(LoadSignal, RefusesWhatIsNoOrdinaryFile) {
    const Scratch directory;
    std::string path = directory.Write("a.hea", OneSignal("16", 1));
    WFDB_HEADER* header = WFDBReadHeader(path.data());
    std::filesystem::create_directory(directory / "a.dat");
    EXPECT_EQ(WFDBLoadSignal(directory.Path().c_str(), header), 0);
    std::filesystem::remove(directory / "a.dat");
    ASSERT_EQ(mkfifo((directory / "a.dat").c_str(), 0600), 0);
    EXPECT_EQ(WFDBLoadSignal(directory.Path().c_str(), header), 0);
    WFDBFreeHeader(header);
}

TEST(LoadSignal, OpensTheFileOfTheFirstSignal) {
    Record record("a 2 100 1\nfirst.dat 16 1 12 0\nother.dat 16 1 12 0\n", EncodeFormat16({3, 4}),
                  "first.dat");
    ASSERT_EQ(record.Loaded(), 1);
    EXPECT_EQ(record.Next(1, 1), (Values{3.0, 4.0}));
}

TEST(ReadableHeader, NeedsFileFormatAndSignal) {
    EXPECT_EQ(IsReadableHeader(nullptr), 0);

    Record good(OneSignal("212", 2), EncodeFormat212({1, 2}));
    EXPECT_EQ(IsReadableHeader(good.Header()), 1);

    Record otherFormat(OneSignal("80", 2), {1, 2});
    EXPECT_EQ(otherFormat.Loaded(), 1);
    EXPECT_EQ(IsReadableHeader(otherFormat.Header()), 0);
    otherFormat.Next(1, 0);
    EXPECT_EQ(WFDBSeek(otherFormat.Header(), 0), 0);

    Record noSignal("a 0 100 5\n", {1, 2});
    EXPECT_EQ(noSignal.Loaded(), 0);
    EXPECT_EQ(IsReadableHeader(noSignal.Header()), 0);
}

TEST(ReadableHeader, IsWhatReadingAsksFirst) {
    double value = kUntouched;
    EXPECT_EQ(WFDBNextSample(nullptr, &value, 1), 0);
    EXPECT_EQ(WFDBSeek(nullptr, 0), 0);
    EXPECT_EQ(GetNextSampleWithoutDAC(nullptr, &value), 0);
    Record record(OneSignal("16", 1), EncodeFormat16({7}));
    EXPECT_EQ(WFDBNextSample(record.Header(), nullptr, 1), 0);
    EXPECT_EQ(value, kUntouched);
}

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
    // Behind an odd number of samples the position lies one byte inside a triple.
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

// ---- Both formats ---------------------------------------------------------------------------

class BothFormats : public testing::TestWithParam<const char*> {
  protected:
    static std::vector<uint8_t> Encode(const Codes& codes) {
        return std::strcmp(GetParam(), "16") == 0 ? EncodeFormat16(codes) : EncodeFormat212(codes);
    }
};

INSTANTIATE_TEST_SUITE_P(Signal, BothFormats, testing::Values("16", "212"));

TEST_P(BothFormats, GoToTheStartInsteadOfBeyondTheEnd) {
    // 400 frames at 100 a second.
    Record record(OneSignal(GetParam(), 400), Encode(Codes(400, 1)));
    record.Next(5, 5);
    EXPECT_EQ(WFDBSeek(record.Header(), 5), 1);
    EXPECT_EQ(record.Position(), 0);
    record.Next(5, 5);
    EXPECT_EQ(record.Handler()->SeekEx(record.Header(), 401), 1);
    EXPECT_EQ(record.Position(), 0);
    // The end itself is not a position beyond it.
    EXPECT_EQ(WFDBSeek(record.Header(), 4), 1);
    record.Next(1, 0);
    EXPECT_EQ(record.Handler()->SeekEx(record.Header(), 400), 1);
    record.Next(1, 0);
}

TEST_P(BothFormats, FailToSeekBeforeTheStart) {
    Record record(OneSignal(GetParam(), 400), Encode(Codes(400, 1)));
    EXPECT_EQ(WFDBSeek(record.Header(), -1), 0);
    EXPECT_EQ(record.Handler()->SeekEx(record.Header(), -1), 0);
    EXPECT_EQ(WFDBSeek(record.Header(), std::numeric_limits<int>::min()), 0);
    EXPECT_EQ(record.Handler()->SeekEx(record.Header(), std::numeric_limits<int>::min()), 0);
    record.Next(1, 1);
}

TEST_P(BothFormats, FailToSeekWhereThePositionOverflows) {
    Record record("a 1 4611686018427387904 9223372036854775807\na.dat " + std::string(GetParam()) +
                      " 1\n",
                  Encode({1, 2, 3, 4}));
    record.Next(1, 1);
    for (const int seconds : {1, 2, -2}) {
        EXPECT_EQ(WFDBSeek(record.Header(), seconds), 0) << seconds;
    }
    EXPECT_EQ(LoadReaderState(record.Header()).HasPendingSample, 0);
}

TEST_P(BothFormats, StayDefinedWithoutAFrequency) {
    Record record("a 1 0 4\na.dat " + std::string(GetParam()) + " 1\n", Encode({1, 2, 3, 4}));
    record.Next(2, 2);
    EXPECT_EQ(WFDBSeek(record.Header(), 3), 1);
    EXPECT_EQ(record.Position(), 0);
    Record empty("a 1 0 0\na.dat " + std::string(GetParam()) + " 1\n", Encode({1, 2}));
    EXPECT_EQ(WFDBSeek(empty.Header(), 3), 1);
    EXPECT_EQ(empty.Position(), 0);
}

TEST_P(BothFormats, ReadNothingForNoFrames) {
    Record record(OneSignal(GetParam(), 4), Encode({1, 2, 3, 4}));
    double value = kUntouched;
    int code = -1;
    for (const int frames : {0, -1, std::numeric_limits<int>::min()}) {
        EXPECT_EQ(WFDBNextSample(record.Header(), &value, frames), 0);
        EXPECT_EQ(record.Handler()->NextSampleEx(record.Header(), &code, frames), 0);
    }
    EXPECT_EQ(value, kUntouched);
    EXPECT_EQ(record.Next(1, 1), Values{1});
}

TEST_P(BothFormats, EndWithTheFileWhateverTheHeaderClaims) {
    Record record("a 1 100 4\na.dat " + std::string(GetParam()) + "x2147483647 1\n",
                  Encode({1, 2, 3, 4}));
    double value = kUntouched;
    EXPECT_EQ(WFDBNextSample(record.Header(), &value, std::numeric_limits<int>::max()), 0);
}

TEST_P(BothFormats, ReadTheSameInOneCallAsInMany) {
    Codes codes;
    for (int i = 0; i < 3 * 1000 + 2; ++i) {
        codes.push_back(i * 37 % 4096 - 2048);
    }
    const std::string signal = "a.dat " + std::string(GetParam());
    const std::string header =
        "a 3 100 1001\n" + signal + " 3(-7)\n" + signal + " 200\n" + signal + " 0.1\n";
    Record whole(header, Encode(codes));
    Record single(header, Encode(codes));
    const Values expected = whole.Next(1001, 1000);
    Values read;
    for (int frame = 0; frame < 1000; ++frame) {
        const Values values = single.Next(1, 1);
        read.insert(read.end(), values.begin(), values.end());
    }
    single.Next(1, 0);
    EXPECT_EQ(read, Values(expected.begin(), expected.begin() + 3000));
    EXPECT_EQ(single.Position(), whole.Position());
}

TEST_P(BothFormats, YieldNoMinusZero) {
    const std::string line = "a.dat " + std::string(GetParam()) + " -1\n";
    Record record("a 3 100 1\n" + line + line + line, Encode({0, 0, 0}));
    for (const double value : record.Next(1, 1)) {
        EXPECT_EQ(value, 0.0);
        EXPECT_FALSE(std::signbit(value));
    }
}

TEST_P(BothFormats, ReadMoreSignalsThanABlockHolds) {
    std::string header = "a 2049 100 2\n";
    Codes codes;
    for (int i = 0; i < 2049; ++i) {
        header += "a.dat " + std::string(GetParam()) + " 1\n";
        codes.push_back(i % 4096 - 2048);
    }
    codes.insert(codes.end(), codes.rbegin(), codes.rend());
    Record record(header, Encode(codes));
    EXPECT_EQ(record.Next(2, 2), Values(codes.begin(), codes.end()));
}

TEST_P(BothFormats, GiveBackAdcUnits) {
    Record record("a 2 100 2\na.dat " + std::string(GetParam()) + " 200(1024)\na.dat " +
                      std::string(GetParam()) + " 4 12 -3\n",
                  Encode({995, -7, 1011}));
    double values[2] = {};
    ASSERT_EQ(GetNextSampleWithoutDAC(record.Header(), values), 1);
    EXPECT_NEAR(values[0], 995.0, 1e-9);
    EXPECT_EQ(values[1], -7.0);
    EXPECT_EQ(GetNextSampleWithoutDAC(record.Header(), values),
              std::strcmp(GetParam(), "16") == 0 ? 0 : 1);
    EXPECT_EQ(GetNextSampleWithoutDAC(record.Header(), values), 0);
}

// ---- Public records -------------------------------------------------------------------------

namespace {

// Compares initial values and checksums with what the header says of each signal.
void CheckAgainstHeader(const std::string& name, int64_t expectedFrames) {
    std::string path = PublicRecord(name);
    if (path.empty()) {
        GTEST_SKIP() << "the public record " << name << " is not on this machine";
    }
    WFDB_HEADER* header = WFDBReadHeader(path.data());
    ASSERT_NE(header, nullptr);
    const std::string directory = std::filesystem::path(path).parent_path().string();
    ASSERT_EQ(WFDBLoadSignal(directory.c_str(), header), 1);
    const auto signals = static_cast<size_t>(header->NumberOfSignals);
    std::vector<double> frame(signals);
    std::vector<int64_t> sums(signals, 0);
    int64_t frames = 0;
    while (GetNextSampleWithoutDAC(header, frame.data()) == 1) {
        for (size_t i = 0; i < signals; ++i) {
            const int64_t code = std::llround(frame[i]);
            if (frames == 0) {
                EXPECT_EQ(code, header->Signal[i].InitialValue);
            }
            sums[i] += code;
        }
        ++frames;
    }
    EXPECT_EQ(frames, expectedFrames);
    for (size_t i = 0; i < signals; ++i) {
        const auto checksum = static_cast<int16_t>(static_cast<uint16_t>(sums[i] & 0xFFFF));
        EXPECT_EQ(checksum, header->Signal[i].Checksum) << "signal " << i;
    }
    WFDBFreeHeader(header);
}

} // namespace

TEST(PublicRecord, ArrhythmiaRecordHasItsChecksums) {
    CheckAgainstHeader("100.hea", 650000);
}

TEST(PublicRecord, IntensiveCareRecordHasItsChecksums) {
    CheckAgainstHeader("v102s.hea", 75000);
}
