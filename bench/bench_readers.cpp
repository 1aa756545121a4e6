// Reading material beyond what the library reads itself, per format, against a plain loop that
// reads the same file in blocks and turns its bytes into doubles; and bringing a day of EDF into
// the library against reading it with EDFlib, where that is there.
#include "bench/Ratios.h"
#include "lab/material/readers/CsvReader.h"
#include "lab/material/readers/EdfReader.h"
#include "lab/material/readers/WfdbReader.h"
#include "lab/material/Record.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#ifdef RAVO_HAS_EDFLIB
#include <edflib.h>
#endif

namespace {

constexpr int64_t kSamples = 6'000'000;
constexpr int kDaySeconds = 24 * 3600;
constexpr int kDayRate = 256;

class Folder {
  public:
    Folder() : m_path(std::filesystem::temp_directory_path() / "ravo-bench-readers") {
        std::filesystem::create_directories(m_path);
    }
    ~Folder() { std::filesystem::remove_all(m_path); }
    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

  private:
    std::filesystem::path m_path;
};

const Folder& Files() {
    static const Folder folder;
    return folder;
}

std::string MakeWfdb(int format, int64_t bytes) {
    const std::string name = "f" + std::to_string(format);
    if (!std::filesystem::exists(Files() / (name + ".hea"))) {
        std::string data(static_cast<std::size_t>(bytes), '\0');
        uint32_t state = 1;
        for (char& byte : data) {
            state = state * 1664525U + 1013904223U;
            byte = static_cast<char>(state >> 24U);
        }
        std::ofstream(Files() / (name + ".dat"), std::ios::binary) << data;
        std::ofstream(Files() / (name + ".hea")) << name << " 2 500\n"
                                                 << name << ".dat " << format << " 200\n"
                                                 << name << ".dat " << format << " 200\n";
    }
    return Files() / (name + ".hea");
}

std::string Field(std::string text, std::size_t width) {
    text.resize(width, ' ');
    return text;
}

std::string MakeDay() {
    const std::string path = Files() / "day.edf";
    if (!std::filesystem::exists(path)) {
        std::ofstream file(path, std::ios::binary);
        file << Field("0", 8) << Field("X X X X", 80) << Field("Startdate X X X X", 80)
             << "01.02.0310.20.30" << Field("1024", 8) << Field("", 44)
             << Field(std::to_string(kDaySeconds), 8) << Field("1", 8) << Field("3", 4);
        const auto add = [&](const std::vector<std::string>& values, std::size_t width) {
            for (const std::string& value : values) {
                file << Field(value, width);
            }
        };
        const auto same = [](const char* value) { return std::vector<std::string>(3, value); };
        add({"ECG I", "ECG II", "ECG V1"}, 16);
        for (const auto& [value, width] :
             std::vector<std::pair<const char*, std::size_t>>{{"", 80},
                                                              {"uV", 8},
                                                              {"-32768", 8},
                                                              {"32767", 8},
                                                              {"-32768", 8},
                                                              {"32767", 8},
                                                              {"", 80},
                                                              {"256", 8},
                                                              {"", 32}}) {
            add(same(value), width);
        }
        std::vector<int16_t> second(3 * kDayRate);
        for (int i = 0; i < kDaySeconds; ++i) {
            for (std::size_t n = 0; n < second.size(); ++n) {
                second[n] = static_cast<int16_t>((i * 7 + static_cast<int>(n) * 13) % 2000 - 1000);
            }
            file.write(reinterpret_cast<const char*>(second.data()), 2 * 3 * kDayRate);
        }
    }
    return path;
}

void ReadAll(lab::SourceReader& reader, const std::vector<std::size_t>& signals) {
    lab::Samples block;
    for (reader.Begin(signals); reader.Read(block);) {
        benchmark::DoNotOptimize(block[0].data());
    }
}

// Reads blocks of bytes and turns each group of `bytes` of them into `samples` doubles.
void PlainLoop(const std::string& path, std::size_t bytes, std::size_t samples) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    std::vector<unsigned char> block(bytes * 8192);
    std::vector<double> values(samples * 8192);
    std::size_t read = 0;
    while ((read = std::fread(block.data(), bytes, 8192, file)) > 0) {
        const unsigned char* at = block.data();
        for (std::size_t group = 0; group < read; ++group, at += bytes) {
            for (std::size_t i = 0; i < samples; ++i) {
                const int sample = bytes == 1   ? at[0] - 128
                                   : bytes == 2 ? static_cast<int16_t>(at[0] | at[1] << 8)
                                   : i == 0     ? (at[0] | (at[1] & 0x0F) << 8) - 2048
                                                : (at[bytes - 1] | (at[1] & 0xF0) << 4) - 2048;
                values[group * samples + i] = (sample - 5.0) / 200.0;
            }
        }
        benchmark::DoNotOptimize(values.data());
    }
    std::fclose(file);
}

