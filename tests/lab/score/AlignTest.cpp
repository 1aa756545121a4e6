// Offset and clock from the lists alone: half an hour with misses, extras and jitter, and lists of
// other recordings. RAVO_SCORE_ALIGNMENTS sets how many of each are tried.

#include "lab/score/Align.h"
#include "lab/score/Codes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

using namespace lab::score;

namespace {

constexpr int kDefaultAlignments = 6;
constexpr double kMicro = 1e-6;

int AlignmentsToTry() {
    const char* wanted = std::getenv("RAVO_SCORE_ALIGNMENTS");
    return wanted != nullptr ? std::atoi(wanted) : kDefaultAlignments;
}

using Times = std::vector<double>;

class Maker {
  public:
    explicit Maker(unsigned seed) : m_random(seed) {}

    double Between(double from, double to) {
        return std::uniform_real_distribution<double>(from, to)(m_random);
    }

    // Half an hour of beats whose intervals breathe, wander and sometimes come early.
    Times Rhythm() {
        const double interval = Between(0.5, 1.2);
        const double breath = Between(0.0, 0.05);
        const double breathing = Between(3.0, 6.0);
        const double noise = Between(0.01, 0.06);
        const double early = Between(0.0, 0.1);
        Times times;
        double wander = 0.0;
        for (double time = Between(0.0, 1.0); time < 1800.0;) {
            times.push_back(time);
            wander = 0.98 * wander + Normal() * 0.01;
            const double next = interval * (1.0 + breath * std::sin(6.2832 * time / breathing) +
                                            noise * Normal() + wander);
            time += std::max(0.25, Between(0.0, 1.0) < early ? 0.6 * next : next);
        }
        return times;
    }

    // Half an hour in which no interval predicts the next, as in atrial fibrillation: either
    // uniform between 0.5 s and 1.1 s, or about 0.75 s.
    Times IrregularRhythm(bool isUniform) {
        Times times;
        for (double time = Between(0.0, 1.0); time < 1800.0;) {
            times.push_back(time);
            time += isUniform ? Between(0.5, 1.1) : std::max(0.25, 0.75 + 0.15 * Normal());
        }
        return times;
    }

    // Of 100 beats, 5 are missed and 5 more are reported where there are none; the jitter's
    // standard deviation is 20 ms. A test's time t is the reference's t + t x ppm / 10^6 + offset.
    Times Seen(const Times& reference, double offset, double ppm) {
        Times times;
        for (const double beat : reference) {
            if (Between(0.0, 1.0) >= 0.05) {
                times.push_back(beat + 0.02 * Normal());
            }
            if (Between(0.0, 1.0) < 0.05) {
                times.push_back(Between(0.0, 1800.0));
            }
        }
        for (double& time : times) {
            time = (time - offset) / (1.0 + ppm * kMicro);
        }
        std::sort(times.begin(), times.end());
        return times;
    }

  private:
    double Normal() { return m_normal(m_random); }

    std::mt19937 m_random;
    std::normal_distribution<double> m_normal;
};

AnnotationList ListOf(const Times& times) {
    AnnotationList list;
    list.unit = Rational(1, 1'000'000);
    for (const double time : times) {
        list.annotations.push_back({std::llround(time * 1e6), 1, 0});
    }
    return list;
}

// The distance of a time of the test from where it belongs after the alignment, in seconds.
double ErrorAt(double time, const Alignment& found, double offset, double ppm) {
    return std::fabs(found.offset.ToDouble() - offset +
                     time * (found.clockPpm.ToDouble() - ppm) * kMicro);
}

} // namespace

TEST(AlignTest, FindsOffsetAndClockOfHalfAnHour) {
    const int count = AlignmentsToTry();
    int refused = 0;
    for (int i = 0; i < count; ++i) {
        Maker maker(static_cast<unsigned>(i));
        const Times reference = maker.Rhythm();
        const double offset = maker.Between(-3600.0, 3600.0);
        const double ppm = maker.Between(-500.0, 500.0);
        const Times test = maker.Seen(reference, offset, ppm);
        const auto found = Align(ListOf(reference), ListOf(test));
        if (!found) {
            ++refused;
            continue;
        }
        // Every beat lies between the ends, where the standard error is largest: of 1700 beats with
        // 20 ms of jitter 2 x 20 ms / 41 = 1 ms.
        for (const double time : {test.front(), test.back()}) {
            const double error = ErrorAt(time, *found, offset, ppm);
            EXPECT_LT(error, 0.005) << i;
            EXPECT_LT(error, 5.0 * found->placingError + 1e-4) << i;
        }
        EXPECT_LT(found->placingError, 0.0015) << i;
        EXPECT_NEAR(found->clockPpm.ToDouble(), ppm, 5.0) << i;
        EXPECT_LT(found->clockError, 2.0) << i;
        EXPECT_GT(found->agreement, 0.85) << i;
        // The offset itself belongs to the test's second 0, which may lie an hour and a half away
        // from the middle of the beats: there the clock's 0.9 ppm leave an uncertainty of 4 ms.
        const double error = ErrorAt(0.0, *found, offset, ppm);
        EXPECT_LT(error, 5.0 * found->offsetError + 1e-4) << i;
        EXPECT_LT(found->offsetError, 0.007) << i;
    }
    EXPECT_EQ(refused, 0) << "of " << count;
}

