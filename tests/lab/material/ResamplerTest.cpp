#include "lab/material/Resampler.h"
#include "lab/material/LeadStream.h"
#include "lab/material/MemoryReader.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace lab;

namespace {

constexpr double kTurn = 6.283185307179586;

std::vector<double> Tone(double hertz, double rate, int samples, double offset = 0.0) {
    std::vector<double> tone;
    for (int i = 0; i < samples; ++i) {
        tone.push_back(offset + std::sin(kTurn * hertz * i / rate));
    }
    return tone;
}

std::vector<double> Resampled(const std::vector<double>& in, const Rate& from, const Rate& to) {
    Resampler resampler(from, to);
    std::vector<double> out;
    // In uneven pieces, like the blocks of a file.
    for (std::size_t at = 0; at < in.size();) {
        const std::size_t end = std::min(in.size(), at + 777);
        resampler.Push({in.begin() + static_cast<std::ptrdiff_t>(at),
                        in.begin() + static_cast<std::ptrdiff_t>(end)},
                       out);
        at = end;
    }
    resampler.Finish(out);
    return out;
}

double LargestDifference(const std::vector<double>& a, const std::vector<double>& b,
                         std::size_t margin) {
    double largest = 0.0;
    for (std::size_t i = margin; i + margin < a.size(); ++i) {
        largest = std::max(largest, std::fabs(a[i] - b[i]));
    }
    return largest;
}

} // namespace

// 0.1 dB are 1.16 %. A tone that is delayed by a tenth of a sample would differ by more.
TEST(ResamplerTest, PassBandIsFlatAndWithoutDelay) {
    struct Case {
        double from;
        double to;
    };
    for (const Case& one : {Case{50, 100}, Case{257.5, 515}, Case{30000, 20000}, Case{25, 360}}) {
        const double lower = std::min(one.from, one.to);
        for (const double part : {0.01, 0.1, 0.25, 0.4}) {
            const int samples = 4000;
            const auto in = Tone(part * lower, one.from, samples);
            const auto out = Resampled(in, *ParseFraction(std::to_string(one.from)),
                                       MakeRate(std::lround(one.to), 1));
            const auto wanted = Tone(part * lower, one.to, static_cast<int>(out.size()));
            EXPECT_EQ(out.size(),
                      static_cast<std::size_t>(std::lround(samples * one.to / one.from)));
            EXPECT_LT(LargestDifference(out, wanted, out.size() / 8), 0.0116)
                << one.from << " to " << one.to << " at " << part;
        }
    }
}

TEST(ResamplerTest, AliasesLieBelow80Decibels) {
    const auto out =
        Resampled(Tone(0.6 * 20000, 50000, 50000), MakeRate(50000, 1), MakeRate(20000, 1));
    EXPECT_LT(LargestDifference(out, std::vector<double>(out.size(), 0.0), 2000), 1e-4);
}

TEST(ResamplerTest, LevelHoldsToBothEnds) {
    const auto out =
        Resampled(std::vector<double>(1000, 3.25), MakeRate(360, 1), MakeRate(1000, 1));
    ASSERT_EQ(out.size(), 2778U);
    for (const double sample : out) {
        ASSERT_NEAR(sample, 3.25, 1e-9);
    }
}

// A record is cut out of a longer signal: 5 Hz, begun and ended at eight places of the wave. Held
// beyond its ends, it would deviate at least four times as much. Output after the instant of its
// last sample is a guess and is ignored.
TEST(ResamplerTest, CutToneStaysTrueToBothEnds) {
    struct Case {
        Rate from;
        Rate to;
        double most;
    };
    for (const Case& one : {Case{MakeRate(50, 1), MakeRate(100, 1), 0.015},
                            Case{MakeRate(128, 1), MakeRate(500, 1), 0.004},
                            Case{MakeRate(250, 1), MakeRate(1000, 1), 0.0007},
                            Case{MakeRate(360, 1), MakeRate(500, 1), 0.0003},
                            Case{MakeRate(25000, 1), MakeRate(20000, 1), 1e-6}}) {
        for (int eighth = 0; eighth < 8; ++eighth) {
            const auto tone = [&](const Rate& rate, double seconds) {
                std::vector<double> samples;
                for (int i = 0; i <= std::lround(std::floor(seconds * rate.PerSecond())); ++i) {
                    const double turns = 5.0 * i / rate.PerSecond() + eighth / 8.0;
                    samples.push_back(std::sin(kTurn * turns));
                }
                return samples;
            };
            auto out = Resampled(tone(one.from, 4.0), one.from, one.to);
            const auto wanted = tone(one.to, 4.0);
            ASSERT_GE(out.size(), wanted.size());
            out.resize(wanted.size());
            EXPECT_LT(LargestDifference(out, wanted, 0), one.most)
                << one.from.PerSecond() << " to " << one.to.PerSecond() << ", " << eighth;
        }
    }
}

