#include "WFDB/edf2mit.h"

#include "platform/LastError.h"
#include "platform/Text.h"
#include "WFDB/main.h"
#include "WFDB/Ownership.h"
#include "WFDB/Utils.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace {

constexpr size_t kPathSize = 256;
constexpr int kBytesPerSample = 2;

using Header = std::unique_ptr<EDF_HEADER[]>;

// ---- Header fields -----------------------------------------------------------------------------

// A field that fills its width runs into the next one, so it is copied out before it is read.
template <size_t Width>
struct FieldText {
    explicit FieldText(const char (&field)[Width]) { std::memcpy(Text, field, Width); }

    char Text[Width + 1] = {};
};

template <size_t Width>
int ToInt(const char (&field)[Width]) {
    return ToInt32(int64_t{std::strtol(FieldText(field).Text, nullptr, 10)});
}

// To be called while a ClassicLocale exists.
template <size_t Width>
double ToDouble(const char (&field)[Width]) {
    return std::strtod(FieldText(field).Text, nullptr);
}

EDF_SIGNSAL* Signals(EDF_HEADER* header) {
    return reinterpret_cast<EDF_SIGNSAL*>(header + 1);
}

// Never negative.
int SamplesPerRecord(const EDF_SIGNSAL& signal) {
    return std::max(ToInt(signal.NumberOfSamplesPerRecord), 0);
}

constexpr int kHeaderFieldWidths[] = {8, 80, 80, 8, 8, 8, 44, 8, 8, 4};
constexpr int kSignalFieldWidths[] = {16, 80, 8, 8, 8, 8, 8, 80, 8, 32};

template <size_t Count>
void TrimFields(char* field, const int (&widths)[Count]) {
    for (const int width : widths) {
        TrimString(field, width);
        field += width;
    }
}

// The file holds each field for all signals before the next field.
bool ReadSignals(FILE* file, EDF_SIGNSAL* signals, int count) {
    size_t offset = 0;
    for (const int fieldWidth : kSignalFieldWidths) {
        const auto width = static_cast<size_t>(fieldWidth);
        for (int i = 0; i < count; ++i) {
            char* field = reinterpret_cast<char*>(&signals[i]) + offset;
            if (std::fread(field, 1, width, file) != width) {
                return false;
            }
        }
        offset += width;
    }
    return true;
}

// Reads the fields before those of the signals.
bool ReadFixedPart(FILE* file, const char* path, EDF_HEADER& fixedPart) {
    if (std::fread(&fixedPart, sizeof(fixedPart), 1, file) != 1 ||
        std::memcmp(fixedPart.DataFormat, "0       ", sizeof(fixedPart.DataFormat)) != 0) {
        SetLastFailure(RAVO_ERROR_FORMAT, "%s: does not begin like an EDF file", path);
        return false;
    }
    if (ToInt(fixedPart.NumberOfSignals) < 1) {
        SetLastFailure(RAVO_ERROR_FORMAT, "%s: the number of signals is \"%.4s\"", path,
                       fixedPart.NumberOfSignals);
        return false;
    }
    return true;
}

// ReadHeader; `path` is named in the reason.
Header ReadEDFHeader(FILE* file, const char* path) {
    EDF_HEADER fixedPart = {};
    if (!ReadFixedPart(file, path, fixedPart)) {
        return nullptr;
    }
    const int count = ToInt(fixedPart.NumberOfSignals);
    Header header(new (std::nothrow) EDF_HEADER[static_cast<size_t>(count) + 1]());
    if (header == nullptr) {
        SetLastFailure(RAVO_ERROR_MEMORY, "%s: no memory for %d signals", path, count);
        return nullptr;
    }
    header[0] = fixedPart;
    EDF_SIGNSAL* signals = Signals(header.get());
    if (!ReadSignals(file, signals, count)) {
        SetLastFailure(RAVO_ERROR_FORMAT, "%s: ends within the header of %d signals", path, count);
        return nullptr;
    }
    TrimFields(header[0].DataFormat, kHeaderFieldWidths);
    for (int i = 0; i < count; ++i) {
        TrimFields(signals[i].Label, kSignalFieldWidths);
    }
    return header;
}

