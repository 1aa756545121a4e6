#include "WFDB/nst.h"

#include "tests/support/DecimalComma.h"
#include "tests/WFDB/NstFixture.h"
#include "tests/WFDB/RandomNoise.h"
#include "WFDB/sigamp.h"
#include "WFDB/stdafx.h"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// ---- Configuration ----

TEST_F(NoiseTest, NothingHappensUntilSignalNoiseAndOutputAreSet) {
    MakeSimpleRecords();
    EXPECT_EQ(NSTOutput((m_directory / "o").c_str()), 0);
    NSTSetSignal((m_directory / "s").c_str());
    EXPECT_EQ(NSTOutput((m_directory / "o").c_str()), 0);
    std::string output = m_directory / "o";
    EXPECT_EQ(WFDBNoiseTestExOutput(output.data()), 1);
    NSTSetSignal("");
    NSTAddNoise((m_directory / "n").c_str(), 6);
    EXPECT_EQ(NSTOutput((m_directory / "o").c_str()), 0);
    NSTSetSignal((m_directory / "s").c_str());
    EXPECT_EQ(NSTOutput(""), 0);
    EXPECT_FALSE(Exists("o.dat"));
    EXPECT_FALSE(Exists("o.hea"));
    EXPECT_FALSE(Exists(".dat"));
}

TEST_F(NoiseTest, NoisesAreKeptInOrderUntilTheReset) {
    NSTAddNoise("/a/b", 12);
    std::string path = "/c/d.hea";
    WFDBNoiseTestExAddNoise(path.data(), -6.5);
    ASSERT_EQ(g_vecNoiseItem.size(), 2U);
    EXPECT_EQ(g_vecNoiseItem[0].NoiseFilePath, "/a/b");
    EXPECT_EQ(g_vecNoiseItem[0].SignalNoiseRatio, 12);
    EXPECT_EQ(g_vecNoiseItem[0].WFDBHeader, nullptr);
    EXPECT_TRUE(g_vecNoiseItem[0].Ratio.empty());
    EXPECT_TRUE(g_vecNoiseItem[0].EffectiveRatio.empty());
    EXPECT_TRUE(g_vecNoiseItem[0].Noise.empty());
    EXPECT_TRUE(g_vecNoiseItem[0].Output.empty());
    EXPECT_EQ(g_vecNoiseItem[1].NoiseFilePath, "/c/d.hea");
    EXPECT_EQ(g_vecNoiseItem[1].SignalNoiseRatio, -6.5);
    WFDBNoiseTestExResetNoise();
    EXPECT_TRUE(g_vecNoiseItem.empty());

    std::string signal = "/e/f";
    WFDBNoiseTestExSetSignal(signal.data());
    EXPECT_EQ(g_strSignalFilePath, "/e/f");
}

TEST_F(NoiseTest, ConfigurationStaysAfterARun) {
    MakeSimpleRecords();
    ASSERT_EQ(Run({6}), 0);
    EXPECT_EQ(g_strSignalFilePath, m_directory / "s");
    EXPECT_EQ(g_strOutputFilePath, m_directory / "o");
    EXPECT_EQ(g_vecNoiseItem.size(), 1U);
    EXPECT_EQ(g_vecNoiseItem[0].WFDBHeader, nullptr);
    std::filesystem::remove(m_directory / "o.dat");
    std::string output = m_directory / "o";
    EXPECT_EQ(WFDBNoiseTestExOutput(output.data()), 1);
    EXPECT_TRUE(Exists("o.dat"));
}

TEST_F(NoiseTest, NullArgumentsAreTakenAsEmpty) {
    MakeSimpleRecords();
    NSTSetSignal(nullptr);
    NSTAddNoise(nullptr, 0);
    EXPECT_EQ(NSTOutput(nullptr), 0);
    NSTSetSignal((m_directory / "s").c_str());
    EXPECT_EQ(NSTOutput((m_directory / "o").c_str()), -4);
    EXPECT_EQ(nst(nullptr, nullptr, nullptr, 0), -4);
    EXPECT_EQ(WFDBNoiseTest(nullptr, nullptr, nullptr, 0), 0);
    EXPECT_EQ(WFDBNoiseTestExOutput(nullptr), 1);
}

