#include "api/ravo.h"
#include "engine/Output.h"
#include "engine/PlayRaw.h"
#include "Listener.h"
#include "platform/SharedValue.h"
#include "PlayFixture.h"
#include "tests/support/Eventually.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

std::atomic<int> g_longestDelay{0};
std::atomic<bool> g_stopFromDelay{false};

void KeepDelay(int delay) {
    g_longestDelay = std::max(g_longestDelay.load(), delay);
    if (g_stopFromDelay) {
        RAVOStopOutput();
    }
}

constexpr UnitCase kAnyUnit = kUnits[2];

TEST(SimulatorSpeaksTest, StatusAndGarbageDoNotDisturbThePlay) {
    Bench bench(kAnyUnit, 20.0);
    Make(MATERIAL_DIRECT, 8, 100000, 500);
    RAVOEnableLoop(true);
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, KeepDelay));
    for (std::uint64_t round = 1; round <= 10; ++round) {
        bench.Device().SendStatus();
        const std::uint64_t frames = bench.Device().Seen().Count().frames;
        bench.FramesWhen(frames + 300);
    }
    bench.Device().Send({'X', 250, 4}); // longer than any delay that a busy machine causes here
    EXPECT_TRUE(Eventually([] { return g_longestDelay == 125020; }));
    const std::vector<Codes> seen = bench.FramesWhen(9000);
    RAVOStopOutput();
    for (std::uint64_t k = 0; k < 9000; ++k) {
        ASSERT_EQ(seen[k], bench.Expected().Frame(Direct(k))) << "frame " << k;
    }
}

TEST(SimulatorSpeaksTest, StatusBeforeEveryRequest) {
    Bench bench(kAnyUnit);
    bench.Device().Change([](emulator::Behaviour& behaviour) { behaviour.statusEvery = 1; });
    Make(MATERIAL_DIRECT, 8, 5000, 250);
    RAVOEnableLoop(false);
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    ExpectFrames(bench.FramesAtTheEnd(),
                 WithTail(FramesOf(bench, 0, 5000, Direct), bench.FramesPerPacket()));
    EXPECT_GT(bench.Device().Seen().Count().statusRecords, 10U);
}

// Bytes that begin no response invalidate the rest of their read; the host keeps running and can
// still be stopped.
TEST(SimulatorSpeaksTest, FloodOfGarbage) {
    Bench bench(kAnyUnit, 5.0);
    Make(MATERIAL_DIRECT, 8, 100000, 500);
    RAVOEnableLoop(true);
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, KeepDelay));
    for (int round = 0; round < 50; ++round) {
        emulator::Bytes garbage;
        for (int i = 0; i < 61; ++i) {
            garbage.push_back(static_cast<std::uint8_t>(i * 37 + round * 11));
        }
        bench.Device().Send(garbage);
    }
    RAVOStopOutput();
    EXPECT_FALSE(RAVOIsOutputting());
}

TEST(SimulatorSpeaksTest, DelayCallbackStopsTheOutput) {
    Bench bench(kAnyUnit, 5.0);
    Make(MATERIAL_DIRECT, 8, 100000, 500);
    RAVOEnableLoop(true);
    g_stopFromDelay = true;
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, KeepDelay));
    bench.Device().Send({'X', 0, 4});
    EXPECT_TRUE(bench.Device().Seen().WaitForStops(1, seconds(60)));
    EXPECT_TRUE(Eventually([] { return !RAVOIsOutputting(); }));
}

// The host holds the API lock and joins the response reader while that calls the host.
TEST(SimulatorSpeaksTest, DelayCallbackStopsWhileTheHostStops) {
    Bench bench(kAnyUnit, 5.0);
    Make(MATERIAL_DIRECT, 8, 100000, 500);
    RAVOEnableLoop(true);
    g_stopFromDelay = true;
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, KeepDelay));
        std::atomic<bool> stopped{false};
        std::thread chatter([&] {
            while (!stopped) {
                bench.Device().Send({'X', 0, 4});
            }
        });
        RAVOStopOutput();
        stopped = true;
        chatter.join();
    }
    EXPECT_FALSE(RAVOIsOutputting());
}

