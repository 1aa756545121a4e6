#include "engine/loaders/LoadAHA.h"

#include "engine/MaterialLoad.h"
#include "engine/Record.h"
#include "engine/Utils.h"
#include "platform/LastError.h"
#include "platform/Text.h"

namespace {

constexpr int kSignals = 2;
constexpr uint32_t kSampleRate = 250;
constexpr double kUnitsPerMillivolt = 400.0;
constexpr unsigned int kBytesPerFrame = 5; // two little-endian words and an unused byte
constexpr size_t kLineSize = 256;

bool AllocateSamples(unsigned int count) {
    g_nSampleCount = count;
    g_nSampleRate = kSampleRate;
    return ReallocateECGDataBuffer(kSignals) != 0;
}

ECG_HEADER* NewHeader(const char* path) {
    return NewECGHeaderAHA(static_cast<int>(g_nSampleCount), GetMaterialName(path));
}

double ReadSample(const unsigned char* bytes) {
    return ToInt16(bytes[0] + bytes[1] * 256) / kUnitsPerMillivolt;
}

// The size of the line buffer does not affect the number of lines.
unsigned int CountLines(const FileImage& image) {
    char seen[1];
    unsigned int count = 0;
    unsigned char* cursor = image.Begin();
    while (ReadTextLine(cursor, image.End(), seen, sizeof(seen))) {
        ++count;
    }
    return count;
}

bool IsDelimiter(char character) {
    return character == ',' || character == ' ';
}

// A field of a line, with a terminating zero at `end`.
struct Field {
    const char* begin;
    const char* end;
};

// The field that begins at `rest`, or after the delimiters there, as strtok_r finds it; empty at
// the end of the line.  Unlike strtok_r it makes no table of the delimiters for every field.
Field CutField(char*& rest) {
    while (IsDelimiter(*rest)) {
        ++rest;
    }
    char* const begin = rest;
    while (*rest != '\0' && !IsDelimiter(*rest)) {
        ++rest;
    }
    char* const end = rest;
    if (*end != '\0') {
        *end = '\0';
        ++rest;
    }
    return {begin, end};
}

// A line with a single field is counted but yields no sample: the record then ends in zeros.
void ReadLines(const FileImage& image) {
    char line[kLineSize];
    uint64_t sample = 0;
    unsigned char* cursor = image.Begin();
    while (sample < g_nSampleCount && ReadTextLine(cursor, image.End(), line, sizeof(line))) {
        char* rest = line;
        const Field first = CutField(rest);
        const Field second = CutField(rest);
        if (second.begin != second.end) {
            g_pECGData[0][sample] = ToDouble(first.begin, first.end) / kUnitsPerMillivolt;
            g_pECGData[1][sample] = ToDouble(second.begin, second.end) / kUnitsPerMillivolt;
            ++sample;
        }
    }
}

} // namespace

ECG_HEADER* LoadDatabaseAHA(const char* path) {
    const CMaterialLoad load;
    g_WaveformType = MATERIAL_AHA;
    if (path == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no path is given");
        return nullptr;
    }
    if (ContainsIgnoringCase(path, ".txt")) {
        return DoLoadDatabaseAHAFormatTxt(path);
    }
    if (ContainsIgnoringCase(path, ".ecg")) {
        return DoLoadDatabaseAHAFormatECG(path);
    }
    SetLastFailure(RAVO_ERROR_FORMAT, "%s: an AHA record is named \".txt\" or \".ecg\"", path);
    return nullptr;
}

ECG_HEADER* DoLoadDatabaseAHAFormatECG(const char* path) {
    FileImage image;
    if (!ReadFileImage(path, image) || !AllocateSamples(image.Size / kBytesPerFrame)) {
        return nullptr;
    }
    const unsigned char* frame = image.Begin();
    for (uint64_t i = 0; i < g_nSampleCount; ++i, frame += kBytesPerFrame) {
        g_pECGData[0][i] = ReadSample(frame);
        g_pECGData[1][i] = ReadSample(frame + 2);
    }
    return NewHeader(path);
}

ECG_HEADER* DoLoadDatabaseAHAFormatTxt(const char* path) {
    FileImage image;
    if (!ReadFileImage(path, image) || !AllocateSamples(CountLines(image))) {
        return nullptr;
    }
    ReadLines(image);
    return NewHeader(path);
}