// ---- Scale factors ----

TEST_F(NoiseTest, EqualAmplitudesAtZeroDecibelsScaleByAQuarterOfTheRootOfTwo) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 2;
    MakeRecord("s", 1, 4, {"212 1 12 0", "212 1 12 0"}, {8, 40, -8, -40, 0, 0, 0, 0});
    MakeRecord("n", 1, 4, {"212 1 12 0"}, {8, -8, 0, 0});
    WFDB_HEADER* signal = DoProcessNSTLoadSingal((m_directory / "s").c_str());
    WFDB_HEADER* noise = DoProcessNSTLoadNoise((m_directory / "n").c_str());
    ASSERT_NE(signal, nullptr);
    ASSERT_NE(noise, nullptr);

    double* ratio = DoProcessNSTGetNoiseRatio(signal, noise, 0.0);
    EXPECT_DOUBLE_EQ(ratio[0], 0.35355339059327379);
    EXPECT_DOUBLE_EQ(ratio[1], 5 * 0.35355339059327379);
    WFDBMemFree(ratio);
    // 20 dB is a factor of ten, and -20 dB a factor of one tenth.
    ratio = DoProcessNSTGetNoiseRatio(signal, noise, 20.0);
    EXPECT_DOUBLE_EQ(ratio[0], 0.035355339059327379);
    WFDBMemFree(ratio);

    NOISE_ITEM item = {"", -20.0, noise, {}, {}, {}, {}};
    DoProcessNSTGetNoiseRatio(signal, item);
    ASSERT_EQ(item.Ratio.size(), 2U);
    EXPECT_DOUBLE_EQ(item.Ratio[0], 3.5355339059327379);
    // This form leaves both records at their start.
    double frame[2];
    ASSERT_EQ(WFDBNextSample(signal, frame, 1), 1);
    EXPECT_EQ(frame[1], 40);
    ASSERT_EQ(WFDBNextSample(noise, frame, 1), 1);
    EXPECT_EQ(frame[0], 8);
    WFDBFreeHeader(signal);
    WFDBFreeHeader(noise);
}

// ---- The schedule ----

TEST_F(NoiseTest, FiveMinutesCleanThenTwoMinutesNoisyAndTwoClean) {
    MakeSimpleRecords(700);
    ASSERT_EQ(Run({0}), 0);
    const Bytes data = Data();
    ASSERT_EQ(data.size(), 700U * 3);
    // 100 x 0.35355 / 50 = 0.70711 times +-50 is +-35.36.  The last clean value is -100; frame 299
    // is an odd one, so the switch finds s = -100 and noise -50: offset = trunc(-35.36) = -35.
    const double n = 100 * (std::sqrt(2.0) / 4);
    for (size_t frame = 0; frame < 700; ++frame) {
        const double sign = frame % 2 == 0 ? 1 : -1;
        double expected = sign * 100;
        // Frame 419 came out as trunc(-100.36) = -100, so the clean segment after it, to frame
        // 540, needs no offset.
        if ((frame >= 300 && frame < 420) || (frame >= 540 && frame < 660)) {
            expected += sign * n + 35;
        }
        ASSERT_EQ(FrameOf(data, frame).first, static_cast<int>(expected)) << frame;
        ASSERT_EQ(FrameOf(data, frame).second, static_cast<int>(expected)) << frame;
    }
}