// ---- The converted record ----------------------------------------------------------------------

// The position of one signal's samples within a data record, and how many go into one frame.
struct SignalLayout {
    int64_t FirstSample;
    int SamplesPerRecord;
    int SamplesPerFrame;
};

struct RecordLayout {
    std::vector<SignalLayout> Signals;
    std::vector<SignalLayout> StoredSignals; // those signals that have samples in a frame
    int64_t SamplesPerRecord;                // of all signals
    int FramesPerRecord;
};

int DivideOrZero(int dividend, int divisor) {
    return divisor == 0 ? 0 : dividend / divisor;
}

RecordLayout LayOutRecord(EDF_HEADER* header, int frequency) {
    const int count = ToInt(header->NumberOfSignals);
    const int duration = ToInt(header->DurationOfEachDataRecordInSeconds);
    RecordLayout layout = {};
    layout.Signals.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        const int samples = SamplesPerRecord(Signals(header)[i]);
        const int samplesPerFrame = DivideOrZero(DivideOrZero(samples, duration), frequency);
        layout.Signals.push_back({layout.SamplesPerRecord, samples, samplesPerFrame});
        if (samplesPerFrame > 0) {
            layout.StoredSignals.push_back(layout.Signals.back());
        }
        layout.SamplesPerRecord += samples;
    }
    const SignalLayout& first = layout.Signals.front();
    layout.FramesPerRecord = DivideOrZero(first.SamplesPerRecord, first.SamplesPerFrame);
    return layout;
}

int CalcResolution(int range) {
    int resolution = 0;
    for (; range >= 2; range /= 2) {
        ++resolution;
    }
    return resolution;
}

void WriteRecordLine(FILE* file, const char* recordName, EDF_HEADER* header, int frequency) {
    const int64_t samples =
        int64_t{ToInt(header->NumberOfDataRecords)} * SamplesPerRecord(Signals(header)[0]);
    std::fprintf(file, "%s %d %d %d\n", recordName, ToInt(header->NumberOfSignals), frequency,
                 ToInt32(samples));
}

void WriteSignalLine(FILE* file, const char* recordName, const EDF_SIGNSAL& signal,
                     int samplesPerFrame) {
    const int digitalMaximum = ToInt(signal.DigitalMaximum);
    const int digitalMinimum = ToInt(signal.DigitalMinimum);
    const double physicalMaximum = ToDouble(signal.PhysicalMaximum);
    const double physicalMinimum = ToDouble(signal.PhysicalMinimum);
    const int range = digitalMaximum - digitalMinimum;
    const double gain = range / (physicalMaximum - physicalMinimum);
    const int adcZero = (digitalMaximum + 1 + digitalMinimum) / 2;
    // The added 1 gives a symmetric range a baseline of 1: the record is one unit too high.
    const int baseline = TruncateToInt32(digitalMaximum - physicalMaximum * gain + 1.0);

    std::fprintf(file, "%s.dat 16", recordName);
    if (samplesPerFrame > 1) {
        std::fprintf(file, "x%d", samplesPerFrame);
    }
    std::fprintf(file, " %.12g", gain);
    if (baseline != adcZero) {
        std::fprintf(file, "(%d)", baseline);
    }
    std::fprintf(file, "/%s %d %d 0 0 0 %s\n", FieldText(signal.PhysicalDimension).Text,
                 CalcResolution(range), adcZero, FieldText(signal.Label).Text);
}

