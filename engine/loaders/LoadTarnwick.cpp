#include "engine/loaders/LoadTarnwick.h"

#include "engine/MaterialLoad.h"
#include "engine/Record.h"
#include "engine/Utils.h"
#include "platform/LastError.h"
#include "platform/Text.h"
#include "WFDB/Utils.h"

#include <limits>

namespace {

constexpr int kChannels = 8;
constexpr int kNoChannel = -1;
constexpr double kMicrovoltsPerMillivolt = 1000.0;

constexpr const char* kLeadNames[kChannels] = {"Lead I", "Lead II", "V1", "V2",
                                               "V3",     "V4",      "V5", "V6"};

// The lines of a file that are not blank, one after the other.
class TextLines {
  public:
    explicit TextLines(const FileImage& image) : m_cursor(image.Begin()), m_end(image.End()) {}

    bool Next() { return ReadTextLine(m_cursor, m_end, m_line, sizeof(m_line)); }
    char* Line() { return m_line; }

  private:
    unsigned char* m_cursor;
    unsigned char* m_end;
    char m_line[256] = {};
};

struct FileHeader {
    int Rate = 0;
    int Count = 0;
};

// Reads a number and drops its fraction.  False when it is negative or does not fit an int.
bool TakeNumber(const char* text, int& number) {
    const double value = ToDouble(text);
    // Not a number fails both comparisons.
    const bool fits = value >= 0.0 && value < 1.0 + std::numeric_limits<int>::max();
    number = fits ? static_cast<int>(value) : 0;
    return fits;
}

bool IsStart(char* line) {
    StringTrim(line);
    return EqualsIgnoringCase(line, "start");
}

// A file that ends within its header counts as one of zeros, with the fields that it has.  Returns
// the header's fault, null when there is none.
const char* ReadFileHeader(TextLines& lines, FileHeader& header) {
    if (lines.Next() && !TakeNumber(lines.Line(), header.Rate)) {
        return "line 1 is not a sampling rate";
    }
    if (lines.Next() && !TakeNumber(lines.Line(), header.Count)) {
        return "line 2 is not a number of samples";
    }
    return lines.Next() && !IsStart(lines.Line()) ? "line 3 is not \"start\"" : nullptr;
}

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

// The channel that a line names; kNoChannel for a value, which most lines are.
int FindChannel(const char* line) {
    if (IsDigit(line[0])) {
        return kNoChannel;
    }
    for (int channel = 0; channel < kChannels; ++channel) {
        if (EqualsIgnoringCase(line, kLeadNames[channel])) {
            return channel;
        }
    }
    return kNoChannel;
}

// A lead that occurs again starts over; values before the first lead are ignored.
void ReadLeads(TextLines& lines) {
    double* samples = nullptr;
    uint64_t count = 0;
    while (lines.Next()) {
        const int channel = FindChannel(lines.Line());
        if (channel != kNoChannel) {
            samples = g_pECGData[channel];
            count = 0;
        } else if (samples != nullptr && count < g_nSampleCount) {
            samples[count++] = ToDouble(lines.Line()) / kMicrovoltsPerMillivolt;
        }
    }
}

} // namespace

ECG_HEADER* LoadDatabaseTarnwick(const char* path) {
    const CMaterialLoad load;
    FileImage image;
    if (!ReadFileImage(path, image)) {
        return nullptr;
    }
    TextLines lines(image);
    FileHeader header;
    if (const char* wrong = ReadFileHeader(lines, header)) {
        SetLastFailure(RAVO_ERROR_FORMAT, "%s: %s", path, wrong);
        return nullptr;
    }
    g_WaveformType = MATERIAL_TARNWICK;
    g_nSampleCount = static_cast<uint64_t>(header.Count);
    g_nSampleRate = static_cast<uint32_t>(header.Rate);
    if (ReallocateECGDataBuffer(kChannels) == 0) {
        return nullptr;
    }
    ReadLeads(lines);
    return NewECGHeaderAllChannel(header.Rate, header.Count, GetMaterialName(path));
}