TEST_F(NoiseTest, RecordAt360HzHasALeadInOf108000Frames) {
    const size_t frames = 108000 + 2 * 43200 + 100;
    std::vector<int> signal = Noise(frames * 2, 500, 3);
    // The noise record is longer than the signal, so that it never wraps.
    MakeRecord("s", 360, frames, {"212 1 12 0", "212 1 12 0"}, signal);
    MakeRecord("n", 360, frames, {"212 1 12 0"}, Noise(frames, 500, 4));
    ASSERT_EQ(Run({-6}), 0);
    const Bytes data = Data();
    ASSERT_EQ(data.size(), frames * 3);
    const auto isClean = [&](size_t frame) {
        return FrameOf(data, frame) == std::make_pair(signal[frame * 2], signal[frame * 2 + 1]);
    };
    size_t changed = 0;
    for (size_t frame = 0; frame < 108000; ++frame) {
        ASSERT_TRUE(isClean(frame)) << frame;
    }
    for (size_t frame = 108000; frame < 151200; ++frame) {
        changed += isClean(frame) ? 0U : 1U;
    }
    EXPECT_GT(changed, 43000U);
    // The offset of the clean segment is one number per signal.
    const auto offset = [&](size_t frame) {
        return FrameOf(data, frame).first - signal[frame * 2];
    };
    for (size_t frame = 151201; frame < 194400; ++frame) {
        ASSERT_EQ(offset(frame), offset(151200)) << frame;
    }
    changed = 0;
    for (size_t frame = 194400; frame < frames; ++frame) {
        changed += offset(frame) != offset(151200) ? 1U : 0U;
    }
    EXPECT_GT(changed, 95U);
}

TEST_F(NoiseTest, SignalShorterThanFiveMinutesStaysClean) {
    MakeSimpleRecords(299);
    ASSERT_EQ(Run({-20}), 0);
    const Bytes data = Data();
    ASSERT_EQ(data.size(), 299U * 3);
    for (size_t frame = 0; frame < 299; ++frame) {
        ASSERT_EQ(FrameOf(data, frame).first, frame % 2 == 0 ? 100 : -100);
    }
}

TEST_F(NoiseTest, TwoNoisesSwitchTogether) {
    MakeSimpleRecords(540);
    ASSERT_EQ(Run({12, 6}), 0);
    const Bytes data = Data();
    const double quarter = std::sqrt(2.0) / 4 * 100;
    const double n = quarter * std::pow(10, -12 / 20.0) + quarter * std::pow(10, -6 / 20.0);
    EXPECT_EQ(FrameOf(data, 299).first, -100);
    // s - n - trunc(-n) at the odd frames, s + n + trunc(n) at the even ones.
    EXPECT_EQ(FrameOf(data, 300).first, static_cast<int>(100 + n + std::floor(n)));
    EXPECT_EQ(FrameOf(data, 301).first, static_cast<int>(-100 - n + std::floor(n)));
    EXPECT_EQ(FrameOf(data, 419).first, static_cast<int>(-100 - n + std::floor(n)));
    EXPECT_EQ(FrameOf(data, 420).first, 100);
    EXPECT_EQ(FrameOf(data, 421).first, -100);
}

TEST_F(NoiseTest, SecondRunBeginsWithTheFactorsThatTheFirstOneLeft) {
    // Ends within the lead-in: the one switch leaves the noise on.
    MakeSimpleRecords(299);
    ASSERT_EQ(Run({0}), 0);
    const double ratio = g_vecNoiseItem[0].Ratio[0];
    EXPECT_EQ(g_vecNoiseItem[0].EffectiveRatio, (std::vector<double>{ratio, ratio}));

    ASSERT_EQ(NSTOutput((m_directory / "again").c_str()), 0);
    const Bytes data = Data("again");
    EXPECT_EQ(FrameOf(data, 0).first, 135);
    EXPECT_EQ(FrameOf(data, 1).first, -135);
    EXPECT_EQ(g_vecNoiseItem[0].EffectiveRatio, (std::vector<double>{0, 0}));

    NSTResetNoise();
    NSTAddNoise((m_directory / "n").c_str(), 0);
    ASSERT_EQ(NSTOutput((m_directory / "reset").c_str()), 0);
    EXPECT_EQ(FrameOf(Data("reset"), 0).first, 100);
}

