#include "WFDB/sigamp.h"

#include "tests/support/Encoding.h"
#include "tests/WFDB/RandomNoise.h"
#include "tests/WFDB/RecordModel.h"
#include "tests/WFDB/SigampFixture.h"
#include "WFDB/main.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

size_t CountOpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

// `frames` frames of two signals: 0 with one pulse of the given heights at each of the times.
std::vector<uint8_t> PulsesOfTwoSignals(int frames, const std::vector<int>& times, int first,
                                        int second) {
    std::vector<int> samples(static_cast<size_t>(frames) * 2);
    for (const int time : times) {
        samples[static_cast<size_t>(time) * 2] = first;
        samples[static_cast<size_t>(time) * 2 + 1] = second;
    }
    return EncodeFormat212(samples);
}

} // namespace

TEST_F(Amplitude, SettingsAndBeatCodes) {
    EXPECT_EQ(g_nRunMax, 300);
    EXPECT_EQ(g_nMovingWindowSize, 360);
    std::vector<int> measured;
    for (int code = 0; code < 50; ++code) {
        if (wfdb_mp1[code] == 1) {
            measured.push_back(code);
        }
    }
    EXPECT_EQ(measured, (std::vector<int>{1, 2, 3, 4, 7, 8, 9, 11, 12, 13, 25, 34, 35, 38}));
    EXPECT_EQ(wfdb_mp1[5], 5);
    EXPECT_EQ(wfdb_mp1[6], 6);
    EXPECT_EQ(wfdb_mp1[10], 5);
    EXPECT_EQ(wfdb_mp1[30], 30);
    EXPECT_EQ(wfdb_mp1[31], 5);
    EXPECT_EQ(wfdb_mp1[41], 5);
}

TEST_F(Amplitude, ComparisonIsAscending) {
    const double one = 1.0, two = 2.0;
    EXPECT_EQ(AmplitudeCompare(&one, &two), -1);
    EXPECT_EQ(AmplitudeCompare(&two, &one), 1);
    EXPECT_EQ(AmplitudeCompare(&one, &one), 0);
}

TEST_F(Amplitude, HundredBeatsAreDilutedByTwoHundredZeros) {
    std::vector<int> times;
    std::vector<model::Beat> beats;
    for (int i = 1; i <= 100; ++i) {
        times.push_back(100 * i);
        beats.push_back({static_cast<uint32_t>(100 * i), 1});
    }
    MakeRecord("r 2 360 20000", kTwoSignals, PulsesOfTwoSignals(20000, times, 40, -1000));
    Annotate(beats);
    // Of the 270 values kept, 185 are zeros: 40 x 85 / 270 and 1000 x 85 / 270, cut.
    EXPECT_EQ(Measure(), (Amplitudes{12.59259, 314.81481}));
}

TEST_F(Amplitude, BeatWindowHas37FramesAt360Hz) {
    g_nRunMax = 1;
    const std::vector<model::Beat> beat = {{500, 1}};
    MakeRecord("r 2 360 1000", kTwoSignals, PulsesOfTwoSignals(1000, {482}, 7, 8));
    Annotate(beat);
    EXPECT_EQ(Measure(), (Amplitudes{7, 8}));
    MakeRecord("r 2 360 1000", kTwoSignals, PulsesOfTwoSignals(1000, {518}, 7, 8));
    EXPECT_EQ(Measure(), (Amplitudes{7, 8}));
    MakeRecord("r 2 360 1000", kTwoSignals, PulsesOfTwoSignals(1000, {481, 519}, 7, 8));
    EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
}

