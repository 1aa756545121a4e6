#include "builtin/Beat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kSamplesPerBeat = 1000;

enum Lead : std::size_t { I, II, V1, V2, V3, V4, V5, V6 };

std::vector<double> OneBeat(const synthesis::Beat& beat, Lead lead) {
    std::vector<double> samples;
    for (int n = 0; n < kSamplesPerBeat; ++n) {
        samples.push_back(synthesis::LeadsAt(beat, -kPi + 2.0 * kPi * n / kSamplesPerBeat)[lead]);
    }
    return samples;
}

double Highest(Lead lead) {
    const auto samples = OneBeat(synthesis::NormalBeat(), lead);
    return *std::max_element(samples.begin(), samples.end());
}

double Lowest(Lead lead) {
    const auto samples = OneBeat(synthesis::NormalBeat(), lead);
    return *std::min_element(samples.begin(), samples.end());
}

// How long the samples around the highest one stay above half its height, in samples.
int WidthAtHalfHeight(const std::vector<double>& samples) {
    const auto top = std::max_element(samples.begin(), samples.end());
    auto first = top;
    auto last = top;
    while (first != samples.begin() && *first > *top / 2.0) {
        --first;
    }
    while (last != samples.end() && *last > *top / 2.0) {
        ++last;
    }
    return static_cast<int>(last - first);
}

} // namespace

// The published model's own figures.
TEST(BeatTest, PeaksLieWhereTheModelPutsThem) {
    EXPECT_NEAR(Highest(V1), 0.42, 0.01);
    EXPECT_NEAR(Lowest(V1), -0.84, 0.01);
    EXPECT_NEAR(Highest(V4), 1.70, 0.01);
    EXPECT_NEAR(Highest(V5), 1.60, 0.01);
    EXPECT_NEAR(Highest(V6), 1.19, 0.01);
    EXPECT_NEAR(Highest(I), 0.80, 0.01);
    EXPECT_NEAR(Highest(II), 0.80, 0.01);
}

TEST(BeatTest, TWaveIsUprightInTheLimbLeads) {
    const auto leads = synthesis::LeadsAt(synthesis::NormalBeat(), 1.65);
    EXPECT_GT(leads[I], 0.1);
    EXPECT_GT(leads[II], 0.1);
}

TEST(BeatTest, OneBeatRunsIntoTheNextWithoutAStep) {
    for (const Lead lead : {I, II, V1, V2, V3, V4, V5, V6}) {
        const auto samples = OneBeat(synthesis::NormalBeat(), lead);
        EXPECT_LE(std::fabs(samples.front() - samples.back()), 0.0007) << "lead " << lead;
    }
}

TEST(BeatTest, PhaseCountsModuloOneTurn) {
    const auto beat = synthesis::NormalBeat();
    const auto here = synthesis::LeadsAt(beat, 0.25);
    const auto later = synthesis::LeadsAt(beat, 0.25 + 20.0 * kPi);
    for (std::size_t i = 0; i < synthesis::kLeadCount; ++i) {
        EXPECT_NEAR(here[i], later[i], 1e-12);
    }
}

// At R only the Gaussians nearby contribute; the wide ones that are left out add less than the
// tolerance.
TEST(BeatTest, LeadsAtTheRWaveAreTheProjectedDipole) {
    const auto leads = synthesis::LeadsAt(synthesis::NormalBeat(), 0.0);
    const double x = 1.11 + 0.85 * std::exp(-0.07 * 0.07 / (2 * 0.0378 * 0.0378)) +
                     0.75 * std::exp(-0.06 * 0.06 / (2 * 0.0302 * 0.0302));
    const double y = 0.51 * std::exp(-0.01 * 0.01 / (2 * 0.037 * 0.037)) +
                     0.32 * std::exp(-0.11 * 0.11 / (2 * 0.055 * 0.055)) -
                     0.32 * std::exp(-0.065 * 0.065 / (2 * 0.0604 * 0.0604));
    EXPECT_NEAR(leads[I], 0.632 * x - 0.235 * y, 0.1);
    EXPECT_NEAR(leads[V6], 0.831 * x + 0.076 * y, 0.15);
}

// At 240 a minute h is 2: every width doubles in phase, so R is twice as many samples of a beat
// that holds the same number of samples.
TEST(BeatTest, WavesGrowWiderWithTheHeartRate) {
    const int slow = WidthAtHalfHeight(OneBeat(synthesis::NormalBeat(), V5));
    const int fast =
        WidthAtHalfHeight(OneBeat(synthesis::AtHeartRate(synthesis::NormalBeat(), 240.0), V5));
    EXPECT_NEAR(static_cast<double>(fast) / slow, 2.0, 0.15);
}

TEST(BeatTest, HeartRateOfSixtyChangesNothing) {
    const auto beat = synthesis::NormalBeat();
    const auto same = synthesis::AtHeartRate(beat, 60.0);
    for (std::size_t i = 0; i < beat.x.size(); ++i) {
        EXPECT_DOUBLE_EQ(same.x[i].phase, beat.x[i].phase);
        EXPECT_DOUBLE_EQ(same.x[i].width, beat.x[i].width);
        EXPECT_DOUBLE_EQ(same.x[i].millivolts, beat.x[i].millivolts);
    }
}

// h = 1.5 at 135 a minute: Q and S move with h, P and T with its square root.
TEST(BeatTest, PAndTMoveLessThanQAndS) {
    const auto beat = synthesis::NormalBeat();
    const auto fast = synthesis::AtHeartRate(beat, 135.0);
    EXPECT_NEAR(fast.x[2].phase, -0.19 * 1.5, 1e-12);
    EXPECT_NEAR(fast.x[6].phase, 0.22 * 1.5, 1e-12);
    EXPECT_NEAR(fast.x[0].phase, -1.09 * std::sqrt(1.5), 1e-12);
    EXPECT_NEAR(fast.x[9].phase, 1.68 * std::sqrt(1.5), 1e-12);
}
