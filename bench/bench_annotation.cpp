// Annotations per second, and the amplitude of a half-hour record.
#include "bench/Ratios.h"
#include "bench/RecordMaker.h"
#include "WFDB/wfdb.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstring>

namespace {

constexpr int kAnnotations = 100000;

const RecordMaker& Maker() {
    static const RecordMaker maker;
    return maker;
}

const std::string& AnnotationFile() {
    static const std::string path = Maker().MakeAnnotations("many.atr", kAnnotations);
    return path;
}

WFDB_HEADER* OpenRecord(const std::string& path) {
    WFDB_HEADER* header = WFDBReadHeader((path + ".hea").data());
    WFDBLoadSignal(path.substr(0, path.rfind('/')).c_str(), header);
    return header;
}

int ReadWordUnlocked(FILE* file) {
    const int low = getc_unlocked(file);
    const int high = getc_unlocked(file);
    return high == EOF ? EOF : low | high << 8;
}

// The same job written as one loop that keeps its state in local variables.
int ReadPlainly(FILE* file, uint64_t& checksum) {
    WFDB_ANNOTATION annotation;
    int count = 0;
    uint32_t time = 0;
    uint16_t channel = 0;
    uint16_t number = 0;
    int word = ReadWordUnlocked(file);
    while (word > 0) {
        time += static_cast<uint32_t>(word & 0x3FF);
        std::memset(&annotation, 0, sizeof(annotation));
        annotation.Type = static_cast<uint8_t>(word >> 10);
        annotation.Time = time;
        annotation.Channel = channel;
        annotation.Number = number;
        for (word = ReadWordUnlocked(file); word >> 10 >= 59; word = ReadWordUnlocked(file)) {
            const auto value = static_cast<uint16_t>(word & 0x3FF);
            if (word >> 10 == 59) {
                const auto upper = static_cast<uint32_t>(ReadWordUnlocked(file));
                time += upper << 16 | static_cast<uint32_t>(ReadWordUnlocked(file));
            } else if (word >> 10 == 60) {
                annotation.Number = number = value;
            } else if (word >> 10 == 61) {
                annotation.SubType = value;
            } else if (word >> 10 == 62) {
                annotation.Channel = channel = value;
            } else {
                char text[256];
                const auto length = static_cast<size_t>(((word & 0xFF) + 1) & ~1);
                if (fread_unlocked(text, 1, length, file) != length) {
                    return count;
                }
                std::memcpy(annotation.AuxText, text,
                            std::min(length, sizeof(annotation.AuxText) - 1));
            }
        }
        benchmark::DoNotOptimize(annotation);
        checksum += annotation.Time + annotation.Type;
        ++count;
    }
    return count;
}

void AnnotationsPlainLoop(benchmark::State& state) {
    FILE* file = std::fopen(AnnotationFile().c_str(), "rb");
    uint64_t checksum = 0;
    for (auto _ : state) {
        std::rewind(file);
        if (ReadPlainly(file, checksum) != kAnnotations) {
            state.SkipWithError("the plain loop lost annotations");
        }
    }
    benchmark::DoNotOptimize(checksum);
    std::fclose(file);
    state.SetItemsProcessed(state.iterations() * kAnnotations);
}
BENCHMARK(AnnotationsPlainLoop);

void Annotations(benchmark::State& state) {
    const std::string path = Maker().MakeRecord("small", 1000);
    WFDB_HEADER* header = OpenRecord(path);
    WFDBLoadAnnotation(AnnotationFile().c_str(), header);
    uint64_t checksum = 0;
    for (auto _ : state) {
        WFDBAnnotationSeekBegin(header);
        WFDB_ANNOTATION annotation;
        int count = 0;
        while (WFDBNextAnnotation(header, &annotation) == 1) {
            checksum += annotation.Time + annotation.Type;
            ++count;
        }
        if (count != kAnnotations) {
            state.SkipWithError("the library lost annotations");
        }
    }
    benchmark::DoNotOptimize(checksum);
    WFDBFreeHeader(header);
    state.SetItemsProcessed(state.iterations() * kAnnotations);
}
BENCHMARK(Annotations);

void MeasureAmplitude(benchmark::State& state, bool annotated) {
    const std::string path = Maker().Record100();
    WFDB_HEADER* header = OpenRecord(path);
    if (annotated && WFDBLoadAnnotation((path + ".atr").c_str(), header) == 0) {
        state.SkipWithError("no annotations");
    }
    for (auto _ : state) {
        WFDBSeek(header, 0);
        WFDBMemFree(WFDBSignalAmplitude(header, nullptr));
    }
    WFDBFreeHeader(header);
}

void AmplitudeByBeats(benchmark::State& state) {
    MeasureAmplitude(state, true);
}
BENCHMARK(AmplitudeByBeats)->Unit(benchmark::kMicrosecond);

void AmplitudeByWindows(benchmark::State& state) {
    MeasureAmplitude(state, false);
}
BENCHMARK(AmplitudeByWindows)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
    return RunWithRatios(argc, argv,
                         {{"reading annotations / plain loop over unlocked stdio", "Annotations",
                           "AnnotationsPlainLoop", 1.3}});
}