TEST_F(NoiseTest, OutputWrapsAt12Bits) {
    g_nRunMax = 1;
    g_nMovingWindowSize = 2;
    std::vector<int> signal;
    for (int i = 0; i < 400; ++i) {
        signal.push_back(i % 2 == 0 ? 3000 : -3000);
        signal.push_back(i % 2 == 0 ? 2048 : -2049);
    }
    MakeRecord("s", 1, 400, {"16 1 12 0", "16 1 12 0"}, signal);
    MakeNoise({50, -50});
    ASSERT_EQ(Run({100}), 0);
    const Bytes data = Data();
    EXPECT_EQ(FrameOf(data, 0), std::make_pair(3000 - 4096, -2048));
    EXPECT_EQ(FrameOf(data, 1), std::make_pair(4096 - 3000, 2047));
}

TEST_F(NoiseTest, CleanFrameCanComeOutOneUnitLow) {
    // 29 / 200 x 200 is a little less than 29, 30 / 200 x 200 is 30.  With a baseline of 1024 the
    // sample -1016 lies at -2040 and comes out a little nearer to zero, -1015 does not.
    MakeSimpleRecords();
    std::vector<int> signal;
    for (int i = 0; i < 10; ++i) {
        signal.insert(signal.end(), {i % 2 == 0 ? 29 : 30, i % 2 == 0 ? -1016 : -1015});
    }
    MakeRecord("s", 1, 10, {"212 200 12 0", "212 200 12 1024"}, signal);
    ASSERT_EQ(Run({0}), 0);
    EXPECT_EQ(FrameOf(Data(), 0), std::make_pair(28, -2039));
    EXPECT_EQ(FrameOf(Data(), 1), std::make_pair(30, -2039));
}

// ---- The header of the mixed record ----

TEST_F(NoiseTest, HeaderKeepsWhatTheSignalRecordSays) {
    MakeSimpleRecords();
    MakeRecord("s", 1, 4,
               {"212x1:2+3 200.5(-7)/mV 11 1024 995 -22131 0 MLII", "212 1e-3 12 -5 1 2 3 lead V5"},
               {1, 2, 3, 4, 5, 6, 7, 8});
    ASSERT_EQ(Run({0}, "mixed"), 0);
    EXPECT_EQ(HeaderText("mixed"), "mixed 2 1 4\n"
                                   "mixed.dat 212 200.5 11 1024 0 0 0 MLII\n"
                                   "mixed.dat 212 0.001 12 -5 0 0 0 lead V5\n");
}

TEST_F(NoiseTest, HeaderHasTheDecimalPointInEveryLocale) {
    const DecimalComma locale;
    if (!locale.IsThere()) {
        GTEST_SKIP() << "There is no localedef on this machine.";
    }
    MakeSimpleRecords();
    MakeRecord("s", 1, 2, {"212 200.5 11 0 0 0 0 A"}, {1, 2});
    EXPECT_EQ(Run({0}), 0);
    EXPECT_EQ(HeaderText(), "o 1 1 2\no.dat 212 200.5 11 0 0 0 0 A\n");
}

TEST_F(NoiseTest, HeaderKeepsTheSignalCountThatTheDataFileHasNot) {
    MakeSimpleRecords();
    MakeRecord("s", 1, 3, {"212 1 12 0 0 0 0 A", "212 1 12 0 0 0 0 B", "212 1 12 0"},
               {1, 2, 3, 4, 5, 6, 7, 8, 9});
    ASSERT_EQ(Run({60}), 0);
    EXPECT_EQ(HeaderText(), "o 3 1 3\no.dat 212 1 12 0 0 0 0 A\n"
                            "o.dat 212 1 12 0 0 0 0 B\no.dat 212 1 12 0 0 0 0 \n");
    const Bytes data = Data();
    ASSERT_EQ(data.size(), 9U);
    EXPECT_EQ(FrameOf(data, 0), std::make_pair(1, 2));
    EXPECT_EQ(FrameOf(data, 2), std::make_pair(7, 8));
}

