#include "WFDB/nst.h"

#include "tests/WFDB/NstFixture.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace {

size_t CountOpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

} // namespace

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

    // The failure has no effect on the next run.
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

// The output would empty the file that the test is reading.
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
