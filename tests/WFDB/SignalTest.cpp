#include "WFDB/signal.h"

#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "tests/support/PublicRecord.h"
#include "tests/WFDB/OpenRecord.h"
#include "WFDB/main.h"
#include "WFDB/signal16.h"
#include "WFDB/signal212.h"
#include "WFDB/stdafx.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <sys/stat.h>
#include <vector>

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

// Compares initial values and checksums with those that the header states for each signal.
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
