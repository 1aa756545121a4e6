// Megabytes a second through each loader and converter of files other than WFDB records, each next
// to a plain loop over the same bytes: the code of a program written for this one file, which
// expects no damage and keeps nothing but the samples.
#include "bench/Ratios.h"
#include "bench/RecordMaker.h"
#include "engine/loaders/LoadAHA.h"
#include "engine/loaders/LoadCSE.h"
#include "engine/loaders/LoadTarnwick.h"
#include "engine/Record.h"
#include "WFDB/wfdb.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

namespace {

// Half an hour of an AHA record, ten seconds of a CSE record, ten minutes of eight native leads and
// a minute of twelve EDF signals.
constexpr int kAHASamples = 450000;
constexpr int kCSESamples = 5000;
constexpr int kNativeSamples = 300000;
constexpr int kEDFSignals = 12;
constexpr int kEDFSamplesPerRecord = 200;
constexpr int kEDFRecords = 60;

constexpr int kLeads = 8;
constexpr int kLineSize = 256;

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

struct MemoryReleaser {
    void operator()(void* memory) const { std::free(memory); }
};

using File = std::unique_ptr<FILE, FileCloser>;
using Samples = std::unique_ptr<double[], MemoryReleaser>;

const RecordMaker& Maker() {
    static const RecordMaker maker;
    return maker;
}

// ---- The files ---------------------------------------------------------------------------------

int MakeSample(std::mt19937& random, int range) {
    return static_cast<int>(random() % static_cast<unsigned int>(2 * range)) - range;
}

void PutLittleEndian(int sample, FILE* file) {
    std::putc(sample & 0xFF, file);
    std::putc(sample >> 8 & 0xFF, file);
}

void PutBigEndian(int sample, FILE* file) {
    std::putc(sample >> 8 & 0xFF, file);
    std::putc(sample & 0xFF, file);
}

template <typename Write>
std::string MakeFile(const char* name, Write write) {
    const std::string path = Maker().File(name);
    const File file(std::fopen(path.c_str(), "wb"));
    std::mt19937 random(1);
    write(file.get(), random);
    return path;
}

const std::string& AHABinaryFile() {
    static const std::string path = MakeFile("aha.ecg", [](FILE* file, std::mt19937& random) {
        for (int i = 0; i < kAHASamples; ++i) {
            PutLittleEndian(MakeSample(random, 2000), file);
            PutLittleEndian(MakeSample(random, 2000), file);
            std::putc('.', file);
        }
    });
    return path;
}

const std::string& AHATextFile() {
    static const std::string path = MakeFile("aha.txt", [](FILE* file, std::mt19937& random) {
        for (int i = 0; i < kAHASamples; ++i) {
            const int first = MakeSample(random, 2000);
            std::fprintf(file, "%d,%d,\".\"\n", first, MakeSample(random, 2000));
        }
    });
    return path;
}

const std::string& CSEBinaryFile() {
    static const std::string path = MakeFile("cse.dcd", [](FILE* file, std::mt19937& random) {
        std::fprintf(file, "%36s%4d%2960s", "", kCSESamples, "");
        for (int i = 0; i < 12 * kCSESamples + 1; ++i) {
            PutBigEndian(MakeSample(random, 5000), file);
        }
    });
    return path;
}

const std::string& CSETextFile() {
    static const std::string path = MakeFile("cse.txt", [](FILE* file, std::mt19937& random) {
        for (int i = 0; i < 12 * kCSESamples; ++i) {
            std::fprintf(file, "%d%c", MakeSample(random, 5000), i % 12 == 11 ? '\n' : '\t');
        }
    });
    return path;
}

const std::string& NativeFile() {
    static const std::string path = MakeFile("native.txt", [](FILE* file, std::mt19937& random) {
        constexpr const char* kNames[kLeads] = {"Lead I", "Lead II", "V1", "V2",
                                                "V3",     "V4",      "V5", "V6"};
        std::fprintf(file, "500\n%d\nstart\n", kNativeSamples);
        for (const char* name : kNames) {
            std::fprintf(file, "%s\n", name);
            for (int i = 0; i < kNativeSamples; ++i) {
                std::fprintf(file, "%d\n", MakeSample(random, 5000));
            }
        }
    });
    return path;
}

void PutColumn(FILE* file, const char* text, int width) {
    for (int i = 0; i < kEDFSignals; ++i) {
        std::fprintf(file, "%-*s", width, text);
    }
}

const std::string& EDFFile() {
    static const std::string path = MakeFile("edf.edf", [](FILE* file, std::mt19937& random) {
        std::fprintf(file, "%-8s%-160s%-16s%-8d%-44s%-8d%-8d%-4d", "0", "X", "01.02.0304.05.06",
                     256 * (kEDFSignals + 1), "", kEDFRecords, 1, kEDFSignals);
        PutColumn(file, "ECG", 16);
        PutColumn(file, "", 80);
        PutColumn(file, "mV", 8);
        PutColumn(file, "-5", 8);
        PutColumn(file, "5", 8);
        PutColumn(file, "-2048", 8);
        PutColumn(file, "2047", 8);
        PutColumn(file, "", 80);
        PutColumn(file, "200", 8);
        PutColumn(file, "", 32);
        for (int i = 0; i < kEDFSignals * kEDFSamplesPerRecord * kEDFRecords; ++i) {
            PutLittleEndian(MakeSample(random, 2048), file);
        }
    });
    return path;
}

// ---- The plain loops ---------------------------------------------------------------------------

File Open(const std::string& path) {
    return File(std::fopen(path.c_str(), "rb"));
}

Samples NewSamples(int count) {
    return Samples(static_cast<double*>(std::calloc(static_cast<size_t>(count), sizeof(double))));
}

double ReadLittleEndian(FILE* file) {
    const int low = getc_unlocked(file);
    return static_cast<int16_t>(low | getc_unlocked(file) << 8);
}

double ReadBigEndian(FILE* file) {
    const int high = getc_unlocked(file);
    return static_cast<int16_t>(high << 8 | getc_unlocked(file));
}

void ReadAHABinaryPlainly() {
    const File file = Open(AHABinaryFile());
    const Samples first = NewSamples(kAHASamples);
    const Samples second = NewSamples(kAHASamples);
    for (int i = 0; i < kAHASamples; ++i) {
        first[static_cast<size_t>(i)] = ReadLittleEndian(file.get()) / 400.0;
        second[static_cast<size_t>(i)] = ReadLittleEndian(file.get()) / 400.0;
        getc_unlocked(file.get());
    }
    benchmark::DoNotOptimize(first.get());
    benchmark::DoNotOptimize(second.get());
}

void ReadAHATextPlainly() {
    const File file = Open(AHATextFile());
    const Samples first = NewSamples(kAHASamples);
    const Samples second = NewSamples(kAHASamples);
    char line[kLineSize];
    for (size_t i = 0; fgets_unlocked(line, kLineSize, file.get()) != nullptr; ++i) {
        char* end = nullptr;
        first[i] = std::strtod(line, &end) / 400.0;
        second[i] = std::strtod(end + 1, nullptr) / 400.0;
    }
    benchmark::DoNotOptimize(first.get());
    benchmark::DoNotOptimize(second.get());
}

void ReadCSEBinaryPlainly() {
    const File file = Open(CSEBinaryFile());
    std::fseek(file.get(), 3000, SEEK_SET);
    std::vector<Samples> leads;
    for (int block = 0; block < 4; ++block) {
        for (int lead = 0; lead < 3; ++lead) {
            leads.push_back(NewSamples(kCSESamples));
        }
        Samples* const first = &leads[leads.size() - 3];
        for (size_t i = 0; i < kCSESamples; ++i) {
            first[0][i] = ReadBigEndian(file.get()) / 1000.0;
            first[1][i] = ReadBigEndian(file.get()) / 1000.0;
            first[2][i] = ReadBigEndian(file.get()) / 1000.0;
        }
    }
    benchmark::DoNotOptimize(leads.data());
}

void ReadCSETextPlainly() {
    const File file = Open(CSETextFile());
    std::vector<Samples> leads;
    for (int lead = 0; lead < 12; ++lead) {
        leads.push_back(NewSamples(kCSESamples));
    }
    char line[kLineSize];
    for (size_t i = 0; fgets_unlocked(line, kLineSize, file.get()) != nullptr; ++i) {
        char* cursor = line;
        for (const Samples& lead : leads) {
            lead[i] = static_cast<double>(std::strtol(cursor, &cursor, 10)) / 1000.0;
        }
    }
    benchmark::DoNotOptimize(leads.data());
}

void ReadNativePlainly() {
    const File file = Open(NativeFile());
    char line[kLineSize];
    const auto next = [&] { return fgets_unlocked(line, kLineSize, file.get()) != nullptr; };
    std::vector<Samples> leads;
    next();
    next();
    next();
    while (next()) {
        leads.push_back(NewSamples(kNativeSamples));
        for (size_t i = 0; i < kNativeSamples && next(); ++i) {
            leads.back()[i] = std::strtod(line, nullptr) / 1000.0;
        }
    }
    benchmark::DoNotOptimize(leads.data());
}

void ConvertAHAPlainly() {
    const File input = Open(AHATextFile());
    const File output(std::fopen(Maker().File("plain.dat").c_str(), "wb"));
    char line[kLineSize];
    while (fgets_unlocked(line, kLineSize, input.get()) != nullptr) {
        char* end = nullptr;
        const long first = std::strtol(line, &end, 10);
        const long second = std::strtol(end + 1, nullptr, 10);
        putc_unlocked(static_cast<int>(first & 0xFF), output.get());
        putc_unlocked(static_cast<int>((first >> 8 & 15) | (second >> 8 & 15) << 4), output.get());
        putc_unlocked(static_cast<int>(second & 0xFF), output.get());
    }
}

template <bool kFlush>
void ConvertEDFPlainly() {
    const File input = Open(EDFFile());
    const File output(std::fopen(Maker().File("plain.dat").c_str(), "wb"));
    std::fseek(input.get(), 256 * (kEDFSignals + 1), SEEK_SET);
    unsigned char record[kEDFSignals][kEDFSamplesPerRecord][2];
    while (std::fread(record, sizeof(record), 1, input.get()) == 1) {
        for (int i = 0; i < kEDFSamplesPerRecord; ++i) {
            for (auto& signal : record) {
                putc_unlocked(signal[i][0], output.get());
                putc_unlocked(signal[i][1], output.get());
                if (kFlush) {
                    std::fflush(output.get());
                }
            }
        }
    }
}

// ---- The library -------------------------------------------------------------------------------

template <ECG_HEADER* (*Load)(const char*), const std::string& (*File)()>
void LoadWhole() {
    FreeECGHeader(Load(File().c_str()));
}

void ConvertAHA() {
    WFDBConvertAHA(AHATextFile().c_str(), Maker().File("").c_str());
}

void ConvertEDF() {
    WFDBConvertEDF(EDFFile().c_str(), Maker().File("").c_str());
}

template <void (*Work)(), const std::string& (*File)()>
void BM_Bytes(benchmark::State& state) {
    const auto size = static_cast<int64_t>(std::filesystem::file_size(File()));
    for (auto _ : state) {
        Work();
    }
    state.SetBytesProcessed(state.iterations() * size);
}

template <void (*Work)(), const std::string& (*File)()>
void Register(const char* name) {
    benchmark::RegisterBenchmark(name, BM_Bytes<Work, File>)->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv) {
    Register<ReadAHABinaryPlainly, AHABinaryFile>("AHABinaryPlain");
    Register<LoadWhole<LoadDatabaseAHA, AHABinaryFile>, AHABinaryFile>("AHABinary");
    Register<ReadAHATextPlainly, AHATextFile>("AHATextPlain");
    Register<LoadWhole<LoadDatabaseAHA, AHATextFile>, AHATextFile>("AHAText");
    Register<ReadCSEBinaryPlainly, CSEBinaryFile>("CSEBinaryPlain");
    Register<LoadWhole<LoadDatabaseCSE, CSEBinaryFile>, CSEBinaryFile>("CSEBinary");
    Register<ReadCSETextPlainly, CSETextFile>("CSETextPlain");
    Register<LoadWhole<LoadDatabaseCSE, CSETextFile>, CSETextFile>("CSEText");
    Register<ReadNativePlainly, NativeFile>("NativePlain");
    Register<LoadWhole<LoadDatabaseTarnwick, NativeFile>, NativeFile>("Native");
    Register<ConvertAHAPlainly, AHATextFile>("ConvertAHAPlain");
    Register<ConvertAHA, AHATextFile>("ConvertAHA");
    Register<ConvertEDFPlainly<false>, EDFFile>("ConvertEDFPlain");
    Register<ConvertEDFPlainly<true>, EDFFile>("ConvertEDFPlainWithFlush");
    Register<ConvertEDF, EDFFile>("ConvertEDF");
    constexpr double kLimit = 1.6;
    constexpr double kNoLimit = std::numeric_limits<double>::infinity();
    return RunWithRatios(argc, argv,
                         {{"AHA binary file / plain loop", "AHABinary", "AHABinaryPlain", kLimit},
                          {"AHA text file / plain loop", "AHAText", "AHATextPlain", kLimit},
                          {"CSE binary file / plain loop", "CSEBinary", "CSEBinaryPlain", kLimit},
                          {"CSE text file / plain loop", "CSEText", "CSETextPlain", kLimit},
                          {"native text file / plain loop", "Native", "NativePlain", kLimit},
                          {"AHA conversion / plain loop", "ConvertAHA", "ConvertAHAPlain", kLimit},
                          {"EDF conversion / plain loop that flushes every value", "ConvertEDF",
                           "ConvertEDFPlainWithFlush", kLimit},
                          {"the same / plain loop without flush: what the flush costs",
                           "ConvertEDF", "ConvertEDFPlain", kNoLimit}});
}
