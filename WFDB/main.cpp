#include "WFDB/main.h"

#include "platform/LastError.h"
#include "platform/Memory.h"
#include "platform/Text.h"
#include "WFDB/Ownership.h"
#include "WFDB/stdafx.h"
#include "WFDB/Utils.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iterator>

namespace {

constexpr int kLineSize = 256;
constexpr double kDefaultGain = 200.0;
constexpr const char* kFieldSeparators = " \t\n\r";
constexpr const char* kLineEnds = "\n\r";
constexpr const char* kRecordFields[] = {"name", "number of signals", "sampling frequency",
                                         "number of samples"};

// Cuts a line into its fields.
class LineFields {
  public:
    explicit LineFields(char* line) : m_next(line) {}

    char* Next() { return Cut(kFieldSeparators); }
    char* RestOfLine() { return Cut(kLineEnds); }

  private:
    char* Cut(const char* separators) { return strtok_r(m_next, separators, &m_next); }

    char* m_next;
};

int64_t ParseInt64(const char* text) {
    return std::strtol(text, nullptr, 10);
}

int32_t ParseInt32(const char* text) {
    return ToInt32(ParseInt64(text));
}

// Null for a size that exceeds the machine's memory: the system would grant it and kill the process
// later.
OwnedRecord AllocateHeader(int64_t declaredSignals) {
    uint64_t size = 0;
    // sizeof(WFDB_HEADER) already holds the one spare entry.
    if (__builtin_mul_overflow(static_cast<uint64_t>(declaredSignals), sizeof(WFDB_SIGNAL),
                               &size) ||
        __builtin_add_overflow(size, sizeof(WFDB_HEADER), &size) || size > PhysicalMemory()) {
        return nullptr;
    }
    return OwnedRecord(static_cast<WFDB_HEADER*>(std::calloc(1, size)));
}

bool ReadRecordFields(LineFields& fields, const char* path,
                      char* (&values)[std::size(kRecordFields)]) {
    for (size_t i = 0; i < std::size(kRecordFields); ++i) {
        values[i] = fields.Next();
        if (values[i] == nullptr) {
            SetLastFailure(RAVO_ERROR_FORMAT, "%s: line 1: the record's %s is missing", path,
                           kRecordFields[i]);
            return false;
        }
    }
    return true;
}

// The record line: name, signals, frequency, samples, and optionally base time and date.  The
// result's NumberOfSignals is the declared one.
OwnedRecord ReadRecordLine(char* line, const char* path) {
    LineFields fields(line);
    char* values[std::size(kRecordFields)];
    if (!ReadRecordFields(fields, path, values)) {
        return nullptr;
    }
    const auto [name, signals, frequency, samples] = values;
    const int64_t declaredSignals = std::max<int64_t>(ParseInt64(signals), 0);
    OwnedRecord header = AllocateHeader(declaredSignals);
    if (header == nullptr) {
        SetLastFailure(RAVO_ERROR_MEMORY, "%s: no memory for %lld signals", path,
                       static_cast<long long>(declaredSignals));
        return nullptr;
    }
    // A "/" precedes the segment count of a multi-segment record.
    name[std::strcspn(name, "/")] = '\0';
    CopyText(header->RecordName, name);
    header->NumberOfSignals = declaredSignals;
    header->SamplingFrequency = ParseInt64(frequency);
    header->NumberOfSamplesPerSignal = ParseInt64(samples);
    if (const char* baseTime = fields.Next()) {
        CopyText(header->BaseTime, baseTime);
        if (const char* baseDate = fields.Next()) {
            CopyText(header->BaseDate, baseDate);
        }
    }
    return header;
}

bool ReadLine(FILE* file, char (&line)[kLineSize]) {
    std::memset(line, 0, sizeof(line));
    return std::fgets(line, kLineSize, file) != nullptr;
}

// Reads signal lines until all declared signals have been found or the file ends; returns how many
// were found.
int64_t ReadSignalLines(FILE* file, WFDB_HEADER* header) {
    char line[kLineSize];
    int64_t accepted = 0;
    while (accepted < header->NumberOfSignals && ReadLine(file, line)) {
        if (line[0] == '#') {
            continue;
        }
        WFDB_SIGNAL* signal = &header->Signal[accepted];
        ReadHeaderSignal(line, signal);
        if (std::strstr(signal->FileName, ".dat") != nullptr) {
            ++accepted;
        } else {
            std::memset(signal, 0, sizeof(*signal));
        }
    }
    return accepted;
}

// "212x4:6+512": format, samples per frame, skew, byte offset; the markers in any order.
void ReadFormatField(const char* field, WFDB_SIGNAL* signal) {
    signal->Format = ParseInt32(field);
    signal->SamplesPerFrame = 1;
    signal->Skew = 0;
    signal->ByteOffset = 0;
    for (const char* marker = field + 1; marker[0] != '\0' && marker[1] != '\0'; ++marker) {
        const int32_t value = ParseInt32(marker + 1);
        switch (*marker) {
        case 'x':
            signal->SamplesPerFrame = std::max(value, 1);
            break;
        case ':':
            signal->Skew = std::max(value, 0);
            break;
        case '+':
            signal->ByteOffset = std::max(value, 0);
            break;
        default:
            break;
        }
    }
    const double halfUp = static_cast<double>(signal->Skew) / signal->SamplesPerFrame + 0.5;
    signal->Skew = static_cast<int32_t>(halfUp);
}

// "200(-5)/mV": gain, baseline, unit.  Returns whether the baseline is given.
bool ReadGainField(const char* field, WFDB_SIGNAL* signal) {
    const char* parenthesis = std::strchr(field, '(');
    const bool baselineGiven = parenthesis != nullptr && std::strchr(field, ')') != nullptr;
    if (baselineGiven) {
        signal->ADCBaseLine = ParseInt32(parenthesis + 1);
    }
    const double gain = ClassicLocale::ToDouble(field);
    signal->ADCGain = gain == 0.0 ? kDefaultGain : gain;
    if (const char* slash = std::strchr(field, '/')) {
        signal->ADCUnit = slash[1];
    }
    return baselineGiven;
}

int32_t DefaultResolution(int32_t format) {
    switch (format) {
    case 80:
        return 8;
    case 160:
        return 16;
    case 212:
        return 12;
    case 310:
    case 311:
        return 10;
    default:
        return 0;
    }
}

// The fields after the resolution.  The line may end after any of them.
void ReadConverterFields(LineFields& fields, bool baselineGiven, WFDB_SIGNAL* signal) {
    const char* zero = fields.Next();
    signal->ADCZero = zero != nullptr ? ParseInt32(zero) : 0;
    if (!baselineGiven) {
        signal->ADCBaseLine = signal->ADCZero;
    }
    if (const char* initialValue = fields.Next()) {
        signal->InitialValue = ParseInt32(initialValue);
    }
    if (const char* checksum = fields.Next()) {
        signal->Checksum = ParseInt32(checksum);
    }
    if (const char* blockSize = fields.Next()) {
        signal->BlockSize = ParseInt32(blockSize);
    }
    if (const char* description = fields.RestOfLine()) {
        CopyText(signal->Description, description);
        StringTrimRight(signal->Description);
    }
}

bool CanDivide(double number) {
    return std::isfinite(number) && number > 0.0;
}

// `number` modulo `divisor`, in [divisor, 2 x divisor).  Only for cases of ten thousand
// subtractions and more; the caller does fewer one by one, each with its rounding.  A hostile
// header asks for 9,999 such numbers.
double ShortenSubtraction(double number, double divisor) {
    constexpr double kManySubtractions = 1e4;
    return number / divisor > kManySubtractions ? std::fmod(number, divisor) + divisor : number;
}

} // namespace

