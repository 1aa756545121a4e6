#pragma once

// A benchmark program's main: runs the benchmarks and then prints how they compare, as ratios of
// times measured in the same run, each next to its bound.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

// The time of one benchmark over that of another.  At most `limit`.
struct Ratio {
    const char* what;
    const char* measured;
    const char* reference;
    double limit;
};

// The items per second of a benchmark.  At least `limit`.
struct Rate {
    const char* what;
    const char* measured;
    double limit;
};

// Keeps the fastest repetition of each benchmark: disturbances only ever slow a run down.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    RatioReporter() : ConsoleReporter(OO_None) {}

    // The console gets the summaries only.
    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> summaries;
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration) {
                Keep(run);
            } else {
                summaries.push_back(run);
            }
        }
        if (!summaries.empty()) {
            ConsoleReporter::ReportRuns(summaries);
        }
    }

    void Print(const Ratio& ratio) const {
        const auto measured = m_seconds.find(ratio.measured);
        const auto reference = m_seconds.find(ratio.reference);
        if (measured != m_seconds.end() && reference != m_seconds.end()) {
            const double value = measured->second / reference->second;
            std::printf("%-64s %8.3f  (at most %g)%s\n", ratio.what, value, ratio.limit,
                        value <= ratio.limit ? "" : "  MISSED");
        }
    }

    void Print(const Rate& rate) const {
        const auto items = m_itemsPerSecond.find(rate.measured);
        if (items != m_itemsPerSecond.end()) {
            std::printf("%-64s %8.3g  (at least %g)%s\n", rate.what, items->second, rate.limit,
                        items->second >= rate.limit ? "" : "  MISSED");
        }
    }

  private:
    void Keep(const Run& run) {
        const std::string name = run.run_name.function_name;
        const double seconds = run.cpu_accumulated_time / static_cast<double>(run.iterations);
        const auto [best, isFirst] = m_seconds.emplace(name, seconds);
        best->second = std::min(best->second, seconds);
        const auto items = run.counters.find("items_per_second");
        if (items != run.counters.end()) {
            double& kept = m_itemsPerSecond[name];
            kept = std::max(kept, items->second.value);
        }
    }

    std::map<std::string, double> m_seconds;
    std::map<std::string, double> m_itemsPerSecond;
};

// Runs the registered benchmarks, several times and in mixed order, unless the command line states
// otherwise.
inline int RunWithRatios(int argc, char** argv, const std::vector<Ratio>& ratios,
                         const std::vector<Rate>& rates = {}) {
    char repetitions[] = "--benchmark_repetitions=5";
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> arguments = {argv[0], repetitions, interleaving};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n");
    for (const Ratio& ratio : ratios) {
        reporter.Print(ratio);
    }
    for (const Rate& rate : rates) {
        reporter.Print(rate);
    }
    return 0;
}
