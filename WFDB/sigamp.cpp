#include "WFDB/sigamp.h"

#include "platform/LastError.h"
#include "platform/Text.h"
#include "WFDB/Ownership.h"
#include "WFDB/signal.h"
#include "WFDB/stdafx.h"
#include "WFDB/Utils.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <string>
#include <vector>

int32_t g_nRunMax = 300;
int32_t g_nMovingWindowSize = 360;

const uint8_t wfdb_mp1[50] = {
    0,  1, 1, 1, 1, 5, 6, 1, 1, 1, // 0 to 9
    5,  1, 1, 1, 0, 0, 0, 0, 0, 0, // 10 to 19
    0,  0, 0, 0, 0, 1, 0, 0, 0, 0, // 20 to 29
    30, 5, 0, 0, 1, 1, 0, 0, 1, 0, // 30 to 39
    0,  5, 0, 0, 0, 0, 0, 0, 0, 0, // 40 to 49
};

namespace {

// A record that is being measured: its reader and room for one frame.
class Measurement {
  public:
    explicit Measurement(WFDB_HEADER* header)
        : m_header(header), m_handler(GetSignalHandler(header)), m_frame(SignalCount(header)) {}

    size_t Signals() const { return m_frame.size(); }
    const std::vector<int>& Frame() const { return m_frame; }

    bool ReadFrame() { return m_handler->NextSampleEx(m_header, m_frame.data(), 1) == 1; }

    bool SeekFrame(int64_t frame) {
        using Limits = std::numeric_limits<int>;
        return frame >= Limits::min() && frame <= Limits::max() &&
               m_handler->SeekEx(m_header, static_cast<int>(frame)) == 1;
    }

  private:
    WFDB_HEADER* m_header;
    const SIGNAL_HANDLER* m_handler;
    std::vector<int> m_frame;
};

bool IsMeasuredBeat(const WFDB_ANNOTATION& annotation) {
    return annotation.Type < std::size(wfdb_mp1) && wfdb_mp1[annotation.Type] == 1;
}

// Largest and smallest value of each signal over 1 + `steps` frames from `firstFrame` on, or over
// as many as the file still holds.  False when not even the first one can be read.
bool FindExtremes(Measurement& record, int64_t firstFrame, int64_t steps, std::vector<int>& highest,
                  std::vector<int>& lowest) {
    if (!record.SeekFrame(firstFrame) || !record.ReadFrame()) {
        return false;
    }
    highest = record.Frame();
    lowest = record.Frame();
    for (int64_t step = 0; step < steps && record.ReadFrame(); ++step) {
        for (size_t i = 0; i < record.Signals(); ++i) {
            highest[i] = std::max(highest[i], record.Frame()[i]);
            lowest[i] = std::min(lowest[i], record.Frame()[i]);
        }
    }
    return true;
}

// Adds up one whole window from the file's current position and keeps its first frame.
bool SumWindow(Measurement& record, std::vector<double>& sum, std::vector<double>& first) {
    if (!record.ReadFrame()) {
        return false;
    }
    first.assign(record.Frame().begin(), record.Frame().end());
    sum = first;
    for (int32_t count = 1; count < g_nMovingWindowSize; ++count) {
        if (!record.ReadFrame()) {
            return false;
        }
        for (size_t i = 0; i < record.Signals(); ++i) {
            sum[i] += record.Frame()[i];
        }
    }
    return true;
}

void AddSquaredDeviations(const Measurement& record, const std::vector<double>& mean,
                          std::vector<double>& squares) {
    for (size_t i = 0; i < record.Signals(); ++i) {
        const double deviation = std::trunc(record.Frame()[i] - mean[i]);
        squares[i] += deviation * deviation;
    }
}

// Reads the window at `start` a second time and adds up the squared deviations from its mean.
// Where the second pass reads different values (after an odd number of packed samples), the mean is
// shifted by the difference of the first frames.
bool SumSquares(Measurement& record, int64_t start, const std::vector<double>& sum,
                const std::vector<double>& first, std::vector<double>& squares) {
    if (!record.SeekFrame(start) || !record.ReadFrame()) {
        return false;
    }
    std::vector<double> mean(record.Signals());
    for (size_t i = 0; i < record.Signals(); ++i) {
        mean[i] = sum[i] / g_nMovingWindowSize + record.Frame()[i] - first[i];
    }
    squares.assign(record.Signals(), 0.0);
    AddSquaredDeviations(record, mean, squares);
    for (int32_t count = 1; count < g_nMovingWindowSize && record.ReadFrame(); ++count) {
        AddSquaredDeviations(record, mean, squares);
    }
    return true;
}

// The mean of a sorted row without its lowest and highest twentieth, cut to five decimals.  Values
// that were never measured are part of it as zeros, which lowers the result of a short record; the
// noise stress test's levels are defined by that.
double TrimmedMean(const double* sorted) {
    const int32_t low = g_nRunMax / 20;
    const int32_t high = g_nRunMax - low;
    double sum = 0.0;
    for (int32_t k = low; k < high; ++k) {
        sum += sorted[k];
    }
    return TruncateToInt32(sum / (high - low) * 100000) / 100000.0;
}

void MeasureSignals(WFDB_HEADER* header, double* amplitudes) {
    const CKeepLastFailure keep; // the annotations end
    const size_t signals = SignalCount(header);
    const auto measurements = static_cast<size_t>(g_nRunMax);
    std::vector<double> values(signals * measurements);
    std::vector<double*> rows;
    for (size_t i = 0; i < signals; ++i) {
        rows.push_back(&values[i * measurements]);
    }
    if (GetAnnotationFile(header) != nullptr) {
        sigamp_p2p(header, rows.data());
    } else {
        sigamp_rms(header, rows.data());
    }
    for (size_t i = 0; i < signals; ++i) {
        std::qsort(rows[i], measurements, sizeof(double), AmplitudeCompare);
        amplitudes[i] = TrimmedMean(rows[i]);
    }
}

OwnedRecord OpenRecord(const char* path) {
    char recordName[kRecordNameSize];
    char directory[256];
    GetRecordName(path, recordName);
    GetPathName(path, directory);
    const std::string prefix = std::string(directory) + "/";

    OwnedRecord record(WFDBReadHeader((prefix + recordName + ".hea").data()));
    if (record == nullptr || WFDBLoadSignal(directory, record.get()) == 0) {
        return nullptr;
    }
    const CKeepLastFailure keep; // a record may have no annotations
    WFDBLoadAnnotation((prefix + record->RecordName + ".atr").c_str(), record.get());
    return record;
}

// False when a measurement lacks its source or the destination of its result, which is null until
// then.
bool PrepareResult(const void* source, double** out) {
    if (out != nullptr) {
        *out = nullptr;
    }
    if (source == nullptr || out == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no record, or no place for its amplitudes, is given");
        return false;
    }
    return true;
}

int NoMemory() {
    SetLastFailure(RAVO_ERROR_MEMORY, "no memory to measure amplitudes");
    return 0;
}

} // namespace

