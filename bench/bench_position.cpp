// The cost of reading the position of the output: compared with reading the clock, which a caller
// also needs, and while the position changes as fast as possible.
#include "api/ravo.h"
#include "engine/OutputPosition.h"
#include "Ratios.h"

#include <atomic>
#include <thread>

namespace {

void LookAtClock(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(MonotonicNanoseconds());
    }
}
BENCHMARK(LookAtClock);

void Read(benchmark::State& state) {
    BeginOutputPosition(1, 1000.0, 150);
    CountFramesSent(300);
    RAVO_OUTPUT_POSITION position;
    for (auto _ : state) {
        benchmark::DoNotOptimize(RAVOGetOutputPosition(&position));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Read);

void ReadWhileWritten(benchmark::State& state) {
    BeginOutputPosition(1, 1000.0, 150);
    std::atomic<bool> isDone{false};
    std::thread writer([&] {
        while (!isDone) {
            CountFramesSent(150);
        }
    });
    RAVO_OUTPUT_POSITION position;
    for (auto _ : state) {
        benchmark::DoNotOptimize(RAVOGetOutputPosition(&position));
    }
    isDone = true;
    writer.join();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ReadWhileWritten);

} // namespace

int main(int argc, char** argv) {
    return RunWithRatios(argc, argv,
                         {{"position read, over a look at the clock", "Read", "LookAtClock", 4.0}},
                         {{"positions read per second", "Read", 1e6},
                          {"the same while it changes all the time", "ReadWhileWritten", 1e6}});
}
