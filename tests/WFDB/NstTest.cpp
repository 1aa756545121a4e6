#include "WFDB/nst.h"
#include "tests/support/DecimalComma.h"
#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "tests/support/PublicRecord.h"
#include "tests/WFDB/RecordModel.h"
#include "WFDB/sigamp.h"
#include "WFDB/stdafx.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <ostream>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes ReadBytes(const std::string& path) {
    const std::string content = ReadFile(path);
    return {content.begin(), content.end()};
}

int SignExtend(int code) {
    return code >= 2048 ? code - 4096 : code;
}

// The two signals of a written frame.
std::pair<int, int> FrameOf(const Bytes& data, size_t frame) {
    const size_t at = frame * 3;
    return {SignExtend(data.at(at) + data.at(at + 1) % 16 * 256),
            SignExtend(data.at(at + 2) + data.at(at + 1) / 16 * 256)};
}

size_t CountOpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

std::vector<int> Noise(size_t count, int amplitude, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<int> samples(count);
    for (int& sample : samples) {
        sample = static_cast<int>(random() % static_cast<unsigned>(2 * amplitude + 1)) - amplitude;
    }
    return samples;
}

// Annotations with one normal beat every `interval` frames, at most 1023.
Bytes BeatsEvery(unsigned interval, int count) {
    Bytes bytes;
    for (int i = 0; i < count; ++i) {
        bytes.push_back(static_cast<uint8_t>(interval % 256));
        bytes.push_back(static_cast<uint8_t>(4 + interval / 256));
    }
    bytes.push_back(0);
    bytes.push_back(0);
    return bytes;
}

// A directory of made records and an empty configuration.  Most records run at 1 frame per second,
// which makes the lead-in 300 and a segment 120 frames long.
class NoiseTest : public testing::Test {
  protected:
    ~NoiseTest() override {
        g_nRunMax = 300;
        g_nMovingWindowSize = 360;
        NSTResetNoise();
        NSTSetSignal("");
        g_strOutputFilePath.clear();
    }

    // A record with the signal lines' part after the file name, and its samples in frame order.
    std::string MakeRecord(const std::string& name, int frequency, size_t frames,
                           const std::vector<std::string>& signals,
                           const std::vector<int>& samples) {
        std::string header = name + " " + std::to_string(signals.size()) + " " +
                             std::to_string(frequency) + " " + std::to_string(frames) + "\n";
        for (const std::string& signal : signals) {
            header += name + ".dat " + signal + "\n";
        }
        const bool packed = !signals.empty() && signals[0].substr(0, 3) == "212";
        m_directory.Write(name + ".dat",
                          packed ? EncodeFormat212(samples) : EncodeFormat16(samples));
        m_directory.Write(name + ".hea", header);
        return m_directory / name;
    }

    // A two-signal record s that holds 100 and -100 in turn, and a noise record n of half that
    // height, measured in windows that see all of it.
    void MakeSimpleRecords(size_t frames = 700) {
        g_nRunMax = 1;
        g_nMovingWindowSize = 2;
        std::vector<int> signal;
        for (size_t i = 0; i < frames; ++i) {
            signal.insert(signal.end(), 2, i % 2 == 0 ? 100 : -100);
        }
        MakeRecord("s", 1, frames, {"212 1 12 0 0 0 0 A", "212 1 12 0 0 0 0 B"}, signal);
        MakeRecord("n", 1, 1000, {"212 1 12 0"}, std::vector<int>(1000, 0));
        MakeNoise({50, -50});
    }
    void MakeNoise(std::vector<int> samples) {
        const size_t period = samples.size();
        while (samples.size() < 1000) {
            samples.push_back(samples[samples.size() - period]);
        }
        MakeRecord("n", 1, 1000, {"212 1 12 0"}, samples);
    }

    int Run(const std::vector<double>& ratios, const std::string& output = "o") {
        NSTSetSignal((m_directory / "s").c_str());
        NSTResetNoise();
        for (const double snr : ratios) {
            NSTAddNoise((m_directory / "n").c_str(), snr);
        }
        return NSTOutput((m_directory / output).c_str());
    }
    int RunSingle(const std::string& signal, const std::string& noise, double snr,
                  const std::string& output = "o") {
        std::string signalPath = m_directory / signal;
        std::string noisePath = m_directory / noise;
        std::string outputPath = m_directory / output;
        return nst(signalPath.data(), noisePath.data(), outputPath.data(), snr);
    }