void WriteHeaderFile(FILE* file, const char* recordName, EDF_HEADER* header, int frequency,
                     const RecordLayout& layout) {
    const ClassicLocale locale;
    WriteRecordLine(file, recordName, header, frequency);
    for (size_t i = 0; i < layout.Signals.size(); ++i) {
        WriteSignalLine(file, recordName, Signals(header)[i], layout.Signals[i].SamplesPerFrame);
    }
}

// The samples of one data record.  At most as many as the file can still supply: samples past its
// end are never read and count as 0.
class DataRecord {
  public:
    bool Allocate(FILE* file, int64_t samples) {
        struct stat status = {};
        const long position = std::ftell(file);
        if (position < 0 || fstat(fileno(file), &status) != 0) {
            return false;
        }
        m_unread = std::max<int64_t>(status.st_size - position, 0) / kBytesPerSample;
        m_size = std::min(samples, m_unread);
        m_bytes.reset(new (std::nothrow) unsigned char[ToBytes(m_size)]());
        return m_bytes != nullptr;
    }

    // Returns the number of samples read; the others keep the previous record's values.
    int64_t Read(FILE* file) {
        const auto wanted = static_cast<size_t>(std::min(m_size, m_unread));
        const auto count =
            static_cast<int64_t>(std::fread(m_bytes.get(), kBytesPerSample, wanted, file));
        m_unread -= count;
        return count;
    }

    // A sample of one signal as the file holds it; 0 beyond the signal's samples.
    const unsigned char* Sample(const SignalLayout& signal, int64_t index) const {
        static constexpr unsigned char kZero[kBytesPerSample] = {};
        const int64_t position = signal.FirstSample + index;
        const bool stored = index < signal.SamplesPerRecord && position < m_size;
        return stored ? &m_bytes[ToBytes(position)] : kZero;
    }

  private:
    static size_t ToBytes(int64_t samples) {
        return static_cast<size_t>(samples) * kBytesPerSample;
    }

    std::unique_ptr<unsigned char[]> m_bytes;
    int64_t m_size = 0;
    int64_t m_unread = 0;
};

// Flushed after every value, so that the file holds whole samples at any time.
bool WriteSample(FILE* file, const unsigned char* sample) {
    return std::fwrite(sample, kBytesPerSample, 1, file) == 1 && std::fflush(file) == 0;
}

// False when a value cannot be written.
bool WriteFrames(FILE* file, const DataRecord& record, const RecordLayout& layout) {
    for (int64_t frame = 0; frame < layout.FramesPerRecord; ++frame) {
        for (const SignalLayout& signal : layout.StoredSignals) {
            const int64_t firstOfFrame = frame * signal.SamplesPerFrame;
            for (int i = 0; i < signal.SamplesPerFrame; ++i) {
                if (!WriteSample(file, record.Sample(signal, firstOfFrame + i))) {
                    return false;
                }
            }
        }
    }
    return true;
}

struct OutputFiles {
    char RecordName[kRecordNameSize];
    char HeaderPath[kPathSize];
    char SignalPath[kPathSize];
};

// Ends at the first data record in which the last signal has no sample.
bool ConvertDataRecords(FILE* edf, FILE* signalFile, const RecordLayout& layout,
                        const OutputFiles& files) {
    DataRecord record;
    if (!record.Allocate(edf, layout.SamplesPerRecord)) {
        SetLastFailure(RAVO_ERROR_MEMORY, "%s: no memory for a data record of %lld samples",
                       files.RecordName, static_cast<long long>(layout.SamplesPerRecord));
        return false;
    }
    while (record.Read(edf) > layout.Signals.back().FirstSample) {
        if (!WriteFrames(signalFile, record, layout)) {
            SetWriteFailure(files.SignalPath, errno);
            return false;
        }
    }
    return true;
}

bool FormPath(const char* directory, char* recordName, const char* extension,
              char (&path)[kPathSize]) {
    char joined[kPathSize + kRecordNameSize + 1];
    if (std::strlen(directory) >= kPathSize) {
        return false;
    }
    std::strcpy(joined, directory);
    PathAppend(joined, recordName);
    const int length = std::snprintf(path, kPathSize, "%s%s", joined, extension);
    return length >= 0 && static_cast<size_t>(length) < kPathSize;
}

