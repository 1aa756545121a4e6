// Comparing beat annotations: a long recording, and a database of 48 half hours, against reading
// the same files.
#include "bench/Ratios.h"
#include "lab/score/Input.h"
#include "lab/score/InputFile.h"
#include "lab/score/Score.h"
#include "tests/support/Files.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>

using namespace lab::score;

namespace {

constexpr int kLongBeats = 100'000;
constexpr int kRecords = 48;
constexpr int kRecordBeats = 2'200; // in half an hour
constexpr int kRate = 360;

class Words {
  public:
    void Add(unsigned code, unsigned interval) {
        const unsigned word = code << 10 | interval;
        m_bytes += static_cast<char>(word & 0xFF);
        m_bytes += static_cast<char>(word >> 8);
    }
    const std::string& Ended() {
        Add(0, 0);
        return m_bytes;
    }

  private:
    std::string m_bytes;
};

// A folder with annotations of both sides: the test misses, moves and reclassifies some of the
// beats.
class Folder {
  public:
    Folder(int records, int beats) {
        for (int i = 0; i < records; ++i) {
            Write(m_folder / std::to_string(100 + i), beats);
        }
    }
    const std::string& Path() const { return m_folder.Path(); }

  private:
    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random()) % limit; }

    void Write(const std::string& path, int beats) {
        Words reference;
        Words test;
        unsigned behind = 0;
        for (int i = 0; i < beats; ++i) {
            const unsigned interval = 240 + Below(100);
            const unsigned code = Below(10) == 0 ? 5 : 1;
            reference.Add(code, interval);
            const unsigned moved = 10 + Below(20);
            if (Below(50) == 0) {
                behind += interval;
            } else {
                test.Add(Below(30) == 0 ? 5 : code, behind + interval - 20 + moved);
                behind = 20 - moved;
            }
        }
        std::ofstream(path + ".atr", std::ios::binary) << reference.Ended();
        std::ofstream(path + ".det", std::ios::binary) << test.Ended();
        std::ofstream(path + ".hea") << "r 1 " << kRate << "\n";
    }

    std::mt19937 m_random{1};
    Scratch m_folder;
};

const Folder& Long() {
    static const Folder folder(1, kLongBeats);
    return folder;
}

const Folder& Database() {
    static const Folder folder(kRecords, kRecordBeats);
    return folder;
}

void Read(benchmark::State& state, const Folder& folder) {
    for (auto _ : state) {
        std::vector<std::string> remarks;
        for (const Input& input :
             FindInputs({{}, folder.Path(), folder.Path()}, "atr", "det", remarks)) {
            const ListFile reference = {input.reference, HeaderOf(input.reference, "atr")};
            const ListFile test = {input.test, HeaderOf(input.test, "det")};
            benchmark::DoNotOptimize(ReadList(reference, test, remarks));
            benchmark::DoNotOptimize(ReadList(test, reference, remarks));
        }
    }
}

void Score(benchmark::State& state, const Folder& folder) {
    ScoreRequest request;
    request.reference = request.test = folder.Path();
    request.testSuffix = "det";
    for (auto _ : state) {
        benchmark::DoNotOptimize(ScoreFiles(request));
    }
}

void ReadLong(benchmark::State& state) {
    Read(state, Long());
}
BENCHMARK(ReadLong)->Unit(benchmark::kMillisecond);

void ScoreLong(benchmark::State& state) {
    Score(state, Long());
    state.SetItemsProcessed(state.iterations() * kLongBeats);
}
BENCHMARK(ScoreLong)->Unit(benchmark::kMillisecond);

void ReadDatabase(benchmark::State& state) {
    Read(state, Database());
}
BENCHMARK(ReadDatabase)->Unit(benchmark::kMillisecond);

void ScoreDatabase(benchmark::State& state) {
    Score(state, Database());
}
BENCHMARK(ScoreDatabase)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    return RunWithRatios(
        argc, argv,
        {{"scoring 100,000 beats a side / reading both files", "ScoreLong", "ReadLong", 15.0},
         {"scoring 48 half hours / reading all files", "ScoreDatabase", "ReadDatabase", 10.0}});
}