    Bytes Data(const std::string& output = "o") const {
        return ReadBytes(m_directory / (output + ".dat"));
    }
    std::string HeaderText(const std::string& output = "o") const {
        return ReadFile(m_directory / (output + ".hea"));
    }
    bool Exists(const std::string& name) const {
        return std::filesystem::exists(m_directory / name);
    }

    Scratch m_directory;
};

} // namespace

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
    // 20 dB is a factor of ten, and -20 dB one of a tenth.
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

// ---- Failures ----

TEST_F(NoiseTest, RecordsThatCannotBeLoaded) {
    MakeSimpleRecords(10);
    m_directory.Write("nodata.hea", "nodata 1 1 4\nnodata.dat 212 1 12 0\n");
    const size_t open = CountOpenDescriptors();
    for (const char* bad : {"missing", "nodata"}) {
        const std::string badPath = m_directory / bad;
        NSTResetNoise();
        NSTSetSignal(badPath.c_str());
        NSTAddNoise((m_directory / "n").c_str(), 0);
        EXPECT_EQ(NSTOutput((m_directory / "o").c_str()), -4);
        // The second noise fails after the first is loaded.
        NSTSetSignal((m_directory / "s").c_str());
        NSTAddNoise(badPath.c_str(), 0);
        EXPECT_EQ(NSTOutput((m_directory / "o").c_str()), -4);
        EXPECT_EQ(g_vecNoiseItem[0].WFDBHeader, nullptr);
        EXPECT_EQ(g_vecNoiseItem[1].WFDBHeader, nullptr);
        EXPECT_EQ(RunSingle(bad, "n", 0), -4);
        EXPECT_EQ(RunSingle("s", bad, 0), -4);
    }
    EXPECT_FALSE(Exists("o.dat"));
    EXPECT_FALSE(Exists("o.hea"));
    EXPECT_EQ(CountOpenDescriptors(), open);

    // The run that follows is not the worse for it.
    NSTResetNoise();
    EXPECT_EQ(Run({0}), 0);
    EXPECT_EQ(Data().size(), 30U);
    EXPECT_EQ(CountOpenDescriptors(), open);
}

TEST_F(NoiseTest, OutputThatCannotBeCreated) {
    MakeSimpleRecords(10);
    const size_t open = CountOpenDescriptors();
    EXPECT_EQ(Run({0}, "missing/o"), -8);
    EXPECT_EQ(g_vecNoiseItem[0].WFDBHeader, nullptr);
    EXPECT_EQ(WFDBNoiseTestExOutput((m_directory / "missing/o").data()), 0);
    std::filesystem::create_directory(m_directory / "d.dat");
    EXPECT_EQ(Run({0}, "d"), -8);
    EXPECT_FALSE(Exists("d.hea"));
    EXPECT_EQ(CountOpenDescriptors(), open);
}

TEST_F(NoiseTest, SingleFormWithAnOutputThatCannotBeCreatedWritesNothing) {
    MakeSimpleRecords(10);
    EXPECT_EQ(RunSingle("s", "n", 0, "missing/o"), 0);
    std::filesystem::create_directory(m_directory / "d.dat");
    EXPECT_EQ(RunSingle("s", "n", 0, "d"), 0);
    EXPECT_FALSE(Exists("d.hea"));
}

TEST_F(NoiseTest, HeaderThatCannotBeCreatedIsNoFailure) {
    MakeSimpleRecords(10);
    std::filesystem::create_directory(m_directory / "o.hea");
    EXPECT_EQ(Run({0}), 0);
    EXPECT_EQ(Data().size(), 30U);
}

// The output would empty the file that the test reads.
TEST_F(NoiseTest, OutputOntoItsOwnSourceIsRefused) {
    MakeSimpleRecords();
    const Bytes signal = Data("s");
    const Bytes noise = Data("n");
    const std::string signalHeader = HeaderText("s");
    std::filesystem::create_symlink(m_directory / "s.dat", m_directory / "link.dat");
    std::filesystem::create_hard_link(m_directory / "n.hea", m_directory / "hard.hea");
    for (const char* output : {"s", "n", "link", "hard"}) {
        EXPECT_EQ(Run({6.0}, output), -8) << output;
        EXPECT_EQ(RunSingle("s", "n", 6.0, output), -8) << output;
        EXPECT_EQ(RAVOGetLastError(nullptr, 0), RAVO_ERROR_ARGUMENT);
        EXPECT_EQ(WFDBNoiseTestExOutput((m_directory / output).data()), 0);
    }
    EXPECT_EQ(Data("s"), signal);
    EXPECT_EQ(Data("n"), noise);
    EXPECT_EQ(HeaderText("s"), signalHeader);
    EXPECT_FALSE(Exists("hard.dat"));
}

