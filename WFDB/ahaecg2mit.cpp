#include "WFDB/ahaecg2mit.h"

#include "platform/LastError.h"
#include "platform/Text.h"
#include "WFDB/Ownership.h"
#include "WFDB/Utils.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kLineSize = 128;
constexpr int kSignals = 2;
constexpr int kSamplingFrequency = 250;

// The two samples of one line.
struct Frame {
    long First;
    long Second;
};

bool HasTextExtension(const char* path) {
    const char* extension = PathFindExtension(path);
    return extension != nullptr && std::strcmp(extension, ".txt") == 0;
}

OwnedFile CreateSignalFile(const char* directory, const char* fileName) {
    char path[PATH_MAX];
    const int length = std::snprintf(path, sizeof(path), "%s/%s", directory, fileName);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(path)) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "%s: too long for a path", directory);
        return nullptr;
    }
    return CreateOrdinaryFile(path);
}

void DescribeSignal(int index, const char (&recordName)[kRecordNameSize], WFDB_SIGNAL* signal) {
    std::snprintf(signal->FileName, sizeof(signal->FileName), "%s.dat", recordName);
    std::snprintf(signal->Description, sizeof(signal->Description), "ECG%d", index);
    signal->Format = 212;
    signal->SamplesPerFrame = 1;
    signal->ADCResolution = 12;
    signal->ADCGain = 400;
}

OwnedRecord NewHeader(const char* path) {
    constexpr size_t kSize = sizeof(WFDB_HEADER) + (kSignals - 1) * sizeof(WFDB_SIGNAL);
    OwnedRecord header(static_cast<WFDB_HEADER*>(std::calloc(1, kSize)));
    if (header != nullptr) {
        char recordName[kRecordNameSize];
        GetRecordName(path, recordName);
        std::memcpy(header->RecordName, recordName, sizeof(recordName));
        header->NumberOfSignals = kSignals;
        header->SamplingFrequency = kSamplingFrequency;
        for (int i = 0; i < kSignals; ++i) {
            DescribeSignal(i, recordName, &header->Signal[i]);
        }
    }
    return header;
}

// The end of the file is stored like a character. It can stand in for the missing mark of the last
// line; a line that contains nothing else ends the record.
void ReadLine(FILE* input, char (&line)[kLineSize + 1]) {
    std::memset(line, 0, sizeof(line));
    for (int i = 0; i < kLineSize; ++i) {
        const int character = getc_unlocked(input);
        if (character == '\r' || character == '\n') {
            return;
        }
        line[i] = static_cast<char>(character);
    }
}

// Takes a number and the comma after it.
bool TakeSample(const char*& cursor, long& sample) {
    char* end = nullptr;
    sample = std::strtol(cursor, &end, 10);
    if (end == cursor || *end != ',') {
        return false;
    }
    cursor = end + 1;
    return true;
}

// The line 100,-50,"N holds two samples and a mark; the mark is not used but must be there.
bool ParseLine(const char* line, Frame& frame) {
    return TakeSample(line, frame.First) && TakeSample(line, frame.Second) && line[0] == '"' &&
           line[1] != '\0';
}

bool ReadFrame(FILE* input, Frame& frame) {
    char line[kLineSize + 1];
    ReadLine(input, line);
    return ParseLine(line, frame);
}

// Format 212: the low bytes of the two 12-bit samples on the outside, their high bits between them.
void WriteFrame(FILE* output, const Frame& frame) {
    const auto highBits = (frame.First >> 8 & 0x0F) | (frame.Second >> 8 & 0x0F) << 4;
    putc_unlocked(static_cast<int>(frame.First & 0xFF), output);
    putc_unlocked(static_cast<int>(highBits), output);
    putc_unlocked(static_cast<int>(frame.Second & 0xFF), output);
}

// A line feed after a carriage return counts as an empty line, so a file with such line ends yields
// its first frame only.
void ConvertSamples(FILE* input, FILE* output, WFDB_HEADER* header) {
    Frame frame = {};
    while (ReadFrame(input, frame)) {
        if (header->NumberOfSamplesPerSignal == 0) {
            header->Signal[0].InitialValue = ToInt32(frame.First);
            header->Signal[1].InitialValue = ToInt32(frame.Second);
        }
        WriteFrame(output, frame);
        ++header->NumberOfSamplesPerSignal;
    }
}

} // namespace

WFDB_HEADER* ConvertAHARecord(const char* path, const char* directory) {
    if (path == nullptr || directory == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no path or no directory is given");
        return nullptr;
    }
    if (!HasTextExtension(path)) {
        SetLastFailure(RAVO_ERROR_FORMAT, "%s: the name does not end in \".txt\"", path);
        return nullptr;
    }
    const OwnedFile input(OpenOrdinaryFile(path));
    if (input == nullptr) {
        return nullptr;
    }
    OwnedRecord header = NewHeader(path);
    if (header == nullptr) {
        SetLastFailure(RAVO_ERROR_MEMORY, "%s: no memory to convert it", path);
        return nullptr;
    }
    const OwnedFile output = CreateSignalFile(directory, header->Signal[0].FileName);
    if (output == nullptr) {
        return nullptr;
    }
    ConvertSamples(input.get(), output.get(), header.get());
    return header.release();
}

int ahaecg2mit(const char* path, const char* directory) {
    OwnedRecord header(ConvertAHARecord(path, directory));
    if (header != nullptr) {
        // The name is relative to the current directory, not to the output directory, and the
        // result is failure: the exported declaration warns of both.
        DeleteFile(header->Signal[0].FileName);
    }
    return 0;
}

int WFDBConvertAHA(const char* path, const char* directory) {
    return ahaecg2mit(path, directory) != 0 ? 1 : 0;
}