TEST_F(NoiseTest, RecordWithOneSignalHasZeroInTheSecondPlace) {
    MakeSimpleRecords();
    MakeRecord("s", 1, 4, {"212 1 12 0 0 0 0 A"}, {-1, 2, -3, 4});
    ASSERT_EQ(Run({60}), 0);
    EXPECT_EQ(HeaderText(), "o 1 1 4\no.dat 212 1 12 0 0 0 0 A\n");
    EXPECT_EQ(Data(), (Bytes{0xFF, 0x0F, 0, 2, 0, 0, 0xFD, 0x0F, 0, 4, 0, 0}));
}

TEST_F(NoiseTest, NameInTheHeaderIsTheShortenedOne) {
    MakeSimpleRecords(10);
    ASSERT_EQ(Run({0}, "a.b"), 0);
    EXPECT_EQ(HeaderText("a.b").substr(0, 8), "a 2 1 10");
    EXPECT_TRUE(Exists("a.b.dat"));
    ASSERT_EQ(Run({0}, "abcdefghijklmnop"), 0);
    EXPECT_EQ(HeaderText("abcdefghijklmnop").substr(0, 16), "abcdefghijklmno ");
    EXPECT_TRUE(Exists("abcdefghijklmnop.dat"));
}

TEST_F(NoiseTest, OutputWithoutDirectoryIsNamedWithoutItsFirstCharacter) {
    MakeSimpleRecords(10);
    NSTSetSignal((m_directory / "s").c_str());
    NSTAddNoise((m_directory / "n").c_str(), 0);
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_directory.Path());
    const int result = NSTOutput("mixed");
    std::filesystem::current_path(before);
    ASSERT_EQ(result, 0);
    EXPECT_TRUE(Exists("mixed.dat"));
    EXPECT_EQ(HeaderText("mixed").substr(0, 14), "ixed 2 1 10\nix");
}

// ---- Paths of the records ----

TEST_F(NoiseTest, RecordsMayBeNamedWithOrWithoutExtensionAndDirectory) {
    MakeSimpleRecords(10);
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_directory.Path());
    for (const char* path : {"s", "s.hea", "./s", "./s.hea"}) {
        WFDB_HEADER* header = DoProcessNSTLoadSingal(path);
        EXPECT_NE(header, nullptr) << path;
        WFDBFreeHeader(header);
    }
    std::filesystem::current_path(before);
}

TEST_F(NoiseTest, ExtensionInADirectoryNameStopsItsBeingAppended) {
    MakeSimpleRecords(10);
    std::filesystem::create_directory(m_directory / "x.hea.d");
    for (const char* file : {"s.hea", "s.dat"}) {
        std::filesystem::copy(m_directory / file, m_directory / (std::string("x.hea.d/") + file));
    }
    EXPECT_EQ(DoProcessNSTLoadNoise((m_directory / "x.hea.d/s").c_str()), nullptr);
    WFDB_HEADER* header = DoProcessNSTLoadNoise((m_directory / "x.hea.d/s.hea").c_str());
    EXPECT_NE(header, nullptr);
    WFDBFreeHeader(header);
}

TEST_F(NoiseTest, OnlyTheSignalRecordGetsItsAnnotations) {
    MakeSimpleRecords(10);
    m_directory.Write("s.atr", BeatsEvery(2, 3));
    WFDB_HEADER* signal = DoProcessNSTLoadSingal((m_directory / "s").c_str());
    WFDB_HEADER* noise = DoProcessNSTLoadNoise((m_directory / "s").c_str());
    EXPECT_NE(GetAnnotationFile(signal), nullptr);
    EXPECT_EQ(GetAnnotationFile(noise), nullptr);
    WFDBFreeHeader(signal);
    WFDBFreeHeader(noise);
}

// ---- The one-noise call ----