TEST_F(NoiseTest, OutputIsReplaced) {
    MakeSimpleRecords(10);
    m_directory.Write("o.dat", std::string(1000, 'x'));
    m_directory.Write("o.hea", std::string(1000, 'x'));
    EXPECT_EQ(Run({0}), 0);
    EXPECT_EQ(Data().size(), 30U);
    EXPECT_EQ(HeaderText().substr(0, 9), "o 2 1 10\n");
}

TEST_F(NoiseTest, UnreadableNoiseEndsTheOutputWithTheHeaderWritten) {
    MakeSimpleRecords(10);
    for (const char* signals : {"n 0 1 4\n", "n 1 1 4\nn.dat 80 1 12 0\n", "n 1 1 4\n",
                                "n 1 1 4\nn.dat 212x1001 1 12 0\n"}) {
        m_directory.Write("n.hea", signals);
        std::filesystem::remove(m_directory / "o.hea");
        EXPECT_EQ(Run({0}), 0) << signals;
        EXPECT_TRUE(Exists("o.dat")) << signals;
        EXPECT_EQ(Data().size(), 0U) << signals;
        EXPECT_EQ(HeaderText().substr(0, 9), "o 2 1 10\n") << signals;
        EXPECT_EQ(RunSingle("s", "n", 0, "single"), 0) << signals;
        EXPECT_EQ(Data("single").size(), 0U) << signals;
        EXPECT_EQ(HeaderText("single").substr(0, 14), "single 2 1 10\n") << signals;
    }
}

TEST_F(NoiseTest, UnreadableSignalYieldsAnEmptyRecord) {
    MakeSimpleRecords(10);
    m_directory.Write("s.hea", "s 2 1 10\ns.dat 80 1 12 0\ns.dat 80 1 12 0\n");
    EXPECT_EQ(Run({0}), 0);
    EXPECT_EQ(Data().size(), 0U);
    EXPECT_TRUE(Exists("o.hea"));
}

TEST_F(NoiseTest, SegmentsOfNoLengthEndTheRun) {
    MakeSimpleRecords(10);
    for (const char* frequency : {"0", "-360"}) {
        m_directory.Write("s.hea", std::string("s 2 ") + frequency +
                                       " 10\ns.dat 212 1 12 0\ns.dat 212 1 12 0\n");
        EXPECT_EQ(Run({0}), 0);
        EXPECT_TRUE(Exists("o.dat"));
        EXPECT_EQ(Data().size(), 0U);
        EXPECT_EQ(HeaderText().substr(0, 5), std::string("o 2 ") + frequency[0]);
        EXPECT_EQ(RunSingle("s", "n", 0), 0);
    }
    // 300 times this wraps to a negative number of frames, 120 times it does not.
    m_directory.Write("s.hea", "s 2 7158279 10\ns.dat 212 1 12 0\ns.dat 212 1 12 0\n");
    EXPECT_EQ(Run({0}), 0);
    EXPECT_EQ(Data().size(), 30U);
}

TEST_F(NoiseTest, SilentNoiseIsSurvived) {
    MakeSimpleRecords(700);
    MakeNoise({0});
    ASSERT_EQ(Run({0}), 0);
    const Bytes data = Data();
    ASSERT_EQ(data.size(), 700U * 3);
    EXPECT_EQ(FrameOf(data, 0).first, 100);
    EXPECT_EQ(FrameOf(data, 299).first, -100);
    // An infinite factor times 0 is not a number, which is written as 0.
    EXPECT_EQ(FrameOf(data, 300).first, 0);
    EXPECT_EQ(RunSingle("s", "n", 0), 0);
    EXPECT_EQ(FrameOf(Data(), 300).first, 0);
    // The noise that the measured window does not see becomes infinite.
    MakeNoise({0, 0, 7, -7});
    ASSERT_EQ(Run({0}), 0);
    EXPECT_EQ(Data().size(), 700U * 3);
    // Silence on both sides.
    MakeRecord("s", 1, 700, {"212 1 12 0", "212 1 12 0"}, std::vector<int>(1400, 5));
    ASSERT_EQ(Run({0}), 0);
    EXPECT_EQ(FrameOf(Data(), 299).first, 5);
}