bool NameOutputFiles(const char* path, const char* directory, OutputFiles& files) {
    GetRecordName(path, files.RecordName);
    if (FormPath(directory, files.RecordName, ".hea", files.HeaderPath) &&
        FormPath(directory, files.RecordName, ".dat", files.SignalPath)) {
        return true;
    }
    SetLastFailure(RAVO_ERROR_ARGUMENT, "%s: too long for the path of a converted record",
                   directory);
    return false;
}

// The signal file is renamed first: a header marks a complete record.
bool RenameRecord(CFileInTheMaking& signals, CFileInTheMaking& header, OutputFiles& files) {
    if (!signals.Close() || !header.Close()) {
        return false;
    }
    DeleteFile(files.HeaderPath);
    return signals.Rename() && header.Rename();
}

bool WriteRecord(FILE* edf, EDF_HEADER* header, OutputFiles& files) {
    const int frequency = TruncateToInt32(CalcSamplingFrequency(header));
    const RecordLayout layout = LayOutRecord(header, frequency);
    CFileInTheMaking signalFile(files.SignalPath);
    CFileInTheMaking headerFile(files.HeaderPath);
    if (!signalFile.Create() || !headerFile.Create()) {
        return false;
    }
    WriteHeaderFile(headerFile.Get(), files.RecordName, header, frequency, layout);
    return ConvertDataRecords(edf, signalFile.Get(), layout, files) &&
           RenameRecord(signalFile, headerFile, files);
}

bool HasEDFExtension(const char* path) {
    const char* extension = PathFindExtension(path);
    return extension != nullptr && std::strcmp(extension, ".edf") == 0;
}

bool Convert(const char* path, const char* directory) {
    if (path == nullptr || directory == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no path or no directory is given");
        return false;
    }
    if (!HasEDFExtension(path)) {
        SetLastFailure(RAVO_ERROR_FORMAT, "%s: the name does not end in \".edf\"", path);
        return false;
    }
    OutputFiles files = {};
    const OwnedFile edf(OpenOrdinaryFile(path));
    if (edf == nullptr || !NameOutputFiles(path, directory, files)) {
        return false;
    }
    const Header header(ReadEDFHeader(edf.get(), path));
    return header != nullptr && WriteRecord(edf.get(), header.get(), files);
}

} // namespace

void TrimString(char* field, int width) {
    for (int i = width - 1; i >= 0 && field[i] == ' '; --i) {
        field[i] = '\0';
    }
}

EDF_HEADER* ReadHeader(FILE* file) {
    if (file == nullptr) {
        return nullptr;
    }
    return ReadEDFHeader(file, "EDF file").release();
}

double CalcSamplingFrequency(EDF_HEADER* header) {
    const ClassicLocale locale;
    const double duration = ToDouble(header->DurationOfEachDataRecordInSeconds);
    if (duration == 0.0) {
        return 0.0;
    }
    const EDF_SIGNSAL* signals = Signals(header);
    double frequency = SamplesPerRecord(signals[0]) / duration;
    for (int i = 1; i < ToInt(header->NumberOfSignals); ++i) {
        const double other = SamplesPerRecord(signals[i]) / duration;
        if (other != frequency) {
            frequency = gcd(frequency, other);
        }
    }
    return frequency;
}

int edf2mit(const char* path, const char* directory) {
    try {
        return Convert(path, directory) ? 1 : 0;
    } catch (const std::bad_alloc&) {
        SetLastFailure(RAVO_ERROR_MEMORY, "%s: no memory to convert it", path);
        return 0;
    }
}

int WFDBConvertEDF(const char* path, const char* directory) {
    return edf2mit(path, directory);
}