void Measure(benchmark::State& state, int format, std::size_t bytes, std::size_t samples,
             bool isPlain) {
    const auto size = kSamples / static_cast<int64_t>(samples) * static_cast<int64_t>(bytes);
    const std::string header = MakeWfdb(format, size);
    for (auto _ : state) {
        if (isPlain) {
            PlainLoop(Files() / ("f" + std::to_string(format) + ".dat"), bytes, samples);
        } else {
            ReadAll(*lab::OpenWfdb(header), {0, 1});
        }
    }
}

void Format16(benchmark::State& state) {
    Measure(state, 16, 2, 1, false);
}
void Plain16(benchmark::State& state) {
    Measure(state, 16, 2, 1, true);
}
void Format80(benchmark::State& state) {
    Measure(state, 80, 1, 1, false);
}
void Plain80(benchmark::State& state) {
    Measure(state, 80, 1, 1, true);
}
void Format212(benchmark::State& state) {
    Measure(state, 212, 3, 2, false);
}
void Plain212(benchmark::State& state) {
    Measure(state, 212, 3, 2, true);
}
void Format24(benchmark::State& state) {
    Measure(state, 24, 3, 1, false);
}
void Plain24(benchmark::State& state) {
    Measure(state, 24, 3, 1, true);
}
void Format310(benchmark::State& state) {
    Measure(state, 310, 4, 3, false);
}
void Plain310(benchmark::State& state) {
    Measure(state, 310, 4, 3, true);
}

void Edf(benchmark::State& state) {
    const std::string path = MakeDay();
    for (auto _ : state) {
        ReadAll(*lab::OpenEdf(path, std::nullopt), {0, 1, 2});
    }
}

void PlainEdf(benchmark::State& state) {
    const std::string path = MakeDay();
    for (auto _ : state) {
        PlainLoop(path, 2, 1);
    }
}

void DayReady(benchmark::State& state) {
    lab::MaterialRequest request;
    request.name = MakeDay();
    for (auto _ : state) {
        benchmark::DoNotOptimize(lab::LoadRecord(request).samples);
    }
}

#ifdef RAVO_HAS_EDFLIB
void DayByEdflib(benchmark::State& state) {
    const std::string path = MakeDay();
    std::vector<double> samples(kDayRate * 60);
    for (auto _ : state) {
        edf_hdr_struct header{};
        if (edfopen_file_readonly(path.c_str(), &header, EDFLIB_DO_NOT_READ_ANNOTATIONS) != 0) {
            state.SkipWithError("EDFlib refuses the file");
            return;
        }
        for (int signal = 0; signal < 3; ++signal) {
            while (edfread_physical_samples(header.handle, signal, kDayRate * 60, samples.data()) >
                   0) {
                benchmark::DoNotOptimize(samples.data());
            }
        }
        edfclose_file(header.handle);
    }
}
BENCHMARK(DayByEdflib)->Unit(benchmark::kMillisecond);
#endif

BENCHMARK(Format16)->Unit(benchmark::kMillisecond);
BENCHMARK(Plain16)->Unit(benchmark::kMillisecond);
BENCHMARK(Format80)->Unit(benchmark::kMillisecond);
BENCHMARK(Plain80)->Unit(benchmark::kMillisecond);
BENCHMARK(Format212)->Unit(benchmark::kMillisecond);
BENCHMARK(Plain212)->Unit(benchmark::kMillisecond);
BENCHMARK(Format24)->Unit(benchmark::kMillisecond);
BENCHMARK(Plain24)->Unit(benchmark::kMillisecond);
BENCHMARK(Format310)->Unit(benchmark::kMillisecond);
BENCHMARK(Plain310)->Unit(benchmark::kMillisecond);
BENCHMARK(Edf)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainEdf)->Unit(benchmark::kMillisecond);
BENCHMARK(DayReady)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    return RunWithRatios(argc, argv,
                         {{"format 16 over a plain block loop", "Format16", "Plain16", 1.6},
                          {"format 80 over a plain block loop", "Format80", "Plain80", 1.6},
                          {"format 212 over a plain block loop", "Format212", "Plain212", 1.6},
                          {"format 24 over a plain block loop", "Format24", "Plain24", 1.6},
                          {"format 310 over a plain block loop", "Format310", "Plain310", 1.6},
                          {"EDF over a plain block loop", "Edf", "PlainEdf", 1.6},
                          {"a day of EDF ready to play over reading it with EDFlib", "DayReady",
                           "DayByEdflib", 1.5}});
}