TEST_F(NoiseTest, AbsurdRatiosAreSurvived) {
    MakeSimpleRecords(500);
    using Limits = std::numeric_limits<double>;
    for (const double snr : {1e308, -1e308, 7000.0, -7000.0, Limits::infinity(),
                             -Limits::infinity(), Limits::quiet_NaN()}) {
        ASSERT_EQ(Run({snr}), 0);
        EXPECT_EQ(Data().size(), 1500U);
        EXPECT_EQ(FrameOf(Data(), 299).first, -100);
        EXPECT_EQ(RunSingle("s", "n", snr), 0);
    }
    // Full noise saturates before it is packed: 0x7FFFFFFF is -1 in 12 bits.
    ASSERT_EQ(Run({-7000}), 0);
    EXPECT_EQ(FrameOf(Data(), 300).first, -1);
}

TEST_F(NoiseTest, TinyGainsAreSurvived) {
    MakeSimpleRecords(500);
    m_directory.Write("s.hea", "s 2 1 500\ns.dat 212 1e-320 12 0\ns.dat 212 1e300 12 0\n");
    EXPECT_EQ(Run({0}), 0);
    EXPECT_EQ(Data().size(), 1500U);
    m_directory.Write("n.hea", "n 1 1 1000\nn.dat 212 1e-320 12 2147483647\n");
    EXPECT_EQ(Run({0}), 0);
    EXPECT_EQ(Data().size(), 1500U);
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
    // The wrap: the last output less the baseline, and from there as the signal goes.
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

// ---- Against the model ----

namespace {

struct Mix {
    const char* name;
    int frequency;
    std::vector<std::string> signal;
    std::vector<std::string> noise;
    size_t noiseFrames;
    bool annotated;
};

void PrintTo(const Mix& mix, std::ostream* out) {
    *out << mix.name;
}

const Mix kMixes[] = {
    {"TwoSignals", 4, {"212 200 12 0", "212 200 12 -50"}, {"212 1 12 0"}, 700, false},
    {"Beats", 20, {"212 200 11 1024", "212 200(30) 11 1024"}, {"212 100 12 77"}, 4000, true},
    {"OneSignal", 4, {"212 7 12 3"}, {"212 1 12 0", "212 200 12 5"}, 999, false},
    {"ThreeSignals",
     4,
     {"212 3.3 12 9", "212 9 12 -9", "212 1 12 0"},
     {"212 3 12 5", "212 1 12 0"},
     777,
     false},
    {"Format16",
     4,
     {"16 1000 16 0", "16 250 16 12"},
     {"16 50 16 -3", "16 1 16 0", "16 1 16 8"},
     600,
     false},
    {"Format16Beats", 20, {"16x2 1000 16 0", "16 250 16 12"}, {"212 50 16 -3"}, 5000, true},
    {"SeveralSamples", 20, {"212x3 200 12 7", "212 200 12 7"}, {"212x2 200 12 1"}, 2001, true},
    {"NoiseLongerThanTheSignal",
     4,
     {"212 200 12 7", "212 200 12 7"},
     {"212 200 12 1"},
     9000,
     false},
    {"ShortNoise", 4, {"212 200 12 100", "212 200 12 0"}, {"212 200 12 30"}, 397, false},
};

constexpr int kRuns = 20;
constexpr int kWindow = 18;

class NoiseTestAgainstModel : public NoiseTest, public testing::WithParamInterface<Mix> {
  protected:
    NoiseTestAgainstModel() {
        g_nRunMax = kRuns;
        g_nMovingWindowSize = kWindow;
        const Mix& mix = GetParam();
        // Lead-in, noisy, clean and the beginning of a noisy segment.
        const size_t frames = 560 * static_cast<size_t>(mix.frequency);
        Make("s", mix.frequency, mix.signal, frames, 700);
        Make("n", 10, mix.noise, mix.noiseFrames, 300);
        Make("m", 10, {"212 400 12 -200"}, 500, 1500);
        if (mix.annotated) {
            m_directory.Write("s.atr", BeatsEvery(17, 310));
        }
    }

    model::Record Open(const std::string& name) const {
        return {m_directory.Path(), name, name == "s"};
    }

    void CompareWithModel(model::Record& signal, std::vector<model::Noise>& noises,
                          model::Form form) {
        EXPECT_TRUE(Data() == model::MixNoise(signal, noises, form, kRuns, kWindow));
        EXPECT_GT(Data().size(), size_t{3} * 420 * static_cast<size_t>(GetParam().frequency));
        for (const model::Noise& noise : noises) {
            for (const double ratio : noise.ratio) {
                EXPECT_TRUE(std::isnormal(ratio) && ratio > 0) << ratio;
            }
        }
    }

  private:
    void Make(const std::string& name, int frequency, const std::vector<std::string>& signals,
              size_t frames, int amplitude) {
        size_t samples = 0;
        for (const std::string& signal : signals) {
            const size_t marker = signal.find('x');
            samples += marker == std::string::npos ? 1U : std::stoul(signal.substr(marker + 1));
        }
        MakeRecord(name, frequency, frames, signals, Noise(frames * samples, amplitude, ++m_seed));
    }

    unsigned m_seed = 0;
};

} // namespace

TEST_P(NoiseTestAgainstModel, ConfiguredFormIsTheSameBitForBit) {
    for (const bool two : {false, true}) {
        model::Record signal = Open("s");
        std::vector<model::Noise> noises = {{Open("n"), 6.0}};
        NSTSetSignal((m_directory / "s").c_str());
        NSTResetNoise();
        NSTAddNoise((m_directory / "n").c_str(), 6.0);
        if (two) {
            noises.emplace_back(Open("m"), -2.5);
            NSTAddNoise((m_directory / "m").c_str(), -2.5);
        }
        ASSERT_EQ(NSTOutput((m_directory / "o").c_str()), 0);
        CompareWithModel(signal, noises, model::Form::kList);
        // Once more, with the factors that the first run left.
        ASSERT_EQ(NSTOutput((m_directory / "o").c_str()), 0);
        CompareWithModel(signal, noises, model::Form::kList);
    }
}

TEST_P(NoiseTestAgainstModel, SingleFormIsTheSameBitForBit) {
    model::Record signal = Open("s");
    std::vector<model::Noise> noise = {{Open("n"), -1.0}};
    ASSERT_EQ(RunSingle("s", "n", -1.0), 0);
    CompareWithModel(signal, noise, model::Form::kSingle);
}

INSTANTIATE_TEST_SUITE_P(Mixes, NoiseTestAgainstModel, testing::ValuesIn(kMixes),
                         [](const auto& mix) { return std::string(mix.param.name); });

namespace {

class NoiseTestOfRecord100 : public NoiseTest {
  protected:
    void SetUp() override {
        const std::filesystem::path record = PublicRecord("100.hea");
        if (record.empty()) {
            GTEST_SKIP() << "The public record 100 is not there.";
        }
        m_from = record.parent_path();
        // Shorter than the signal, so that both are repeated within segments.
        MakeRecord("n", 360, 200000, {"212 200 11 1024", "212 200 11 1024"}, Noise(400000, 400, 9));
        MakeRecord("m", 360, 123457, {"16 100 16 10"}, Noise(123457, 5000, 10));
    }

    void CompareConfigured(std::vector<model::Noise> noises) {
        model::Record signal(m_from, "100", true);
        NSTSetSignal((m_from + "/100").c_str());
        ASSERT_EQ(NSTOutput((m_directory / "100n").c_str()), 0);
        EXPECT_EQ(Data("100n").size(), 650000U * 3);
        EXPECT_TRUE(Data("100n") == model::MixNoise(signal, noises, model::Form::kList));
        EXPECT_EQ(HeaderText("100n"), "100n 2 360 650000\n100n.dat 212 200 11 1024 0 0 0 MLII\n"
                                      "100n.dat 212 200 11 1024 0 0 0 V5\n");
    }

    model::Record Open(const std::string& name) const { return {m_directory.Path(), name, false}; }

    std::string m_from;
};

} // namespace

TEST_F(NoiseTestOfRecord100, OneNoise) {
    NSTAddNoise((m_directory / "n").c_str(), 12.0);
    CompareConfigured({{Open("n"), 12.0}});
}

TEST_F(NoiseTestOfRecord100, TwoNoises) {
    NSTAddNoise((m_directory / "n").c_str(), 12.0);
    NSTAddNoise((m_directory / "m").c_str(), 6.0);
    CompareConfigured({{Open("n"), 12.0}, {Open("m"), 6.0}});
}

TEST_F(NoiseTestOfRecord100, SingleForm) {
    model::Record signal(m_from, "100", true);
    std::vector<model::Noise> noise = {{Open("n"), 0.0}};
    std::string signalPath = m_from + "/100.hea";
    std::string noisePath = m_directory / "n";
    std::string outputPath = m_directory / "single";
    ASSERT_EQ(nst(signalPath.data(), noisePath.data(), outputPath.data(), 0.0), 0);
    EXPECT_TRUE(Data("single") == model::MixNoise(signal, noise, model::Form::kSingle));
}