TEST(AlignTest, RefusesListsOfOtherRecordings) {
    const int count = AlignmentsToTry();
    int taken = 0;
    for (int i = 0; i < count; ++i) {
        Maker maker(1'000'000U + static_cast<unsigned>(i));
        const Times reference = maker.Rhythm();
        const Times test = maker.Seen(maker.Rhythm(), 0.0, 0.0);
        taken += Align(ListOf(reference), ListOf(test)) ? 1 : 0;
    }
    EXPECT_EQ(taken, 0) << "of " << count;
}

// A line that crosses the true one agrees near the crossing, but does not count as a different
// place.
TEST(AlignTest, FindsIrregularRhythms) {
    const int count = AlignmentsToTry();
    int refused = 0;
    for (int i = 0; i < count; ++i) {
        Maker maker(2'000'000U + static_cast<unsigned>(i));
        const Times reference = maker.IrregularRhythm(i % 2 == 0);
        const auto same = Align(ListOf(reference), ListOf(reference));
        refused += same ? 0 : 1;
        EXPECT_EQ(same.value_or(Alignment()).offset, Rational(0)) << i;
        EXPECT_EQ(same.value_or(Alignment()).clockPpm, Rational(0)) << i;
        const double offset = maker.Between(-3600.0, 3600.0);
        const double ppm = maker.Between(-500.0, 500.0);
        const Times test = maker.Seen(reference, offset, ppm);
        const auto found = Align(ListOf(reference), ListOf(test));
        refused += found ? 0 : 1;
        for (const double time : {test.front(), test.back()}) {
            EXPECT_TRUE(!found || ErrorAt(time, *found, offset, ppm) < 0.005) << i;
        }
        EXPECT_TRUE(!found || std::fabs(found->clockPpm.ToDouble() - ppm) < 5.0) << i;
    }
    EXPECT_EQ(refused, 0) << "of " << 2 * count;
}

TEST(AlignTest, RefusesIrregularRhythmsOfOtherRecordings) {
    const int count = AlignmentsToTry();
    int taken = 0;
    for (int i = 0; i < count; ++i) {
        Maker maker(3'000'000U + static_cast<unsigned>(i));
        const Times reference = maker.IrregularRhythm(i % 2 == 0);
        const Times test = maker.Seen(maker.IrregularRhythm(i % 2 == 0), 0.0, 0.0);
        taken += Align(ListOf(reference), ListOf(test)) ? 1 : 0;
    }
    EXPECT_EQ(taken, 0) << "of " << count;
}

// Clockwork beats every second: no place is better than the next.
TEST(AlignTest, RefusesARhythmWithoutLandmarks) {
    Times times;
    for (int i = 0; i < 1800; ++i) {
        times.push_back(i);
    }
    EXPECT_FALSE(Align(ListOf(times), ListOf(times)));
}

// The same holds for a pacemaker's beats, detected with jitter, misses and extras.
TEST(AlignTest, RefusesAPacedRhythmAsItIsSeen) {
    for (int i = 0; i < AlignmentsToTry(); ++i) {
        Maker maker(4'000'000U + static_cast<unsigned>(i));
        const double interval = maker.Between(0.45, 1.2);
        Times times;
        for (double time = interval; time < 1800.0; time += interval) {
            times.push_back(time);
        }
        const auto found = Align(ListOf(times), ListOf(maker.Seen(times, 12.5, 100.0)));
        EXPECT_FALSE(found) << i << ": " << interval << " s";
    }
}

TEST(AlignTest, RefusesTooFewBeats) {
    Maker maker(7);
    Times times = maker.Rhythm();
    times.resize(49);
    EXPECT_FALSE(Align(ListOf(times), ListOf(times)));
    EXPECT_FALSE(Align(ListOf({}), ListOf(times)));
}

// Just 200 beats without any error: 12.5 s later, 0 ppm.
TEST(AlignTest, FindsAnExactShiftExactly) {
    Maker maker(8);
    Times times = maker.Rhythm();
    times.resize(200);
    Times moved = times;
    for (double& time : moved) {
        time += 12.5;
    }
    const auto found = Align(ListOf(times), ListOf(moved));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->offset, Rational(-25, 2));
    EXPECT_EQ(found->clockPpm, Rational(0));
    EXPECT_EQ(found->pairs, 200U);
    EXPECT_DOUBLE_EQ(found->agreement, 1.0);
}

// Only half of the recording is in both lists, and the test is two hours long.
TEST(AlignTest, OverlapMayBePartialAndTheListsLong) {
    Maker maker(9);
    Times reference;
    for (int part = 0; part < 4; ++part) {
        for (const double time : maker.Rhythm()) {
            reference.push_back(time + 1800.0 * part);
        }
    }
    Times test(reference.begin() + static_cast<std::ptrdiff_t>(reference.size() / 2),
               reference.end());
    for (double& time : test) {
        time = (time - 1000.0) / (1.0 + 300.0 * kMicro);
    }
    const auto found = Align(ListOf(reference), ListOf(test));
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->offset.ToDouble(), 1000.0, 0.001);
    EXPECT_NEAR(found->clockPpm.ToDouble(), 300.0, 0.1);
}
