#include "engine/loaders/LoadMIT.h"

#include "engine/Record.h"
#include "tests/engine/LoadMITFixture.h"
#include "tests/support/Sanitizers.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// A record at 2 frames a second, whose first minute is 120 samples of `firstMinute` hundredths of
// a millivolt, followed by three others.
std::vector<int> Minutes(int firstMinute) {
    std::vector<int> samples(120, firstMinute);
    samples.insert(samples.end(), {firstMinute, 0, 100});
    return samples;
}

} // namespace

TEST_F(LoadMIT, CentresAChannelThatIsFiveMillivoltsOff) {
    Load("a 1 2 123\n" + Signal16("I"), Minutes(500));
    Values expected(121, 0.0);
    expected.insert(expected.end(), {-5.0, -4.0});
    EXPECT_EQ(Channel(0), expected);
}

TEST_F(LoadMIT, LeavesABaselineBelowFiveMillivolts) {
    Load("a 1 2 123\n" + Signal16("I", "1000"), Minutes(4999));
    EXPECT_EQ(Channel(0)[0], 4.999);
    EXPECT_EQ(Channel(0)[121], 0.0);
}

TEST_F(LoadMIT, CentresTheWholeLengthOfAChannel) {
    Load("a 2 2 123\n" + Signal16("I") + Signal16("II"), [] {
        std::vector<int> samples;
        for (const int sample : Minutes(-700)) {
            samples.insert(samples.end(), {sample, sample / 7 * 4});
        }
        return samples;
    }());
    Values expected(121, 0.0);
    expected.insert(expected.end(), {7.0, 8.0});
    EXPECT_EQ(Channel(0), expected);
    EXPECT_EQ(Channel(1)[0], -4.0);
    EXPECT_EQ(Channel(1)[121], 0.0);
}

TEST_F(LoadMIT, LooksAtTheFirstMinuteOnly) {
    // The whole averages above 5 mV, the first minute below.
    std::vector<int> samples(120, 499);
    samples.insert(samples.end(), 120, 9900);
    Load("a 1 2 240\n" + Signal16("I"), samples);
    EXPECT_EQ(Channel(0)[0], 4.99);
    EXPECT_EQ(Channel(0)[200], 99.0);
}

// The mean is that of the samples read, 20 and 22 mV, and the samples not read stay silent.
TEST_F(LoadMIT, CentresOnlyWhatAShortFileHolds) {
    Load("a 1 250 4\n" + Signal16("I"), {2000, 2200});
    EXPECT_EQ(Channel(0), (Values{-1, 1, 0, 0}));
}

// Sixty samples at 10 mV out of 100 million announced: samples that are not in the file take no
// memory.
TEST_F(LoadMIT, TouchesNoMemoryForWhatAShortFileLacks) {
    if (kUnderSanitizer) {
        GTEST_SKIP() << "a sanitizer touches all memory that it allocates";
    }
    const auto resident = [] {
        long total = 0;
        long pages = 0;
        std::ifstream("/proc/self/statm") >> total >> pages;
        return pages * sysconf(_SC_PAGESIZE);
    };
    const long before = resident();
    Load("a 1 250 100000000\n" + Signal16("I"), std::vector<int>(60, 1000));
    EXPECT_EQ(g_nSampleCount, 100000000U);
    EXPECT_EQ(g_pECGData[0][59], 0.0);
    EXPECT_LT(resident() - before, 16 << 20);
}

TEST_F(LoadMIT, DoesNotCorrectWithoutAMinute) {
    for (const char* rate : {"0", "-5", "-9223372036854775808"}) {
        Load("a 1 " + std::string(rate) + " 2\n" + Signal16("I"), {700, 700});
        EXPECT_EQ(Channel(0), (Values{7, 7})) << rate;
    }
}

TEST_F(LoadMIT, CorrectsWhateverTheFrequency) {
    Load("a 1 9223372036854775807 2\n" + Signal16("I"), {700, 700});
    EXPECT_EQ(Channel(0), (Values{0, 0}));
    EXPECT_EQ(g_nSampleRate, std::numeric_limits<uint32_t>::max());
}

TEST_F(LoadMIT, LeavesAChannelWithoutANumberAsMean) {
    Load("a 2 250 2\n" + Signal16("I", "nan") + Signal16("II"), {100, 800, 100, 600});
    EXPECT_TRUE(std::isnan(Channel(0)[0]));
    EXPECT_EQ(Channel(1), (Values{1, -1}));
}
