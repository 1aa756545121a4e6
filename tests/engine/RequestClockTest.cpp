#include "engine/RequestClock.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

constexpr int64_t kPeriod = 250000000; // 250 frames at 1000 per second
constexpr int64_t kMillisecond = 1000000;

// The requests 0 to n - 1 of a clock that starts at `start`, each read late by `lateness(i)`.
template <typename Lateness>
void AddRequests(RequestClock& clock, int64_t start, int n, Lateness lateness) {
    for (int i = 0; i < n; ++i) {
        clock.AddRequest(start + i * kPeriod + lateness(i));
    }
}

constexpr auto kOnTime = [](int) { return int64_t{0}; };

TEST(RequestClockTest, SaysNothingTooEarly) {
    RequestClock clock;
    EXPECT_EQ(clock.Period(), 0.0);
    AddRequests(clock, 7, 9, kOnTime); // the first is left out: 7 intervals, 1.75 s
    EXPECT_EQ(clock.Period(), 0.0);
    clock.AddRequest(7 + 9 * kPeriod);
    EXPECT_EQ(clock.Period(), 250000000.0);
}

TEST(RequestClockTest, SaysNothingOfFewerThanFiveRequests) {
    RequestClock clock;
    for (int64_t i = 0; i < 5; ++i) {
        clock.AddRequest(i * 3000000000);
    }
    EXPECT_EQ(clock.Period(), 0.0);
    clock.AddRequest(int64_t{5} * 3000000000);
    EXPECT_EQ(clock.Period(), 3000000000.0);
}

// The first request follows the first buffer, whenever the host sends it.
TEST(RequestClockTest, LeavesTheFirstRequestOut) {
    for (const int64_t shift : {-200 * kMillisecond, 200 * kMillisecond}) {
        RequestClock clock;
        clock.AddRequest(1000000000 + shift);
        AddRequests(clock, 1000000000 + kPeriod, 79, kOnTime);
        EXPECT_EQ(clock.Period(), 250000000.0);
    }
}

TEST(RequestClockTest, LateReadsDoNotMoveIt) {
    RequestClock clock;
    AddRequests(clock, 0, 81, [](int i) { return i % 20 == 7 ? 0 : (i % 9 + 1) * kMillisecond; });
    EXPECT_EQ(clock.Period(), 250000000.0);
    clock.AddRequest(81 * kPeriod + 2000 * kMillisecond);
    EXPECT_EQ(clock.Period(), 250000000.0);
}

TEST(RequestClockTest, PausesDoNotMoveIt) {
    RequestClock clock;
    int64_t start = 0;
    for (int stretch = 0; stretch < 10; ++stretch) {
        AddRequests(clock, start, 20, kOnTime);
        clock.Pause();
        start += 20 * kPeriod + (37 * stretch + 1) * kMillisecond;
    }
    EXPECT_EQ(clock.Period(), 250000000.0);
}

// Long stretches have more weight: the short one here is read with steadily growing lateness.
TEST(RequestClockTest, WeighsStretchesByWhatTheyAreWorth) {
    RequestClock clock;
    AddRequests(clock, 0, 10, [](int i) { return i * kMillisecond; });
    EXPECT_EQ(clock.Period(), 251000000.0);
    clock.Pause();
    AddRequests(clock, 60000000000, 82, kOnTime);
    // 8 intervals of 251 ms and 80 of 250 ms, weighted by the fourth powers: 1 to 10,000.
    EXPECT_NEAR(clock.Period(), (251000000.0 + 10000 * 250000000.0) / 10001, 1e-3);
}

TEST(RequestClockTest, ForgetsOnReset) {
    RequestClock clock;
    AddRequests(clock, 0, 100, kOnTime);
    clock.Pause();
    clock.Reset();
    EXPECT_EQ(clock.Period(), 0.0);
    AddRequests(clock, 5, 20, [](int i) { return i * kPeriod; });
    EXPECT_EQ(clock.Period(), 500000000.0);
}

// A clock that continuously speeds up makes every read a corner of the hull.
TEST(RequestClockTest, DriftDoesNotOverflowIt) {
    RequestClock clock;
    for (int64_t i = 0; i < 10000; ++i) {
        clock.AddRequest(i * kPeriod + i * i);
    }
    // The mean period is kPeriod + 10,000 ns; the tangent in the middle has the same slope.
    EXPECT_NEAR(clock.Period(), 250010000.0, 500.0);
}

// Reads that are late by an exponential distribution with a mean of 1 ms, and now and then by 20
// ms: the clock is 200 ppm fast, for 20 s and for 10 minutes, a hundred times each with the same
// random numbers.
TEST(RequestClockTest, IsAsPreciseAsItsReadsAllow) {
    const double truth = 250000000.0 / 1.0002;
    std::mt19937 random(1); // NOLINT: the same numbers every time are wanted
    const auto lateness = [&random] {
        const double u = (static_cast<double>(random()) + 1.0) / 4294967297.0;
        const double scale = random() % 10 == 0 ? 20.0 : 1.0;
        return static_cast<int64_t>(-std::log(u) * scale * static_cast<double>(kMillisecond));
    };
    const auto errorsAfter = [&](int requests) {
        std::vector<double> errors;
        for (int run = 0; run < 100; ++run) {
            RequestClock clock;
            for (int i = 0; i <= requests; ++i) {
                clock.AddRequest(static_cast<int64_t>(i * truth) + lateness());
            }
            errors.push_back(std::abs(clock.Period() / truth - 1.0) * 1e6);
        }
        std::sort(errors.begin(), errors.end());
        return errors;
    };
    EXPECT_LT(errorsAfter(80)[94], 20.0);
    EXPECT_LT(errorsAfter(2400)[99], 0.1);
}

} // namespace
