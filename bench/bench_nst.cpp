// The noise stress test of a half-hour record and of a day: speed relative to real time, and
// memory.
#include "bench/Ratios.h"
#include "bench/RecordMaker.h"
#include "WFDB/wfdb.h"

#include <benchmark/benchmark.h>
#include <sys/resource.h>

namespace {

constexpr int64_t kFramesPerSecond = 360;
constexpr int64_t kFramesPerDay = 24 * 3600 * kFramesPerSecond;

double PeakMemoryInKiB() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss);
}

void RunTest(benchmark::State& state, const RecordMaker& maker, const std::string& signal,
             int64_t frames) {
    const std::string noise = maker.MakeRecord("noise", 200000);
    NSTSetSignal(signal.c_str());
    const double before = PeakMemoryInKiB();
    for (auto _ : state) {
        NSTResetNoise();
        NSTAddNoise(noise.c_str(), 6.0);
        if (NSTOutput(maker.File("mixed").c_str()) != 0) {
            state.SkipWithError("the test failed");
        }
    }
    if (std::filesystem::file_size(maker.File("mixed.dat")) != static_cast<uintmax_t>(frames) * 3) {
        state.SkipWithError("the mixed record is incomplete");
    }
    state.SetItemsProcessed(state.iterations() * frames);
    state.counters["KiB more"] = PeakMemoryInKiB() - before;
}

void NoiseTestOfRecord100(benchmark::State& state) {
    const RecordMaker maker;
    RunTest(state, maker, maker.Record100(), 650000);
}
BENCHMARK(NoiseTestOfRecord100)->Unit(benchmark::kMillisecond);

void NoiseTestOfADay(benchmark::State& state) {
    const RecordMaker maker;
    RunTest(state, maker, maker.MakeRecord("day", kFramesPerDay), kFramesPerDay);
}
BENCHMARK(NoiseTestOfADay)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace

int main(int argc, char** argv) {
    constexpr double kLeast = 2000.0 * kFramesPerSecond;
    return RunWithRatios(
        argc, argv, {},
        {{"noise stress test of record 100, frames per second", "NoiseTestOfRecord100", kLeast},
         {"noise stress test of a day, frames per second", "NoiseTestOfADay", kLeast}});
}
