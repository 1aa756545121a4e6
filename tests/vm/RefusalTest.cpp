// Devices that accept nothing, and lines that lose bytes.  The driver cannot discard what was
// written, and the kernel would wait 30 s in each close for it to leave.
#include "KernelPort.h"

#include <memory>

namespace {

constexpr double kWithoutTheKernelsWait = 15.0; // seconds

class Refusal : public KernelPort {
  protected:
    static Simulator& Of(std::unique_ptr<Simulator>& simulator) {
        simulator = std::make_unique<Simulator>(Settings::Of(Unit::kSixteenBit));
        return *simulator;
    }
};

void TakeNothing(Simulator& simulator) {
    simulator.Change([](Behaviour& behaviour) { behaviour.line = emulator::Line::kDead; });
}

void Work(Simulator& simulator) {
    simulator.Change([](Behaviour& behaviour) { behaviour.line = emulator::Line::kWorking; });
}

TEST_F(Refusal, OfAllBytesWhilePlayingEndsTheOutput) {
    std::unique_ptr<Simulator> owner;
    Simulator& simulator = Of(owner);
    Search();
    ASSERT_TRUE(IsTold(1, true));
    ASSERT_TRUE(Play());
    ASSERT_TRUE(simulator.Seen().WaitForFrames(700, kHang));
    TakeNothing(simulator);
    auto begin = Clock::now();
    EXPECT_TRUE(Within(kHang, [] { return !RAVOIsOutputting(); }));
    Report("nothing taken: output ends after", SecondsSince(begin), "s");
    begin = Clock::now();
    RAVOStopOutput();
    Report("nothing taken: a stop takes", SecondsSince(begin), "s");
    begin = Clock::now();
    RAVOFree();
    Report("nothing taken: letting go takes", SecondsSince(begin), "s");
    EXPECT_LT(SecondsSince(begin), kWithoutTheKernelsWait);
}

TEST_F(Refusal, OfAllBytesHoldsAStop) {
    std::unique_ptr<Simulator> owner;
    Simulator& simulator = Of(owner);
    Search();
    ASSERT_TRUE(IsTold(1, true));
    ASSERT_TRUE(Play());
    ASSERT_TRUE(simulator.Seen().WaitForFrames(700, kHang));
    TakeNothing(simulator);
    const auto begin = Clock::now();
    RAVOStopOutput();
    Report("nothing taken: a stop at once takes", SecondsSince(begin), "s");
    Work(simulator);
}

TEST_F(Refusal, OfAllBytesHoldsTheSearchOnlyForATime) {
    std::unique_ptr<Simulator> owner;
    Simulator& simulator = Of(owner);
    TakeNothing(simulator);
    Search();
    // The kernel holds the port open while it waits to deliver what the search has written.
    ASSERT_TRUE(Within(kHang, [&] { return simulator.Seen().Count().hostOpenings >= 1; }));
    const auto begin = Clock::now();
    EXPECT_TRUE(Within(kHang, [&] { return simulator.Seen().Count().hostClosings >= 1; }));
    Report("nothing taken: the search holds the port for", SecondsSince(begin), "s");
    EXPECT_LT(SecondsSince(begin), kWithoutTheKernelsWait);
    Work(simulator);
    EXPECT_TRUE(IsTold(1, true));
    Report("nothing taken: connected after it takes again by", SecondsSince(begin), "s");
}

TEST_F(Refusal, DoesNotHoldTheSearchForOthers) {
    std::unique_ptr<Simulator> owner;
    Simulator& simulator = Of(owner);
    TakeNothing(simulator);
    Search();
    ASSERT_TRUE(Within(kHang, [&] { return simulator.Seen().Count().hostOpenings >= 1; }));
    const auto begin = Clock::now();
    const Simulator other(Settings::Of(Unit::kTwelveBit, 1));
    EXPECT_TRUE(IsTold(1, true));
    Report("nothing taken: the simulator beside it is connected after", SecondsSince(begin), "s");
    EXPECT_LT(SecondsSince(begin), kWithoutTheKernelsWait);
    EXPECT_EQ(DevicePath(), "/dev/ttyACM1");
}

// ---- Bytes lost on their way -------------------------------------------------------------------

struct Counted {
    bool isOutputting;
    emulator::Counters counters;
    double seconds;
};

// Plays, loses this many bytes after frame 700, and checks some time later.
Counted PlayLosing(Simulator& simulator, std::size_t bytes) {
    EXPECT_TRUE(simulator.Seen().WaitForFrames(700, kHang));
    simulator.Change([&](Behaviour& behaviour) { behaviour.losesBytes = bytes; });
    const auto begin = Clock::now();
    Within(seconds(20), [] { return !RAVOIsOutputting(); });
    return {RAVOIsOutputting(), simulator.Seen().Count(), SecondsSince(begin)};
}

class Lost : public Refusal, public testing::WithParamInterface<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(Bytes, Lost, testing::Values(1, 64, 3200));

// The host has no indication of it: the simulator counts the missing bytes of the buffer that it
// requested, waits for them, and requests no other.  Its silence is what ends the output.
TEST_P(Lost, OnTheirWaySilenceTheSimulatorAndSoEndTheOutput) {
    std::unique_ptr<Simulator> owner;
    Simulator& simulator = Of(owner);
    Search();
    ASSERT_TRUE(IsTold(1, true));
    ASSERT_TRUE(Play());
    const Counted counted = PlayLosing(simulator, GetParam());
    EXPECT_FALSE(counted.isOutputting);
    Report("bytes lost on their way", static_cast<double>(GetParam()), "");
    Report("  output ends after", counted.seconds, "s");
    Report("  sequence gaps", static_cast<double>(counted.counters.sequenceGaps), "");
    Report("  unknown bytes", static_cast<double>(counted.counters.unknownBytes), "");
    Report("  underruns", static_cast<double>(counted.counters.underruns), "");
}

} // namespace