TEST_F(NoiseTest, OneNoiseCallReportsSuccessAsZero) {
    MakeSimpleRecords(10);
    std::string signal = m_directory / "s", noise = m_directory / "n";
    std::string output = m_directory / "o", missing = m_directory / "missing";
    NSTAddNoise("/left/over", 1);
    EXPECT_EQ(WFDBNoiseTest(signal.data(), noise.data(), output.data(), -3), 0);
    EXPECT_EQ(Data().size(), 30U);
    ASSERT_EQ(g_vecNoiseItem.size(), 1U);
    EXPECT_EQ(g_vecNoiseItem[0].SignalNoiseRatio, -3.0);
    EXPECT_EQ(WFDBNoiseTest(missing.data(), noise.data(), output.data(), 0), 1);
    EXPECT_EQ(g_strSignalFilePath, missing);
    EXPECT_EQ(WFDBNoiseTest(signal.data(), missing.data(), output.data(), 0), 1);
    std::string nowhere = m_directory / "missing/o";
    EXPECT_EQ(WFDBNoiseTest(signal.data(), noise.data(), nowhere.data(), 0), 1);
    // Nothing to run counts as success.
    EXPECT_EQ(WFDBNoiseTest(signal.data(), noise.data(), std::string().data(), 0), 0);
}

// ---- The single form ----

TEST_F(NoiseTest, SingleFormBeginsWhereTheMeasurementEnded) {
    MakeSimpleRecords(10);
    MakeRecord("s", 1, 10, {"212 1 12 0", "212 1 12 0"},
               {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19});
    MakeRecord("n", 1, 10, {"212 1 12 0"}, {3, -3, 3, -3, 3, -3, 3, -3, 3, -3});
    EXPECT_EQ(RunSingle("s", "n", 0), 0);
    // One window of two frames is measured.
    const Bytes data = Data();
    ASSERT_EQ(data.size(), 8U * 3);
    EXPECT_EQ(FrameOf(data, 0), std::make_pair(4, 5));
    EXPECT_EQ(FrameOf(data, 7), std::make_pair(18, 19));
    EXPECT_EQ(HeaderText().substr(0, 9), "o 2 1 10\n");
    EXPECT_TRUE(g_vecNoiseItem.empty());
}

TEST_F(NoiseTest, SingleFormDropsByTheBaselineWhereTheNoiseWraps) {
    MakeSimpleRecords(10);
    std::vector<int> signal;
    for (int i = 0; i < 12; ++i) {
        signal.insert(signal.end(), {600 + i, 700 - i});
    }
    MakeRecord("s", 1, 12, {"212 1 12 500", "212 1 12 800"}, signal);
    MakeRecord("n", 1, 4, {"212 1 12 0"}, {3, -3, 3, -3});
    EXPECT_EQ(RunSingle("s", "n", 0), 0);
    const Bytes data = Data();
    ASSERT_EQ(data.size(), 30U);
    // Both begin after the measured window of two frames; the noise has two frames left.
    EXPECT_EQ(FrameOf(data, 0), std::make_pair(102, -102));
    EXPECT_EQ(FrameOf(data, 1), std::make_pair(103, -103));
    // The wrap: the last output less the baseline; from there it continues like the signal.
    EXPECT_EQ(FrameOf(data, 2), std::make_pair(103 - 500, -103 - 800));
    EXPECT_EQ(FrameOf(data, 3), std::make_pair(104 - 500, -104 - 800));
    EXPECT_EQ(FrameOf(data, 5), std::make_pair(106 - 500, -106 - 800));
    EXPECT_EQ(FrameOf(data, 6), std::make_pair(106 - 1000, -106 - 1600));
    EXPECT_EQ(FrameOf(data, 9), std::make_pair(109 - 1000, -109 - 1600));
}

TEST_F(NoiseTest, SingleFormKeepsNothingBetweenRuns) {
    MakeSimpleRecords(299);
    ASSERT_EQ(RunSingle("s", "n", 0), 0);
    const Bytes first = Data();
    ASSERT_EQ(RunSingle("s", "n", 0), 0);
    EXPECT_EQ(Data(), first);
}
