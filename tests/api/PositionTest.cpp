// The position that the library reports, compared with the count of the emulated simulator.
#include "api/Connection.h"
#include "api/ravo.h"
#include "engine/OutputPosition.h"
#include "engine/Record.h"
#include "Listener.h"
#include "tools/emulator/Simulator.h"

#include <chrono>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <thread>

namespace {

using emulator::Counters;
using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;
using std::chrono::seconds;

struct UnitCase {
    const char* name;
    Unit unit;
    std::uint32_t framesPerRequest;
};

void PrintTo(const UnitCase& unit, std::ostream* out) {
    *out << unit.name;
}

Settings SettingsOf(Unit unit, double speed) {
    Settings settings = Settings::Of(unit);
    settings.behaviour.speed = speed;
    return settings;
}

class PositionTest : public testing::TestWithParam<UnitCase> {
  protected:
    PositionTest() {
        Listener::Forget();
        EXPECT_TRUE(RAVOInit(Listener::Hear));
        EXPECT_TRUE(Listener::WaitForCalls(1));
        EXPECT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    }
    ~PositionTest() override { RAVOFree(); }

    bool WaitForRequests(std::uint64_t requests) {
        return simulator.Seen().WaitFor([&](const Counters& c) { return c.requests >= requests; },
                                        seconds(60));
    }

    Simulator simulator{SettingsOf(GetParam().unit, 20.0)};
};

TEST_P(PositionTest, CountsWhatTheSimulatorCounts) {
    RAVO_OUTPUT_POSITION at;
    EXPECT_FALSE(RAVOGetOutputPosition(&at)); // connected, but never started
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    ASSERT_TRUE(WaitForRequests(5));
    simulator.Send({'X', 1, 2});
    ASSERT_TRUE(WaitForRequests(20));
    RAVOStopOutput();

    ASSERT_TRUE(simulator.Seen().WaitForStops(1, seconds(60)));
    const Counters seen = simulator.Seen().Count();
    ASSERT_TRUE(RAVOGetOutputPosition(&at));
    EXPECT_EQ(at.FramesSent, seen.frames);
    EXPECT_EQ(at.Requests, seen.requests);
    EXPECT_EQ(at.FramesPlayed, (seen.requests - 1) * GetParam().framesPerRequest);
    EXPECT_EQ(at.FramesPerRequest, GetParam().framesPerRequest);
    EXPECT_EQ(at.DelayReports, seen.delayReports + 1);
    EXPECT_EQ(at.DelayTotal, seen.delayMs + 510); // the simulator's own unit is the millisecond
    EXPECT_EQ(at.NominalRate, simulator.Seen().Starts()[0].rate);
    EXPECT_LT(at.StartTime, at.FirstRequestTime);
    EXPECT_LT(at.FirstRequestTime, at.LastRequestTime);
}

// The position read while frames are played is never ahead of them.
TEST_P(PositionTest, NeverRunsAhead) {
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    RAVO_OUTPUT_POSITION at{};
    while (at.Requests < 50 && RAVOIsOutputting()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_TRUE(RAVOGetOutputPosition(&at));
        const Counters seen = simulator.Seen().Count();
        ASSERT_LE(at.Requests, seen.requests);
        ASSERT_LE(at.FramesPlayed, at.FramesSent);
        ASSERT_LE(at.FramesSent, seen.frames + 2 * GetParam().framesPerRequest);
    }
    EXPECT_GE(at.Requests, 50U);
    RAVOStopOutput();
}

TEST_P(PositionTest, IsReadWhileOtherCallsWait) {
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    ASSERT_TRUE(WaitForRequests(1));
    {
        const CAutoCriticalSection apiLock(g_APICriticalSection);
        const CAutoCriticalSection engineLock(g_CriticalSection);
        RAVO_OUTPUT_POSITION at;
        EXPECT_TRUE(RAVOGetOutputPosition(&at));
        EXPECT_GT(at.FramesSent, 0U);
    }
    RAVOStopOutput();
}

std::string NameOfUnit(const testing::TestParamInfo<UnitCase>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Units, PositionTest,
                         testing::Values(UnitCase{"TwelveBit", Unit::kTwelveBit, 250},
                                         UnitCase{"SixteenBit", Unit::kSixteenBit, 150},
                                         UnitCase{"Legacy", Unit::kLegacy, 250}),
                         NameOfUnit);

TEST(PositionArgumentTest, NullIsRefused) {
    BeginOutputPosition(1, 500.0, 250);
    EXPECT_FALSE(RAVOGetOutputPosition(nullptr));
}

// Each field separately, so that none is mistaken for another.
TEST(PositionArgumentTest, EveryFieldArrives) {
    BeginOutputPosition(1000, 500.0, 250);
    CountFramesSent(1000);
    CountDelay(7);
    for (int i = 0; i <= 5; ++i) {
        CountRequest(2000 + i * 500000000LL);
    }
    RAVO_OUTPUT_POSITION at;
    ASSERT_TRUE(RAVOGetOutputPosition(&at));
    EXPECT_EQ(at.FramesSent, 1000U);
    EXPECT_EQ(at.FramesPlayed, 1000U); // of the 1250 that the requests imply, no more were sent
    EXPECT_EQ(at.StartTime, 1000);
    EXPECT_EQ(at.FirstRequestTime, 2000);
    EXPECT_EQ(at.LastRequestTime, 2500002000);
    EXPECT_EQ(at.Requests, 6U);
    EXPECT_EQ(at.FramesPerRequest, 250U);
    EXPECT_EQ(at.NominalRate, 500.0);
    EXPECT_EQ(at.MeasuredRate, 500.0);
    EXPECT_EQ(at.DelayReports, 1U);
    EXPECT_EQ(at.DelayTotal, 7U);
}

} // namespace