void StopFromProgress(double /*time*/, double /*recordTime*/, double* /*leads*/, bool /*end*/) {
    RAVOStopOutput();
}

TEST(SimulatorSpeaksTest, ProgressCallbackStopsTheOutput) {
    Bench bench(kAnyUnit, 5.0);
    Make(MATERIAL_DIRECT, 8, 100000, 500);
    RAVOEnableLoop(true);
    ASSERT_TRUE(RAVOOutputWaveform(0, StopFromProgress, nullptr));
    EXPECT_TRUE(bench.Device().Seen().WaitForStops(1, seconds(60)));
    EXPECT_TRUE(Eventually([] { return !RAVOIsOutputting(); }));
}

// A simulator that stays on the bus but never asks again does not block a stop for ever.
TEST(SimulatorSpeaksTest, SilentSimulatorDoesNotHoldTheStop) {
    Bench bench(kAnyUnit);
    bench.Device().Change([](emulator::Behaviour& behaviour) { behaviour.asks = false; });
    Make(MATERIAL_DIRECT, 8, 100000, 500);
    RAVOEnableLoop(true);
    const auto before = Clock::now();
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    RAVOStopOutput();
    EXPECT_GE(Clock::now() - before, milliseconds(9990));
    EXPECT_FALSE(RAVOIsOutputting());
}

TEST(SimulatorSpeaksTest, RefusedStartIsNoOutputForLong) {
    if (std::getenv("RAVO_EMULATOR_PORT") != nullptr) {
        GTEST_SKIP() << "the kernel's driver takes the first bytes itself";
    }
    Bench bench(kAnyUnit);
    bench.Device().Change(
        [](emulator::Behaviour& behaviour) { behaviour.line = emulator::Line::kFull; });
    Make(MATERIAL_DIRECT, 8, 100000, 500);
    EXPECT_FALSE(RAVOOutputWaveform(0, nullptr, nullptr));
    EXPECT_FALSE(RAVOIsOutputting());
}

// However the play ends, nothing of the output continues: neither its preview nor the flag that
// tells the host that it is running.
TEST(SimulatorSpeaksTest, WriteThatTimesOutEndsTheOutput) {
    Bench bench(kAnyUnit, 1.0);
    Make(MATERIAL_DIRECT, 8, 100000, 500);
    RAVOEnableLoop(true);
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    bench.Device().Change(
        [](emulator::Behaviour& behaviour) { behaviour.line = emulator::Line::kFull; });
    EXPECT_TRUE(Eventually([] { return !RAVOIsOutputting(); }));
    RAVO_OUTPUT_POSITION at;
    ASSERT_TRUE(RAVOGetOutputPosition(&at));
    EXPECT_LT(at.FramesSent, 100000U);
}

TEST(SimulatorSpeaksTest, LostOutputThatWasToPlayOnceSaysSo) {
    Bench bench(kAnyUnit, 1.0);
    Make(MATERIAL_DIRECT, 8, 5000, 500);
    ASSERT_TRUE(RAVOOutputOnce(0, 0.0, nullptr, nullptr));
    bench.Device().Change(
        [](emulator::Behaviour& behaviour) { behaviour.line = emulator::Line::kFull; });
    EXPECT_TRUE(Eventually([] { return !RAVOIsOutputting(); }));
    RAVO_OUTPUT_POSITION at;
    ASSERT_TRUE(RAVOGetOutputPosition(&at));
    EXPECT_LT(at.FramesPlayed, 5000U);
}

// Pulling the plug ends a play at any point of it.
TEST(SimulatorSpeaksTest, VanishingEndsAStopThatWaits) {
    Bench bench(kAnyUnit);
    bench.Device().Change([](emulator::Behaviour& behaviour) { behaviour.asks = false; });
    Make(MATERIAL_DIRECT, 8, 100000, 500);
    RAVOEnableLoop(true);
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    std::thread host(RAVOStopOutput);
    bench.Device().Vanish();
    host.join();
    EXPECT_TRUE(Listener::WaitForCalls(2));
    EXPECT_EQ(LoadShared(g_hPlayThread), 0U);
}

} // namespace
