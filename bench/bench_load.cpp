// Loading a WFDB record into the engine against a plain loop that reads the same file with
// unlocked stdio and stores the samples as doubles; and the memory that loading takes beyond the
// samples.
#include "bench/RecordMaker.h"
#include "engine/loaders/LoadMIT.h"
#include "engine/Record.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <ctime>
#include <fstream>
#include <vector>

namespace {

using Channels = std::vector<double*>;
using PlainLoop = void (*)(FILE* file, const Channels& channels, size_t frames);

// Processor time, so that other work on the machine does not affect the ratio.
double ProcessorSeconds() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

constexpr size_t kDay = size_t{24} * 3600 * 360;
constexpr size_t kHalfHour = size_t{30} * 60 * 1000;

double SignExtend(int code) {
    return code >= 2048 ? code - 4096 : code;
}

// The code of a program written for this one record: two signals in format 212.
void ReadPlainly212(FILE* file, const Channels& channels, size_t frames) {
    double* first = channels[0];
    double* second = channels[1];
    for (size_t i = 0; i < frames; ++i) {
        const int low = getc_unlocked(file);
        const int middle = getc_unlocked(file);
        const int high = getc_unlocked(file);
        if (high == EOF) {
            return;
        }
        first[i] = SignExtend(low | (middle & 0x0F) << 8);
        second[i] = SignExtend(high | (middle & 0xF0) << 4);
    }
}

void ReadPlainly16(FILE* file, const Channels& channels, size_t frames) {
    for (size_t i = 0; i < frames; ++i) {
        for (double* channel : channels) {
            const int low = getc_unlocked(file);
            const int high = getc_unlocked(file);
            if (high == EOF) {
                return;
            }
            channel[i] = static_cast<int16_t>(low | high << 8);
        }
    }
}

double RunPlainLoop(const std::string& record, size_t signals, size_t frames, PlainLoop loop) {
    const double start = ProcessorSeconds();
    Channels channels(signals);
    for (double*& channel : channels) {
        channel = static_cast<double*>(std::calloc(frames, sizeof(double)));
    }
    FILE* file = std::fopen((record + ".dat").c_str(), "rb");
    loop(file, channels, frames);
    std::fclose(file);
    benchmark::DoNotOptimize(channels.data());
    benchmark::ClobberMemory();
    for (double* channel : channels) {
        std::free(channel);
    }
    return ProcessorSeconds() - start;
}

double RunLoader(const std::string& record) {
    const double start = ProcessorSeconds();
    ECG_HEADER* header = LoadMITHeader((record + ".hea").c_str());
    const bool loaded = LoadMITDatabase(header) == 1;
    FreeECGHeader(header);
    FreeECGDataBuffer();
    return loaded ? ProcessorSeconds() - start : -1.0;
}

// KiB of a line of /proc/self/status, such as "VmHWM:".
double MemoryInKiB(const char* line) {
    std::ifstream status("/proc/self/status");
    std::string name;
    while (status >> name) {
        if (name == line) {
            double kibibytes = 0;
            status >> kibibytes;
            return kibibytes;
        }
    }
    return 0;
}

double MemoryBeyondSamplesInKiB(const std::string& record, size_t signals, size_t frames) {
    std::ofstream("/proc/self/clear_refs") << "5"; // resets the peak
    const double before = MemoryInKiB("VmRSS:");
    RunLoader(record);
    const double samples = static_cast<double>(signals * frames * sizeof(double)) / 1024;
    return MemoryInKiB("VmHWM:") - before - samples;
}

void Compare(benchmark::State& state, const std::string& record, size_t signals, size_t frames,
             PlainLoop loop) {
    double loader = 0;
    double plain = 0;
    RunPlainLoop(record, signals, frames, loop); // brings the file into the cache
    for (auto _ : state) {
        plain += RunPlainLoop(record, signals, frames, loop);
        const double seconds = RunLoader(record);
        if (seconds < 0) {
            state.SkipWithError("the record did not load");
            return;
        }
        loader += seconds;
        state.SetIterationTime(seconds);
    }
    state.counters["times plain loop"] = loader / plain;
    state.counters["frames/s"] =
        static_cast<double>(state.iterations()) * static_cast<double>(frames) / loader;
    state.counters["KiB beyond samples"] = MemoryBeyondSamplesInKiB(record, signals, frames);
}

// Twelve signals at 1000 Hz in format 16.
std::string MakeFormat16Record(const RecordMaker& maker, const std::string& name, size_t signals,
                               size_t frames) {
    std::ofstream header(maker.File(name + ".hea"));
    header << name << ' ' << signals << " 1000 " << frames << '\n';
    for (size_t i = 0; i < signals; ++i) {
        header << name << ".dat 16 1000(0)/mV 16 0 0 0 0 V" << i % 6 + 1 << '\n';
    }
    FILE* data = std::fopen(maker.File(name + ".dat").c_str(), "wb");
    std::mt19937 random(1);
    for (size_t i = 0; i < signals * frames; ++i) {
        const auto sample = static_cast<uint32_t>(random()) % 4000 + 65536 - 2000;
        std::putc(static_cast<int>(sample % 256), data);
        std::putc(static_cast<int>(sample / 256 % 256), data);
    }
    std::fclose(data);
    return maker.File(name);
}

void BM_LoadRecord100(benchmark::State& state) {
    const RecordMaker maker;
    Compare(state, maker.Record100(), 2, 650000, ReadPlainly212);
}

void BM_LoadDayInFormat212(benchmark::State& state) {
    const RecordMaker maker;
    Compare(state, maker.MakeRecord("day", static_cast<long>(kDay)), 2, kDay, ReadPlainly212);
}

void BM_LoadHalfHourInFormat16(benchmark::State& state) {
    const RecordMaker maker;
    const std::string record = MakeFormat16Record(maker, "half-hour", 12, kHalfHour);
    Compare(state, record, 12, kHalfHour, ReadPlainly16);
}

// One frame per call, as a host reads them.
void BM_NextSampleOneByOne(benchmark::State& state) {
    const RecordMaker maker;
    const std::string record = maker.Record100();
    WFDB_HEADER* header = WFDBReadHeader((record + ".hea").data());
    WFDBLoadSignal(std::filesystem::path(record).parent_path().c_str(), header);
    double frame[2] = {};
    for (auto _ : state) {
        if (WFDBNextSample(header, frame, 1) == 0) {
            WFDBSeek(header, 0);
        }
        benchmark::DoNotOptimize(frame);
    }
    WFDBFreeHeader(header);
}

} // namespace

BENCHMARK(BM_LoadRecord100)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_LoadDayInFormat212)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);
BENCHMARK(BM_LoadHalfHourInFormat16)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);
BENCHMARK(BM_NextSampleOneByOne);

BENCHMARK_MAIN();