// Shorter than the filter, and with a ratio for which no whole number of samples is in reach.
TEST(ResamplerTest, ShortAndOddlyRatedSignalsKeepTheirLengthAndLevel) {
    for (const std::size_t count : {1U, 2U, 7U, 300U}) {
        for (const Rate& from : {MakeRate(50, 1), MakeRate(360123457, 1000000)}) {
            const auto out = Resampled(std::vector<double>(count, -0.75), from, MakeRate(500, 1));
            EXPECT_EQ(static_cast<int64_t>(out.size()),
                      ResampledCount(static_cast<int64_t>(count), from, MakeRate(500, 1)));
            for (const double sample : out) {
                ASSERT_NEAR(sample, -0.75, 1e-9);
            }
        }
    }
}

TEST(ResamplerTest, PeriodStaysPeriodic) {
    const auto out = ResamplePeriod(Tone(50, 1000, 1000), 360);
    ASSERT_EQ(out.size(), 360U);
    EXPECT_LT(LargestDifference(out, Tone(50, 360, 360), 0), 1e-4);
}

TEST(LeadStreamTest, RatesThatTheClockKeepsStay) {
    EXPECT_EQ(PlayableRate(MakeRate(92, 1)), MakeRate(92, 1));
    EXPECT_EQ(PlayableRate(MakeRate(20000, 1)), MakeRate(20000, 1));
    EXPECT_EQ(PlayableRate(MakeRate(50, 1)), MakeRate(100, 1));
    EXPECT_EQ(PlayableRate(MakeRate(1, 1)), MakeRate(92, 1));
    EXPECT_EQ(PlayableRate(MakeRate(515, 2)), MakeRate(515, 1));
    EXPECT_EQ(PlayableRate(MakeRate(1000, 3)), MakeRate(1000, 1));
    EXPECT_EQ(PlayableRate(MakeRate(360123, 1000)), MakeRate(361, 1));
    EXPECT_EQ(PlayableRate(MakeRate(50000, 1)), MakeRate(20000, 1));
}

// Two signals out of one block, at 1 and at 0.5 per second: a thousand and more times as many
// frames as samples.
TEST(LeadStreamTest, BlocksStaySmallHoweverFarTheRateIsRaised) {
    SourceRecord record;
    record.signals.resize(2);
    record.signals[0].rate = MakeRate(1, 1);
    record.signals[0].samples = 6000;
    record.signals[1].rate = MakeRate(1, 2);
    record.signals[1].samples = 3000;
    const auto reader =
        ReadFromMemory(record, {std::vector<double>(6000, 0.5), std::vector<double>(3000, -0.25)});
    LeadStream stream(*reader, {0, 1}, MakeRate(1000, 1), Missing::kHold);
    Samples block;
    std::size_t frames = 0;
    std::size_t longest = 0;
    for (stream.Begin(); stream.Read(block);) {
        ASSERT_EQ(block[0].size(), block[1].size());
        EXPECT_NEAR(block[0].front(), 0.5, 1e-9);
        EXPECT_NEAR(block[1].back(), -0.25, 1e-9);
        frames += block[0].size();
        longest = std::max(longest, block[0].size());
    }
    EXPECT_EQ(frames, 6000000U);
    EXPECT_LT(longest, 2500000U);
}