TEST_F(Amplitude, OnlyBeatAnnotationsAreMeasured) {
    g_nRunMax = 1;
    MakeRecord("r 2 360 2000", kTwoSignals, PulsesOfTwoSignals(2000, {1500}, 7, 8));
    // A ventricular beat, a rhythm change, codes past the table, then a normal beat.
    Annotate({{100, 5}, {200, 28}, {300, 50}, {400, 58}, {1500, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{7, 8}));
}

TEST_F(Amplitude, BeatWithinTheFirst50MillisecondsEndsTheMeasuring) {
    g_nRunMax = 2;
    MakeRecord("r 2 360 2000", kTwoSignals, PulsesOfTwoSignals(2000, {18, 500}, 7, 8));
    Annotate({{17, 1}, {500, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
    Annotate({{18, 1}, {500, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{7, 8}));
    // The first beat is measured, the second ends the measuring: half the mean.
    Annotate({{500, 1}, {17, 1}, {500, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{3.5, 4}));
}

TEST_F(Amplitude, LastBeatIsMeasuredOverWhatTheFileStillHolds) {
    g_nRunMax = 1;
    MakeRecord("r 2 360 1000", kTwoSignals, PulsesOfTwoSignals(1000, {999}, 7, 8));
    Annotate({{1000, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{7, 8}));
    // Its first frame would be the one after the last: nothing is left to measure.
    Annotate({{1018, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
}

TEST_F(Amplitude, BeatBehindTheEndIsMeasuredAtTheStart) {
    g_nRunMax = 1;
    MakeRecord("r 2 360 1000", kTwoSignals, PulsesOfTwoSignals(1000, {36}, 7, 8));
    Annotate({{1019, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{7, 8}));
    MakeRecord("r 2 360 1000", kTwoSignals, PulsesOfTwoSignals(1000, {37}, 7, 8));
    EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
}

TEST_F(Amplitude, BeatAtAnAbsurdTimeEndsTheMeasuring) {
    g_nRunMax = 2;
    MakeRecord("r 2 360 1000", kTwoSignals, PulsesOfTwoSignals(1000, {500}, 8, 6));
    Annotate({{500, 1}, {0xF0000000U, 1}, {500, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{4, 3}));
}

TEST_F(Amplitude, RecordShorterThanAWindowHasNone) {
    const std::vector<int> samples = Noise(359 * 2, 1000, 1);
    MakeRecord("r 2 360 359", kTwoSignals, EncodeFormat212(samples));
    EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
    g_nRunMax = 1;
    EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
}

TEST_F(Amplitude, WindowsGiveTheRootOfTheMeanSquare) {
    g_nRunMax = 3;
    std::vector<int> samples;
    for (int frame = 0; frame < 3 * 360; ++frame) {
        samples.push_back(frame % 2 == 0 ? 100 : -100);
        samples.push_back(frame % 2 == 0 ? 507 : 501);
    }
    MakeRecord("r 2 250 1080", kTwoSignals, EncodeFormat212(samples));
    EXPECT_EQ(Measure(), (Amplitudes{100, 3}));
    // The third window is one frame short, and is not counted.
    samples.resize(samples.size() - 2);
    MakeRecord("r 2 250 1079", kTwoSignals, EncodeFormat212(samples));
    EXPECT_EQ(Measure(), (Amplitudes{66.66666, 2}));
}

TEST_F(Amplitude, DeviationsAreTruncatedBeforeTheyAreSquared) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 4;
    // Mean 0.75 and deviations 2.25, -0.75, -0.75, -0.75: squares 4, 0, 0, 0.
    // Mean -5 and deviations 11, 2, -3, -10: squares 121 + 4 + 9 + 100, root of 58.5.
    MakeRecord("r 2 250 4", kTwoSignals, EncodeFormat212({3, 6, 0, -3, 0, -8, 0, -15}));
    EXPECT_EQ(Measure(), (Amplitudes{1, 7.64852}));
}

TEST_F(Amplitude, OddSeeksReadTheSecondPassFromAMisalignedPosition) {
    g_nRunMax = 2;
    g_nMovingWindowSize = 3;
    // One signal in the bytes 01 00 02, 03 00 04, 05 00 06.
    MakeRecord("r 1 250 6", {"r.dat 212 200 12 0"}, EncodeFormat212({1, 2, 3, 4, 5, 6}));
    // Window 0 reads 1, 2, 3 twice: mean 2, deviations -1, 0, 1: root of 2/3, 0.816496. Window 1
    // continues with 4, the second sample of the triple from which 3 came: 4, 5, 6, mean 5. The
    // second pass would begin at byte 4.5 and begins at byte 4: 00 04 05 gives 0x400 = 1024 and
    // 0x005 = 5; the triple after that is incomplete (00 06), so two deviations are counted, from
    // the mean 5 + 1024 - 4 = 1025: -1 and -1020, squares 1 + 1040400, root of 346800.33. The mean
    // of 0.8164965 and 588.8975571.
    EXPECT_EQ(Measure(), (Amplitudes{294.85702}));
}

TEST_F(Amplitude, FirstWindowIsSummedFromWhereTheFileStands) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 2;
    MakeRecord("r 2 250 4", kTwoSignals, EncodeFormat212({0, 0, 0, 0, 10, 20, 30, 60}));
    std::string path = m_directory / "r.hea";
    WFDB_HEADER* header = WFDBReadHeader(path.data());
    ASSERT_EQ(WFDBLoadSignal(m_directory.Path().c_str(), header), 1);
    double frames[4];
    ASSERT_EQ(WFDBNextSample(header, frames, 2), 2);
    int count = 0;
    double* amplitudes = WFDBSignalAmplitude(header, &count);
    ASSERT_EQ(count, 2);
    // Means 20 and 40 over 10, 30 and 20, 60, moved by 0 - 10 and 0 - 20; deviations -10 and -20.
    EXPECT_EQ(amplitudes[0], 10);
    EXPECT_EQ(amplitudes[1], 20);
    WFDBMemFree(amplitudes);
    WFDBFreeHeader(header);
}

TEST_F(Amplitude, Format16IsMeasuredOnUnsignedReadings) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 4;
    const std::vector<std::string> lines = {"r.dat 16 200 16 0"};
    // -1 reads as 65535.  Mean 65533.5, deviations of -1.5, -0.5, 0.5, 1.5: squares 1, 0, 0, 1.
    MakeRecord("r 1 250 4", lines, EncodeFormat16({-4, -3, -2, -1}));
    EXPECT_EQ(Measure(), (Amplitudes{0.70710}));
    // Across zero the readings jump: deviations of -1, -1, -1, 3 in one case, saturation in the
    // other.
    MakeRecord("r 1 250 4", lines, EncodeFormat16({0, 0, 0, 4}));
    EXPECT_EQ(Measure(), (Amplitudes{1.73205}));
    MakeRecord("r 1 250 4", lines, EncodeFormat16({0, 0, 0, -4}));
    EXPECT_EQ(Measure(), (Amplitudes{21474.83647}));
}

TEST_F(Amplitude, LargeAmplitudesSaturateInTheFiveDecimals) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 2;
    const std::vector<std::string> lines = {"r.dat 16 200 16 0"};
    MakeRecord("r 1 1 2", lines, EncodeFormat16({0, -1}));
    // Mean 32767.5, deviations -32767 and 32767.
    EXPECT_EQ(Measure(), (Amplitudes{21474.83647}));
    MakeRecord("r 1 1 2", lines, EncodeFormat16({0, -22588}));
    // 42948 / 2 = 21474 is the last whole amplitude below.
    EXPECT_EQ(Measure(), (Amplitudes{21474}));
}

TEST_F(Amplitude, MeansOfSeveralSamplesPerFrameAreMeasured) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 2;
    // Frames of 1 + 2 samples: 10, (20, 41) and -10, (0, -1): values 10, 30 and -10, 0.
    MakeRecord("r 2 250 2", {"r.dat 212 200 12 0", "r.dat 212x2 200 12 0"},
               EncodeFormat212({10, 20, 41, -10, 0, -1}));
    EXPECT_EQ(Measure(), (Amplitudes{10, 15}));
}

TEST_F(Amplitude, UnreadableFormatHasAmplitudesOfZero) {
    MakeRecord("r 2 250 4", {"r.dat 80 200 12 0", "r.dat 80 200 12 0"}, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
    Annotate({{2, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
}

TEST_F(Amplitude, HeaderWithoutOpenSignalFileHasAmplitudesOfZero) {
    MakeRecord("r 2 250 4", kTwoSignals, {});
    std::string path = m_directory / "r.hea";
    WFDB_HEADER* header = WFDBReadHeader(path.data());
    int count = -1;
    double* amplitudes = WFDBSignalAmplitude(header, &count);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(amplitudes[0], 0);
    EXPECT_EQ(amplitudes[1], 0);
    WFDBMemFree(amplitudes);
    double* rows[2] = {nullptr, nullptr};
    sigamp_p2p(header, rows);
    sigamp_rms(header, rows);
    WFDBFreeHeader(header);
}

TEST_F(Amplitude, RecordsThatCannotBeOpenedHaveNone) {
    int count = -1;
    std::string path = m_directory / "missing.hea";
    EXPECT_EQ(WFDBSignalAmplitudeEx(path.data(), &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(WFDBSignalAmplitudeEx(path.data(), nullptr), nullptr);

    // The header exists, but its signal file does not.
    path = m_directory.Write("lost.hea", "lost 1 250 4\nlost.dat 212 200 12 0\n");
    const size_t open = CountOpenDescriptors();
    count = -1;
    EXPECT_EQ(WFDBSignalAmplitudeEx(path.data(), &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(CountOpenDescriptors(), open);

    // A header that declares no signals names no file to open.
    m_directory.Write("none.hea", "none 0 250 4\n");
    EXPECT_EQ(MeasurePath(m_directory / "none.hea"), Amplitudes{});
}

TEST_F(Amplitude, NullArgumentsAreRefused) {
    int count = -1;
    EXPECT_EQ(WFDBSignalAmplitude(nullptr, &count), nullptr);
    EXPECT_EQ(count, 0);
    count = -1;
    EXPECT_EQ(WFDBSignalAmplitudeEx(nullptr, &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(sigamp(static_cast<const char*>(nullptr), nullptr), 0);
    EXPECT_EQ(sigamp(static_cast<WFDB_HEADER*>(nullptr), nullptr), 0);
    sigamp_p2p(nullptr, nullptr);
    sigamp_rms(nullptr, nullptr);
}

TEST_F(Amplitude, SettingsOfZeroOrLessMeasureNothing) {
    MakeRecord("r 2 250 4", kTwoSignals, EncodeFormat212({1, 2, 3, 4, 5, 6, 7, 8}));
    g_nRunMax = 2;
    for (const int32_t window : {0, -5}) {
        g_nMovingWindowSize = window;
        EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
    }
    g_nMovingWindowSize = 2;
    for (const int32_t runs : {0, -5}) {
        g_nRunMax = runs;
        EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
    }
}

TEST_F(Amplitude, AbsurdFrequenciesAreSurvived) {
    g_nRunMax = 1;
    for (const char* header :
         {"r 2 9223372036854775807 4", "r 2 -9223372036854775807 4", "r 2 0 4", "r 2 -400 4"}) {
        MakeRecord(header, kTwoSignals, EncodeFormat212({1, 2, 3, 4, 5, 6, 7, 8}));
        Annotate({{1, 1}});
        EXPECT_EQ(Measure().size(), 2U);
    }
    // A negative frequency puts the one frame that is read 50 ms after the annotation.
    Annotate({{2, 1}});
    EXPECT_EQ(Measure(), (Amplitudes{0, 0}));
}

TEST_F(Amplitude, PathMayLackTheExtensionAndMayContainDots) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 2;
    MakeRecord("r 2 250 2", kTwoSignals, EncodeFormat212({1, 2, 5, 8}));
    EXPECT_EQ(MeasurePath(m_directory / "r"), (Amplitudes{2, 3}));
    EXPECT_EQ(MeasurePath(m_directory / "r.dat"), (Amplitudes{2, 3}));
    m_directory.Write("a.b.hea", "r 2 250 2\nr.dat 212 200 12 0\nr.dat 212 200 12 0\n");
    EXPECT_EQ(MeasurePath(m_directory / "a.b.hea"), (Amplitudes{2, 3}));
    // The name ends at its last dot, whatever that separates.
    EXPECT_EQ(MeasurePath(m_directory / "a.b"), Amplitudes{});
}

TEST_F(Amplitude, LongRecordNamesAreCutTo15Characters) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 2;
    m_directory.Write("r.dat", EncodeFormat212({1, 2, 5, 8}));
    const std::string header = "r 2 250 2\nr.dat 212 200 12 0\nr.dat 212 200 12 0\n";
    m_directory.Write("abcdefghijklmnop.hea", header);
    EXPECT_EQ(MeasurePath(m_directory / "abcdefghijklmnop.hea"), Amplitudes{});
    m_directory.Write("abcdefghijklmno.hea", header);
    EXPECT_EQ(MeasurePath(m_directory / "abcdefghijklmnop.hea"), (Amplitudes{2, 3}));
}

TEST_F(Amplitude, AnnotationsAreFoundByTheRecordNameInTheHeader) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 2;
    m_directory.Write("r.dat", EncodeFormat212({1, 2, 5, 8}));
    m_directory.Write("file.hea", "name 2 20 2\nr.dat 212 200 12 0\nr.dat 212 200 12 0\n");
    EXPECT_EQ(MeasurePath(m_directory / "file.hea"), (Amplitudes{2, 3}));
    m_directory.Write("name.atr", EncodeAnnotations({{1, 1}}));
    EXPECT_EQ(MeasurePath(m_directory / "file.hea"), (Amplitudes{4, 6}));
}

TEST_F(Amplitude, PathWithoutDirectoryLosesItsFirstCharacter) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 2;
    MakeRecord("r 2 250 2", kTwoSignals, EncodeFormat212({1, 2, 5, 8}));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_directory.Path());
    const Amplitudes bare = MeasurePath("r.hea");
    const Amplitudes prefixed = MeasurePath("Xr.hea");
    const Amplitudes relative = MeasurePath("./r.hea");
    std::filesystem::current_path(before);
    EXPECT_EQ(bare, Amplitudes{});
    EXPECT_EQ(prefixed, (Amplitudes{2, 3}));
    EXPECT_EQ(relative, (Amplitudes{2, 3}));
}

TEST_F(Amplitude, EveryFileIsClosed) {
    g_nRunMax = 1;
    MakeRecord("r 2 250 2", kTwoSignals, EncodeFormat212({1, 2, 5, 8}));
    Annotate({{1, 1}});
    const size_t open = CountOpenDescriptors();
    for (int i = 0; i < 20; ++i) {
        Measure();
    }
    EXPECT_EQ(CountOpenDescriptors(), open);
}