void sigamp_p2p(WFDB_HEADER* header, double** amp) {
    if (IsReadableHeader(header) == 0) {
        return;
    }
    Measurement record(header);
    std::vector<int> highest;
    std::vector<int> lowest;
    const int64_t before = TruncateToInt32(static_cast<double>(header->SamplingFrequency) * -0.05);
    const int64_t after = -before;

    WFDBAnnotationSeekBegin(header);
    WFDB_ANNOTATION annotation;
    int32_t beat = 0;
    while (beat < g_nRunMax && WFDBNextAnnotation(header, &annotation) == 1) {
        if (!IsMeasuredBeat(annotation)) {
            continue;
        }
        if (!FindExtremes(record, annotation.Time + before, after - before, highest, lowest)) {
            return;
        }
        for (size_t i = 0; i < record.Signals(); ++i) {
            amp[i][beat] = static_cast<double>(highest[i]) - lowest[i];
        }
        ++beat;
    }
}

void sigamp_rms(WFDB_HEADER* header, double** amp) {
    if (IsReadableHeader(header) == 0 || g_nMovingWindowSize < 1) {
        return;
    }
    Measurement record(header);
    std::vector<double> sum;
    std::vector<double> first;
    std::vector<double> squares;
    int64_t start = 0;
    for (int32_t window = 0; window < g_nRunMax; ++window) {
        if (!SumWindow(record, sum, first) || !SumSquares(record, start, sum, first, squares)) {
            return;
        }
        for (size_t i = 0; i < record.Signals(); ++i) {
            amp[i][window] = std::sqrt(squares[i] / g_nMovingWindowSize);
        }
        start += g_nMovingWindowSize;
    }
}

int AmplitudeCompare(const void* left, const void* right) {
    const double a = *static_cast<const double*>(left);
    const double b = *static_cast<const double*>(right);
    if (a > b) {
        return 1;
    }
    return a < b ? -1 : 0;
}

int sigamp(WFDB_HEADER* header, double** out) {
    if (!PrepareResult(header, out)) {
        return 0;
    }
    const size_t signals = SignalCount(header);
    OwnedArray<double> amplitudes(
        static_cast<double*>(std::calloc(std::max<size_t>(signals, 1), sizeof(double))));
    if (amplitudes == nullptr) {
        return NoMemory();
    }
    try {
        if (signals > 0 && g_nRunMax > 0) {
            MeasureSignals(header, amplitudes.get());
        }
    } catch (const std::exception&) {
        return NoMemory();
    }
    if (signals == 0) {
        SetLastFailure(RAVO_ERROR_UNSUPPORTED, "record %.255s has no signal in a \".dat\" file",
                       header->RecordName);
    }
    *out = amplitudes.release();
    return static_cast<int>(signals);
}

int sigamp(const char* path, double** out) {
    if (!PrepareResult(path, out)) {
        return 0;
    }
    try {
        const OwnedRecord record = OpenRecord(path);
        return record == nullptr ? 0 : sigamp(record.get(), out);
    } catch (const std::exception&) {
        return NoMemory();
    }
}

double* WFDBSignalAmplitude(WFDB_HEADER* header, int* count) {
    double* amplitudes = nullptr;
    const int signals = sigamp(header, &amplitudes);
    if (count != nullptr) {
        *count = signals;
    }
    return amplitudes;
}

double* WFDBSignalAmplitudeEx(char* path, int* count) {
    double* amplitudes = nullptr;
    const int signals = sigamp(path, &amplitudes);
    if (count != nullptr) {
        *count = signals;
    }
    return amplitudes;
}
