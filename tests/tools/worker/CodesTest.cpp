// The staging of samples made by the interpreter: the codes of the outputs, calculated from the
// staged numbers with the driver's published arithmetic, compared with the requested voltages.

#include "tools/worker/Codes.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

using worker::CodeTable;
using worker::Instant;

constexpr double kChest = 0.592731022038923;

// A 16-bit converter: 32000 codes for 5 mV on either side of the middle one; the fraction is
// truncated.
int CodeOf(double millivolts) {
    const double held = std::clamp(millivolts, -5.0, 5.0);
    return static_cast<int>(held / 5.0 * 32000.0 + 32768.0) - 32768;
}

std::array<int, 8> CodesOf(const Instant& staged) {
    const double terminal = (staged[0] + staged[1]) * 0.33333333333;
    std::array<int, 8> codes{};
    for (std::size_t i = 0; i < codes.size(); ++i) {
        codes[i] = CodeOf(i < 2 ? staged[i] : (staged[i] + terminal) * kChest);
    }
    return codes;
}

// The codes, with fractions, that the outputs should carry.
std::array<long double, 8> AskedFor(const Instant& leads) {
    const long double terminal =
        (static_cast<long double>(leads[0]) + static_cast<long double>(leads[1])) / 3.0L;
    std::array<long double, 8> codes{};
    for (std::size_t i = 0; i < codes.size(); ++i) {
        const long double chest = (leads[i] + terminal) * 0.592731022038923L;
        codes[i] = (i < 2 ? static_cast<long double>(leads[i]) : chest) * 6400.0L;
    }
    return codes;
}

// A sample of the staged record is a 16-bit integer, where -32768 marks a missing one.
void ExpectStageable(const Instant& staged) {
    for (const double millivolts : staged) {
        const double number = millivolts * 6500.0;
        EXPECT_NEAR(number, std::nearbyint(number), 1e-6);
        EXPECT_LE(std::fabs(number), 32500.5);
    }
}

void ExpectNearest(const CodeTable& table, const Instant& leads) {
    const Instant staged = table.Encode(leads);
    ExpectStageable(staged);
    const auto found = CodesOf(staged);
    const auto wanted = AskedFor(leads);
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_LE(std::fabs(static_cast<double>(found[i] - wanted[i])), 0.5 + 1e-6)
            << "output " << i << " for " << leads[i] << " mV";
    }
}

TEST(CodesTest, EveryCodeOfALimbOutputIsReached) {
    const CodeTable table;
    for (int code = -32000; code <= 32000; ++code) {
        Instant leads{};
        leads[0] = code / 6400.0;
        leads[1] = -code / 6400.0;
        const auto codes = CodesOf(table.Encode(leads));
        ASSERT_EQ(codes[0], code);
        ASSERT_EQ(codes[1], -code);
    }
}

TEST(CodesTest, EveryOutputPlaysTheNearestCode) {
    const CodeTable table;
    std::mt19937 random(1);
    for (const double peak : {0.001, 0.3, 2.0, 4.9}) {
        std::uniform_real_distribution<double> millivolts(-peak, peak);
        for (int trial = 0; trial < 5000; ++trial) {
            Instant leads{};
            std::generate(leads.begin(), leads.end(), [&] { return millivolts(random); });
            ExpectNearest(table, leads);
        }
    }
}

TEST(CodesTest, VoltagesBeyondTheRangeAreHeldAtItsEnds) {
    const CodeTable table;
    const Instant staged = table.Encode({7.0, -9.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0});
    const auto codes = CodesOf(staged);
    EXPECT_EQ(codes[0], 32000);
    EXPECT_EQ(codes[1], -32000);
    EXPECT_EQ(codes[2], 0); // the two cancel in the central terminal
    ExpectStageable(staged);
}

} // namespace
