// Reading material beyond what the library reads itself, per format, against a plain loop that
// reads the same file in blocks and turns its bytes into doubles; and bringing a day of EDF into
// the library against reading it with EDFlib, where that is there.
#include "bench/Ratios.h"
#include "lab/material/LoadRecord.h"
#include "lab/material/readers/CsvReader.h"
#include "lab/material/readers/EdfReader.h"
#include "lab/material/readers/WfdbReader.h"
#include "tests/support/Files.h"

#include <benchmark/benchmark.h>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#ifdef RAVO_HAS_EDFLIB
#include <edflib.h>
#endif
#ifdef RAVO_HAS_FLAC
#include <FLAC/stream_decoder.h>
#include <FLAC/stream_encoder.h>
#endif

namespace {

constexpr int64_t kSamples = 6'000'000;
constexpr int kDaySeconds = 24 * 3600;
constexpr int kDayRate = 256;

const Scratch& Files() {
    static const Scratch folder;
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

// ---- Plain loops --------------------------------------------------------------------------------

// The number of samples that a number of bytes holds.
constexpr std::pair<std::size_t, std::size_t> GroupOf(int format) {
    switch (format) {
    case 8:
    case 80:
        return {1, 1};
    case 24:
        return {3, 1};
    case 32:
        return {4, 1};
    case 212:
        return {3, 2};
    case 310:
    case 311:
        return {4, 3};
    default:
        return {2, 1};
    }
}

int Ten(unsigned bits) {
    return static_cast<int>(bits << 22U) >> 22;
}

// Sample `i` of the group at `at`, as in a plain reader for this format alone.
template <int kFormat>
int PlainSample(const unsigned char* at, std::size_t i, int& sum) {
    if constexpr (kFormat == 8) {
        return sum += static_cast<signed char>(at[0]);
    } else if constexpr (kFormat == 16) {
        return static_cast<int16_t>(at[0] | at[1] << 8);
    } else if constexpr (kFormat == 61) {
        return static_cast<int16_t>(at[1] | at[0] << 8);
    } else if constexpr (kFormat == 160) {
        return (at[0] | at[1] << 8) - 32768;
    } else if constexpr (kFormat == 80) {
        return at[0] - 128;
    } else if constexpr (kFormat == 24) {
        return static_cast<int>((at[0] | at[1] << 8U | at[2] << 16U) << 8U) >> 8;
    } else if constexpr (kFormat == 32) {
        return static_cast<int>(at[0] | at[1] << 8U | at[2] << 16U | unsigned{at[3]} << 24U);
    } else if constexpr (kFormat == 212) {
        const int bits = i == 0 ? at[0] | (at[1] & 0x0F) << 8 : at[2] | (at[1] & 0xF0) << 4;
        return static_cast<int>(static_cast<unsigned>(bits) << 20U) >> 20;
    } else if constexpr (kFormat == 310) {
        const unsigned one = at[0] | at[1] << 8U;
        const unsigned two = at[2] | at[3] << 8U;
        return Ten(i == 0 ? one >> 1U : i == 1 ? two >> 1U : one >> 11U | two >> 11U << 5U);
    } else {
        const unsigned word = at[0] | at[1] << 8U | at[2] << 16U | unsigned{at[3]} << 24U;
        return Ten(word >> (10U * i));
    }
}

// Reads blocks of bytes and turns each sample into a double.
template <int kFormat>
void PlainLoop(const std::string& path) {
    constexpr std::size_t kGroups = 8192;
    constexpr std::size_t kBytes = GroupOf(kFormat).first;
    constexpr std::size_t kPerGroup = GroupOf(kFormat).second;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    std::vector<unsigned char> block(kBytes * kGroups);
    std::vector<double> values(kPerGroup * kGroups);
    int sums[2] = {0, 0};
    std::size_t read = 0;
    while ((read = std::fread(block.data(), kBytes, kGroups, file)) > 0) {
        const unsigned char* at = block.data();
        for (std::size_t group = 0; group < read; ++group, at += kBytes) {
            for (std::size_t i = 0; i < kPerGroup; ++i) {
                const int sample = PlainSample<kFormat>(at, i, sums[group % 2]);
                values[group * kPerGroup + i] = (sample - 5.0) / 200.0;
            }
        }
        benchmark::DoNotOptimize(values.data());
    }
    std::fclose(file);
}

std::string WfdbOf(int format) {
    const auto [bytes, samples] = GroupOf(format);
    return MakeWfdb(format, kSamples / static_cast<int64_t>(samples) * static_cast<int64_t>(bytes));
}

template <int kFormat>
void Read(benchmark::State& state) {
    const std::string header = WfdbOf(kFormat);
    for (auto _ : state) {
        ReadAll(*lab::OpenWfdb(header), {0, 1});
    }
}

template <int kFormat>
void Plain(benchmark::State& state) {
    WfdbOf(kFormat);
    for (auto _ : state) {
        PlainLoop<kFormat>(Files() / ("f" + std::to_string(kFormat) + ".dat"));
    }
}

// ---- CSV ----------------------------------------------------------------------------------------

std::string MakeCsv() {
    const std::string path = Files() / "lines.csv";
    if (!std::filesystem::exists(path)) {
        std::ofstream file(path);
        file << "seconds,I,II\n";
        for (int i = 0; i < 500'000; ++i) {
            char line[64];
            std::snprintf(line, sizeof line, "%.3f,%.4f,%.4f\n", i / 500.0, i % 2000 / 1000.0 - 1.0,
                          i % 777 / 500.0);
            file << line;
        }
    }
    return path;
}

void Csv(benchmark::State& state) {
    const std::string path = MakeCsv();
    for (auto _ : state) {
        ReadAll(*lab::OpenCsv(path, {}), {0, 1});
    }
}

// Every number of a file that is read in blocks; opening a file also reads it once, to check it.
void PlainCsv(benchmark::State& state) {
    const std::string path = MakeCsv();
    for (auto _ : state) {
        for (int pass = 0; pass < 2; ++pass) {
            std::ifstream file(path, std::ios::binary);
            const std::string text((std::istreambuf_iterator<char>(file)),
                                   std::istreambuf_iterator<char>());
            const char* at = text.data() + text.find('\n') + 1;
            const char* const end = text.data() + text.size();
            std::vector<double> values;
            while (at < end) {
                double value = 0.0;
                at = std::from_chars(at, end, value).ptr + 1;
                values.push_back(value);
            }
            benchmark::DoNotOptimize(values.data());
        }
    }
}

// ---- FLAC ---------------------------------------------------------------------------------------

#ifdef RAVO_HAS_FLAC
struct DeleteEncoder {
    void operator()(FLAC__StreamEncoder* encoder) const { FLAC__stream_encoder_delete(encoder); }
};

std::string MakeFlac() {
    const std::string data = Files() / "f516.dat";
    if (!std::filesystem::exists(data)) {
        const std::unique_ptr<FLAC__StreamEncoder, DeleteEncoder> encoder(
            FLAC__stream_encoder_new());
        FLAC__stream_encoder_set_channels(encoder.get(), 2);
        FLAC__stream_encoder_set_bits_per_sample(encoder.get(), 16);
        FLAC__stream_encoder_set_sample_rate(encoder.get(), 500);
        FLAC__stream_encoder_init_file(encoder.get(), data.c_str(), nullptr, nullptr);
        std::vector<FLAC__int32> samples(kSamples);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            samples[i] = static_cast<FLAC__int32>(i * i / 7 % 2000) - 1000;
        }
        FLAC__stream_encoder_process_interleaved(encoder.get(), samples.data(), kSamples / 2);
        FLAC__stream_encoder_finish(encoder.get());
        std::ofstream(Files() / "f516.hea")
            << "f516 2 500 " << kSamples / 2 << "\nf516.dat 516 200\nf516.dat 516 200\n";
    }
    return data;
}

void Flac(benchmark::State& state) {
    MakeFlac();
    for (auto _ : state) {
        ReadAll(*lab::OpenWfdb(Files() / "f516.hea"), {0, 1});
    }
}

FLAC__StreamDecoderWriteStatus TakeFrame(const FLAC__StreamDecoder* /*decoder*/,
                                         const FLAC__Frame* frame, const FLAC__int32* const data[],
                                         void* values) {
    auto& out = *static_cast<std::vector<double>*>(values);
    out.resize(2U * frame->header.blocksize);
    for (std::size_t i = 0; i < frame->header.blocksize; ++i) {
        out[2 * i] = data[0][i] / 200.0;
        out[2 * i + 1] = data[1][i] / 200.0;
    }
    return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
}

void IgnoreError(const FLAC__StreamDecoder* /*decoder*/, FLAC__StreamDecoderErrorStatus /*status*/,
                 void* /*values*/) {}

void PlainFlac(benchmark::State& state) {
    const std::string path = MakeFlac();
    std::vector<double> values;
    for (auto _ : state) {
        FLAC__StreamDecoder* decoder = FLAC__stream_decoder_new();
        FLAC__stream_decoder_init_file(decoder, path.c_str(), TakeFrame, nullptr, IgnoreError,
                                       &values);
        FLAC__stream_decoder_process_until_end_of_stream(decoder);
        FLAC__stream_decoder_delete(decoder);
        benchmark::DoNotOptimize(values.data());
    }
}
BENCHMARK(Flac)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainFlac)->Unit(benchmark::kMillisecond);
#endif

