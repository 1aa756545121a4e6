#include "engine/loaders/LoadCSE.h"

#include "engine/MaterialLoad.h"
#include "engine/Record.h"
#include "engine/Utils.h"
#include "platform/LastError.h"
#include "platform/Text.h"
#include "WFDB/Ownership.h"
#include "WFDB/Utils.h"

#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

namespace {

constexpr int kChannels = 8;
constexpr uint32_t kSampleRate = 500;
constexpr double kMicrovoltsPerMillivolt = 1000.0;

// Binary files: the count of samples as text, then four blocks of three leads each.
constexpr size_t kCountOffset = 36;
constexpr size_t kCountWidth = 4;
constexpr size_t kSamplesOffset = 3000;
constexpr size_t kBytesPerFrame = 6;
constexpr size_t kBytesPerSample = 2;
constexpr size_t kBlocks = 4;

// Where a binary file holds a channel.  II follows I in the first block; nothing of the second
// block is played.
struct Source {
    size_t Block;
    size_t Lead;
};
constexpr Source kSources[kChannels] = {{0, 0}, {0, 1}, {2, 0}, {2, 1},
                                        {2, 2}, {3, 0}, {3, 1}, {3, 2}};

// Text files: twelve leads in a line, of which III, aVR, aVL and aVF are not played.
constexpr int kLineSize = 1024;
constexpr const char* kDelimiters = " \t\r";
constexpr size_t kLeads = 12;
constexpr size_t kLeadOfChannel[kChannels] = {0, 1, 6, 7, 8, 9, 10, 11};

bool AllocateSamples(int count) {
    g_WaveformType = MATERIAL_DIRECT;
    g_nSampleCount = static_cast<uint64_t>(count);
    g_nSampleRate = kSampleRate;
    return ReallocateECGDataBuffer(kChannels) != 0;
}

ECG_HEADER* NewHeader(const char* path) {
    return NewECGHeaderAllChannel(static_cast<int>(kSampleRate), static_cast<int>(g_nSampleCount),
                                  GetMaterialName(path));
}

int ReadCount(const FileImage& image) {
    char text[kCountWidth + 1] = {};
    std::memcpy(text, image.Begin() + kCountOffset, kCountWidth);
    return std::atoi(text);
}

// At least one byte must follow the last block.
bool HoldsSamples(const FileImage& image, int count) {
    return count >= 0 &&
           image.Size > kBlocks * kBytesPerFrame * static_cast<size_t>(count) + kSamplesOffset;
}

double ReadSample(const unsigned char* bytes) {
    return ToInt16(bytes[0] * 256 + bytes[1]) / kMicrovoltsPerMillivolt;
}

void ReadChannel(const FileImage& image, const Source& source, double* samples) {
    const uint64_t blockSize = kBytesPerFrame * g_nSampleCount;
    const unsigned char* bytes =
        image.Begin() + kSamplesOffset + source.Block * blockSize + source.Lead * kBytesPerSample;
    for (uint64_t i = 0; i < g_nSampleCount; ++i, bytes += kBytesPerFrame) {
        samples[i] = ReadSample(bytes);
    }
}

// Reads a line and trims it.  False at the end of the file and at an empty line, which ends the
// record.  What exceeds the buffer is the next line.
bool ReadLine(FILE* file, char (&line)[kLineSize]) {
    if (fgets_unlocked(line, kLineSize, file) == nullptr) {
        return false;
    }
    StringTrim(line);
    return line[0] != '\0';
}

int CountLines(FILE* file) {
    char line[kLineSize];
    int count = 0;
    while (count < INT_MAX && ReadLine(file, line)) {
        ++count;
    }
    std::rewind(file);
    return count;
}

// Plain decimal numbers, which are nearly all numbers of a file, take the fast path.
double ToMillivolts(const std::string& microvolts) {
    long value = 0;
    const char* text = microvolts.c_str();
    if (std::from_chars(text, text + microvolts.size(), value).ec != std::errc()) {
        value = std::strtol(text, nullptr, 10);
    }
    return static_cast<double>(value) / kMicrovoltsPerMillivolt;
}

// False at a line with too few leads.
bool ReadLines(FILE* file, const char* path) {
    char line[kLineSize];
    std::vector<std::string> leads;
    for (uint64_t i = 0; i < g_nSampleCount && ReadLine(file, line); ++i) {
        leads.clear();
        StringToken(line, kDelimiters, leads);
        if (leads.size() < kLeads) {
            SetLastFailure(RAVO_ERROR_FORMAT, "%s: line %llu has %zu values instead of %zu", path,
                           static_cast<unsigned long long>(i + 1), leads.size(), kLeads);
            return false;
        }
        for (int channel = 0; channel < kChannels; ++channel) {
            g_pECGData[channel][i] = ToMillivolts(leads[kLeadOfChannel[channel]]);
        }
    }
    return true;
}

} // namespace

ECG_HEADER* LoadDatabaseCSE(const char* path) {
    if (path == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no path is given");
        return nullptr;
    }
    const bool binary = ContainsIgnoringCase(path, ".dcd");
    return binary ? LoadDatabaseCSEInDCDFmt(path) : LoadDatabaseCSEInTxtFmt(path);
}

ECG_HEADER* LoadDatabaseCSEInDCDFmt(const char* path) {
    const CMaterialLoad load;
    FileImage image;
    if (!ReadFileImage(path, image)) {
        return nullptr;
    }
    const int count = image.Size > kCountOffset + kCountWidth ? ReadCount(image) : 0;
    if (!HoldsSamples(image, count)) {
        SetLastFailure(RAVO_ERROR_FORMAT, "%s: %u bytes are too few for a CSE record of %d samples",
                       path, image.Size, count);
        return nullptr;
    }
    if (!AllocateSamples(count)) {
        return nullptr;
    }
    for (int channel = 0; channel < kChannels; ++channel) {
        ReadChannel(image, kSources[channel], g_pECGData[channel]);
    }
    return NewHeader(path);
}

ECG_HEADER* LoadDatabaseCSEInTxtFmt(const char* path) {
    const CMaterialLoad load;
    const OwnedFile file(OpenOrdinaryFile(path));
    if (file == nullptr || !AllocateSamples(CountLines(file.get())) ||
        !ReadLines(file.get(), path)) {
        return nullptr;
    }
    return NewHeader(path);
}