WFDB_HEADER* WFDBReadHeader(char* path) {
    const OwnedFile file(OpenOrdinaryFile(path));
    if (file == nullptr) {
        return nullptr;
    }
    char line[kLineSize];
    ReadLine(file.get(), line);
    if (std::ferror(file.get()) != 0) {
        SetReadFailure(path, errno);
        return nullptr;
    }
    OwnedRecord header = ReadRecordLine(line, path);
    if (header == nullptr) {
        return nullptr;
    }
    header->NumberOfSignals = ReadSignalLines(file.get(), header.get());
    return header.release();
}

void WFDBFreeHeader(WFDB_HEADER* header) {
    if (header == nullptr) {
        return;
    }
    if (FILE* signalFile = GetSignalFile(header)) {
        std::fclose(signalFile);
    }
    if (FILE* annotationFile = GetAnnotationFile(header)) {
        std::fclose(annotationFile);
    }
    std::free(header);
}

void WFDBMemFree(void* memory) {
    std::free(memory);
}

void ReadHeaderSignal(char* line, WFDB_SIGNAL* out) {
    if (line == nullptr || out == nullptr) {
        return;
    }
    out->ADCGain = kDefaultGain;
    out->SamplesPerFrame = 1;

    LineFields fields(line);
    const char* fileName = fields.Next();
    if (fileName == nullptr) {
        return;
    }
    CopyText(out->FileName, fileName);

    const char* format = fields.Next();
    if (format == nullptr) {
        return;
    }
    ReadFormatField(format, out);

    const char* gain = fields.Next();
    if (gain == nullptr) {
        return;
    }
    const bool baselineGiven = ReadGainField(gain, out);

    const char* resolution = fields.Next();
    if (resolution == nullptr) {
        out->ADCResolution = DefaultResolution(out->Format);
        return;
    }
    out->ADCResolution = ParseInt32(resolution);
    ReadConverterFields(fields, baselineGiven, out);
}

time_t GetRecordTime(WFDB_HEADER* header) {
    if (header == nullptr) {
        return 0;
    }
    // Fifteen digits always fit 64 bits.
    long hour = 0, minute = 0, second = 0;
    std::sscanf(header->BaseTime, "%ld:%ld:%ld", &hour, &minute, &second);
    long day = 1, month = 1, year = 1900;
    std::sscanf(header->BaseDate, "%ld/%ld/%ld", &day, &month, &year);

    struct tm calendar = {};
    calendar.tm_year = ToInt32(year - 1900);
    calendar.tm_mon = ToInt32(month - 1);
    calendar.tm_mday = ToInt32(day);
    calendar.tm_hour = ToInt32(hour);
    calendar.tm_min = ToInt32(minute);
    calendar.tm_sec = ToInt32(second);
    const time_t time = std::mktime(&calendar);
    return time == -1 ? 0 : time;
}

double gcd(double a, double b) {
    if (!CanDivide(a) || !CanDivide(b)) {
        return a;
    }
    const double tolerance = std::min(a, b) * 0.001;
    if (a > b) {
        a = ShortenSubtraction(a, b);
    } else {
        b = ShortenSubtraction(b, a);
    }
    while (true) {
        if (a > b && a - b > tolerance) {
            a -= b;
        } else if (b > a && b - a > tolerance) {
            b -= a;
        } else {
            return a;
        }
    }
}