// ---- EDF ----------------------------------------------------------------------------------------

void Edf(benchmark::State& state) {
    const std::string path = MakeDay();
    for (auto _ : state) {
        ReadAll(*lab::OpenEdf(path, std::nullopt), {0, 1, 2});
    }
}

void PlainEdf(benchmark::State& state) {
    const std::string path = MakeDay();
    for (auto _ : state) {
        PlainLoop<16>(path);
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

BENCHMARK_TEMPLATE(Read, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Read, 16)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 16)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Read, 24)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 24)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Read, 32)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 32)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Read, 61)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 61)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Read, 80)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 80)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Read, 160)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 160)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Read, 212)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 212)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Read, 310)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 310)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Read, 311)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Plain, 311)->Unit(benchmark::kMillisecond);
BENCHMARK(Csv)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainCsv)->Unit(benchmark::kMillisecond);
BENCHMARK(Edf)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainEdf)->Unit(benchmark::kMillisecond);
BENCHMARK(DayReady)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    return RunWithRatios(argc, argv,
                         {{"format 8 over a plain block loop", "Read<8>", "Plain<8>", 1.6},
                          {"format 16 over a plain block loop", "Read<16>", "Plain<16>", 1.6},
                          {"format 24 over a plain block loop", "Read<24>", "Plain<24>", 1.6},
                          {"format 32 over a plain block loop", "Read<32>", "Plain<32>", 1.6},
                          {"format 61 over a plain block loop", "Read<61>", "Plain<61>", 1.6},
                          {"format 80 over a plain block loop", "Read<80>", "Plain<80>", 1.6},
                          {"format 160 over a plain block loop", "Read<160>", "Plain<160>", 1.6},
                          {"format 212 over a plain block loop", "Read<212>", "Plain<212>", 1.6},
                          {"format 310 over a plain block loop", "Read<310>", "Plain<310>", 1.6},
                          {"format 311 over a plain block loop", "Read<311>", "Plain<311>", 1.6},
                          {"CSV over a plain loop", "Csv", "PlainCsv", 1.6},
                          {"FLAC over its library alone", "Flac", "PlainFlac", 1.6},
                          {"EDF over a plain block loop", "Edf", "PlainEdf", 1.6},
                          {"a day of EDF ready to play over reading it with EDFlib", "DayReady",
                           "DayByEdflib", 1.5}});
}
