#include "WFDB/nst.h"

#include "platform/ConstructionOrder.h"
#include "platform/LastError.h"
#include "platform/Text.h"
#include "WFDB/Ownership.h"
#include "WFDB/signal.h"
#include "WFDB/stdafx.h"
#include "WFDB/Utils.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <sys/stat.h>
#include <utility>

RAVO_CONSTRUCT_RECORD_LIBRARY std::string g_strSignalFilePath;
RAVO_CONSTRUCT_RECORD_LIBRARY std::string g_strOutputFilePath;
RAVO_CONSTRUCT_RECORD_LIBRARY std::vector<NOISE_ITEM> g_vecNoiseItem;

namespace {

constexpr int kSuccess = 0;
constexpr int kRecordNotLoaded = -4;
constexpr int kOutputNotCreated = -8;

constexpr uint32_t kLeadInSeconds = 300;
constexpr uint32_t kSegmentSeconds = 120;

constexpr double kRootOfTwo = 1.4142135623730951;

// In 32-bit arithmetic, which wraps for frequencies that no record has.
int32_t FramesIn(const WFDB_HEADER* signal, uint32_t seconds) {
    return static_cast<int32_t>(static_cast<uint32_t>(signal->SamplingFrequency) * seconds);
}

// ---- Loading ----

std::string HeaderPathOf(const char* path) {
    std::string headerPath = path;
    if (headerPath.find(".hea") == std::string::npos) {
        headerPath += ".hea";
    }
    return headerPath;
}

OwnedRecord ReadHeader(const char* path) {
    return OwnedRecord(WFDBReadHeader(HeaderPathOf(path).data()));
}

std::string DirectoryOf(const char* path) {
    char directory[256];
    GetPathName(path, directory);
    return directory;
}

// Closes the noise records of a run, however it ends.
class NoiseRecordsCloser {
  public:
    explicit NoiseRecordsCloser(std::vector<NOISE_ITEM>& noise) : m_noise(noise) {}
    NoiseRecordsCloser(const NoiseRecordsCloser&) = delete;
    NoiseRecordsCloser& operator=(const NoiseRecordsCloser&) = delete;

    ~NoiseRecordsCloser() {
        for (NOISE_ITEM& item : m_noise) {
            WFDBFreeHeader(item.WFDBHeader);
            item.WFDBHeader = nullptr;
        }
    }

  private:
    std::vector<NOISE_ITEM>& m_noise;
};

// Growing keeps the existing values: EffectiveRatio begins a later run with the value that the
// previous run left.  A test that is repeated without NSTResetNoise can therefore have a noisy
// lead-in and reversed segments.
void SizeNoiseItem(NOISE_ITEM& item, size_t outputs) {
    item.EffectiveRatio.resize(outputs);
    item.Output.resize(outputs);
    item.Noise.resize(SignalCount(item.WFDBHeader));
}

NST_FRAME NewFrame(size_t outputs) {
    return {std::vector<double>(outputs), std::vector<int32_t>(outputs),
            std::vector<int32_t>(outputs)};
}

// ---- Mixing ----

// The noise for output signal i; the signals of a noise record are taken in turn.
double ScaledNoise(const NOISE_ITEM& item, size_t i) {
    return item.Noise.empty() ? 0.0 : item.EffectiveRatio[i] * item.Noise[i % item.Noise.size()];
}

double ScaledNoise(const std::vector<NOISE_ITEM>& noise, size_t i) {
    double sum = 0.0;
    for (const NOISE_ITEM& item : noise) {
        sum += ScaledNoise(item, i);
    }
    return sum;
}

bool ReadNoise(NOISE_ITEM& item) {
    return GetNextSampleWithoutDAC(item.WFDBHeader, item.Noise.data()) == 1;
}

bool ReadNoiseFromStart(NOISE_ITEM& item) {
    WFDBSeek(item.WFDBHeader, 0);
    return ReadNoise(item);
}

template <typename Noise>
void MixFrame(const WFDB_HEADER* signal, const Noise& noise, NST_FRAME& frame) {
    for (size_t i = 0; i < frame.Output.size(); ++i) {
        frame.Signal[i] -= signal->Signal[i].ADCBaseLine;
        frame.Output[i] =
            TruncateToInt32(frame.Signal[i] + ScaledNoise(noise, i) - frame.Offset[i]);
    }
}

// Packs the first two output signals, 12 bits each, into three bytes.  A record with one signal
// has 0 in the second place.
void WriteFrame(FILE* file, const NST_FRAME& frame) {
    const auto first = static_cast<uint32_t>(frame.Output[0]);
    const auto second = frame.Output.size() > 1 ? static_cast<uint32_t>(frame.Output[1]) : 0U;
    const uint8_t packed[] = {
        static_cast<uint8_t>(first),
        static_cast<uint8_t>((first >> 8 & 0x0F) | (second >> 4 & 0xF0)),
        static_cast<uint8_t>(second),
    };
    fwrite_unlocked(packed, 1, sizeof(packed), file);
}

// Turns noise that is off on, and noise that is on off, and sets the offsets so that the next
// segment continues from the last value.
void SwitchNoise(std::vector<NOISE_ITEM>& noise, NST_FRAME& frame) {
    for (size_t i = 0; i < frame.Output.size(); ++i) {
        for (NOISE_ITEM& item : noise) {
            item.EffectiveRatio[i] = item.Ratio[i] - item.EffectiveRatio[i];
        }
        frame.Offset[i] =
            TruncateToInt32(frame.Signal[i] + ScaledNoise(noise, i) - frame.Output[i]);
    }
}

// Five minutes clean, then two minutes with noise and two without in turn, until the signal ends.
// A signal that ends within the lead-in also ends the first segment, but only after the switch.
template <typename WriteFrames>
void WriteSegments(const WFDB_HEADER* signal, std::vector<NOISE_ITEM>& noise, NST_FRAME& frame,
                   WriteFrames writeFrames) {
    const int32_t segmentFrames = FramesIn(signal, kSegmentSeconds);
    writeFrames(FramesIn(signal, kLeadInSeconds));
    do {
        SwitchNoise(noise, frame);
    } while (segmentFrames > 0 && writeFrames(segmentFrames) == 1);
}

// ---- The header of the mixed record ----

// The signal record's count and converter zero are kept although the data file holds two signals
// whose baseline is 0: the mixed record is described as a variant of the signal record.
void WriteHeader(const std::string& outputPath, const WFDB_HEADER* signal) {
    const CKeepLastFailure keep; // not checked
    const OwnedFile file = CreateOrdinaryFile((outputPath + ".hea").c_str());
    if (file == nullptr) {
        return;
    }
    const ClassicLocale locale;
    char recordName[kRecordNameSize];
    GetRecordName(outputPath.c_str(), recordName);
    std::fprintf(file.get(), "%s %ld %ld %ld\n", recordName,
                 static_cast<long>(signal->NumberOfSignals),
                 static_cast<long>(signal->SamplingFrequency),
                 static_cast<long>(signal->NumberOfSamplesPerSignal));
    for (size_t i = 0; i < SignalCount(signal); ++i) {
        const WFDB_SIGNAL& line = signal->Signal[i];
        std::fprintf(file.get(), "%s.dat 212 %.12g %d %d 0 0 0 %s\n", recordName, line.ADCGain,
                     line.ADCResolution, line.ADCZero, line.Description);
    }
}

// ---- The two runs ----

OwnedFile CreateDataFile(const std::string& outputPath) {
    return CreateOrdinaryFile((outputPath + ".dat").c_str());
}

bool IsSameFile(const std::string& left, const std::string& right) {
    struct stat a = {};
    struct stat b = {};
    return stat(left.c_str(), &a) == 0 && stat(right.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

bool IsFileOf(const std::string& file, const char* recordPath, const WFDB_HEADER* record) {
    return IsSameFile(file, HeaderPathOf(recordPath)) ||
           IsSameFile(file, DirectoryOf(recordPath) + "/" + record->Signal[0].FileName);
}

// Whether writing to `outputPath` would empty a file of the record, which the test still reads.
bool WouldOverwrite(const std::string& outputPath, const char* recordPath,
                    const WFDB_HEADER* record) {
    for (const char* extension : {".dat", ".hea"}) {
        const std::string file = outputPath + extension;
        if (IsFileOf(file, recordPath, record)) {
            SetLastFailure(RAVO_ERROR_ARGUMENT, "%s: the output is a file of the record %s",
                           file.c_str(), recordPath);
            return true;
        }
    }
    return false;
}

bool WouldOverwriteSource(const WFDB_HEADER* signal) {
    return WouldOverwrite(g_strOutputFilePath, g_strSignalFilePath.c_str(), signal) ||
           std::any_of(g_vecNoiseItem.begin(), g_vecNoiseItem.end(), [](const NOISE_ITEM& item) {
               return WouldOverwrite(g_strOutputFilePath, item.NoiseFilePath.c_str(),
                                     item.WFDBHeader);
           });
}

int RunConfiguredTest() {
    const NoiseRecordsCloser closer(g_vecNoiseItem);
    const OwnedRecord signal(DoProcessNSTLoadSingal(g_strSignalFilePath.c_str()));
    if (signal == nullptr) {
        return kRecordNotLoaded;
    }
    for (NOISE_ITEM& item : g_vecNoiseItem) {
        item.WFDBHeader = DoProcessNSTLoadNoise(item.NoiseFilePath.c_str());
        if (item.WFDBHeader == nullptr) {
            return kRecordNotLoaded;
        }
    }
    if (WouldOverwriteSource(signal.get())) {
        return kOutputNotCreated;
    }
    NST_FRAME frame = NewFrame(SignalCount(signal.get()));
    for (NOISE_ITEM& item : g_vecNoiseItem) {
        DoProcessNSTGetNoiseRatio(signal.get(), item);
        SizeNoiseItem(item, frame.Output.size());
    }
    OwnedFile file = CreateDataFile(g_strOutputFilePath);
    if (file == nullptr) {
        return kOutputNotCreated;
    }
    WriteSegments(signal.get(), g_vecNoiseItem, frame, [&](int32_t frames) {
        return DoProcessNSTAddNoise(file.get(), signal.get(), g_vecNoiseItem, frame, frames);
    });
    if (!CloseWritten(std::move(file), (g_strOutputFilePath + ".dat").c_str())) {
        return kOutputNotCreated;
    }
    WriteHeader(g_strOutputFilePath, signal.get());
    return kSuccess;
}

// Differs from the configured test in three points: the frames begin where the measurement left
// both files, an output that cannot be created is not a failure, and the output jumps where the
// noise record is repeated.
int RunSingleTest(const char* signalPath, const char* noisePath, const std::string& outputPath,
                  double snr) {
    std::vector<NOISE_ITEM> noise(1);
    const NoiseRecordsCloser closer(noise);
    NOISE_ITEM& item = noise.front();
    const OwnedRecord signal(DoProcessNSTLoadSingal(signalPath));
    item.WFDBHeader = DoProcessNSTLoadNoise(noisePath);
    if (signal == nullptr || item.WFDBHeader == nullptr) {
        return kRecordNotLoaded;
    }
    if (WouldOverwrite(outputPath, signalPath, signal.get()) ||
        WouldOverwrite(outputPath, noisePath, item.WFDBHeader)) {
        return kOutputNotCreated;
    }
    NST_FRAME frame = NewFrame(SignalCount(signal.get()));
    SizeNoiseItem(item, frame.Output.size());
    const OwnedArray<double> ratio(DoProcessNSTGetNoiseRatio(signal.get(), item.WFDBHeader, snr));
    if (ratio == nullptr) {
        return kRecordNotLoaded;
    }
    item.Ratio.assign(ratio.get(), ratio.get() + frame.Output.size());
    const Failure earlier = LastFailure();
    OwnedFile file = CreateDataFile(outputPath);
    if (file == nullptr) {
        SetLastFailure(earlier);
        return kSuccess;
    }
    WriteSegments(signal.get(), noise, frame, [&](int32_t frames) {
        return DoProcessNSTAddNoise(file.get(), signal.get(), item, frame, frames);
    });
    if (!CloseWritten(std::move(file), (outputPath + ".dat").c_str())) {
        return kOutputNotCreated;
    }
    WriteHeader(outputPath, signal.get());
    return kSuccess;
}

// A text from a host, which may be null.
const char* TextOf(const char* text) {
    return text == nullptr ? "" : text;
}

} // namespace

bool IsNoiseTestConfigured() {
    return !g_strSignalFilePath.empty() && !g_strOutputFilePath.empty() && !g_vecNoiseItem.empty();
}

WFDB_HEADER* DoProcessNSTLoadSingal(const char* path) {
    OwnedRecord record = ReadHeader(path);
    const std::string directory = DirectoryOf(path);
    if (record == nullptr || WFDBLoadSignal(directory.c_str(), record.get()) == 0) {
        return nullptr;
    }
    const std::string annotationPath = directory + "/" + record->RecordName + ".atr";
    const CKeepLastFailure keep; // a record may have no annotations
    WFDBLoadAnnotation(annotationPath.c_str(), record.get());
    return record.release();
}

WFDB_HEADER* DoProcessNSTLoadNoise(const char* path) {
    OwnedRecord record = ReadHeader(path);
    if (record == nullptr) {
        return nullptr;
    }
    // A record without signals has no file to open.  Like a record in an unreadable format, it
    // counts as loaded and ends the output at the first frame.
    const bool isEmpty = record->NumberOfSignals < 1;
    if (!isEmpty && WFDBLoadSignal(DirectoryOf(path).c_str(), record.get()) == 0) {
        return nullptr;
    }
    return record.release();
}

void DoProcessNSTGetNoiseRatio(WFDB_HEADER* signal, NOISE_ITEM& item) {
    const OwnedArray<double> ratio(
        DoProcessNSTGetNoiseRatio(signal, item.WFDBHeader, item.SignalNoiseRatio));
    item.Ratio.resize(SignalCount(signal));
    if (ratio != nullptr) {
        std::copy_n(ratio.get(), item.Ratio.size(), item.Ratio.begin());
    }
    WFDBSeek(signal, 0);
    WFDBSeek(item.WFDBHeader, 0);
}

double* DoProcessNSTGetNoiseRatio(WFDB_HEADER* signal, WFDB_HEADER* noise, double snr) {
    WFDBSeek(signal, 0);
    WFDBSeek(noise, 0);
    const OwnedArray<double> signalAmplitude(WFDBSignalAmplitude(signal, nullptr));
    const OwnedArray<double> noiseAmplitude(WFDBSignalAmplitude(noise, nullptr));
    const size_t outputs = SignalCount(signal);
    const size_t noiseSignals = SignalCount(noise);
    OwnedArray<double> ratio(
        static_cast<double*>(std::calloc(std::max<size_t>(outputs, 1), sizeof(double))));
    if (signalAmplitude == nullptr || noiseAmplitude == nullptr || ratio == nullptr) {
        SetLastFailure(RAVO_ERROR_MEMORY, "no memory to measure amplitudes");
        return nullptr;
    }
    // A quarter of the peak-to-peak amplitude times the root of two is the RMS of a sine of half
    // that height.
    const double scale = std::pow(10.0, -snr / 20.0) * kRootOfTwo / 4.0;
    for (size_t i = 0; i < outputs && noiseSignals > 0; ++i) {
        // Silent noise makes this infinite or not a number; the conversions below allow that.
        ratio[i] = signalAmplitude[i] * scale / noiseAmplitude[i % noiseSignals];
    }
    return ratio.release();
}

int DoProcessNSTAddNoise(FILE* file, WFDB_HEADER* signal, std::vector<NOISE_ITEM>& noise,
                         NST_FRAME& frame, int32_t frames) {
    for (int32_t written = 0; written < frames; ++written) {
        if (GetNextSampleWithoutDAC(signal, frame.Signal.data()) != 1) {
            return 0;
        }
        for (NOISE_ITEM& item : noise) {
            if (!ReadNoise(item) && !ReadNoiseFromStart(item)) {
                return 0;
            }
        }
        MixFrame(signal, noise, frame);
        WriteFrame(file, frame);
    }
    return 1;
}

int DoProcessNSTAddNoise(FILE* file, WFDB_HEADER* signal, NOISE_ITEM& noise, NST_FRAME& frame,
                         int32_t frames) {
    for (int32_t written = 0; written < frames; ++written) {
        if (GetNextSampleWithoutDAC(signal, frame.Signal.data()) != 1) {
            return 0;
        }
        if (!ReadNoise(noise)) {
            if (!ReadNoiseFromStart(noise)) {
                return 0;
            }
            // The baseline is still part of the signal here, so the frame comes out as the last
            // value less the baseline: one of the differences that are kept.
            for (size_t i = 0; i < frame.Output.size(); ++i) {
                frame.Offset[i] =
                    TruncateToInt32(frame.Signal[i] + ScaledNoise(noise, i) - frame.Output[i]);
            }
        }
        MixFrame(signal, noise, frame);
        WriteFrame(file, frame);
    }
    return 1;
}

int nst() {
    try {
        return RunConfiguredTest();
    } catch (const std::exception&) {
        SetLastFailure(RAVO_ERROR_MEMORY, "no memory for a noise stress test");
        return kRecordNotLoaded;
    }
}

int nst(char* signal, char* noise, char* output, double snr) {
    try {
        return RunSingleTest(TextOf(signal), TextOf(noise), TextOf(output), snr);
    } catch (const std::exception&) {
        SetLastFailure(RAVO_ERROR_MEMORY, "no memory for a noise stress test");
        return kRecordNotLoaded;
    }
}

void NSTSetSignal(const char* path) {
    try {
        g_strSignalFilePath = TextOf(path);
    } catch (const std::exception&) {
        g_strSignalFilePath.clear();
    }
}

void NSTAddNoise(const char* path, double snr) {
    try {
        g_vecNoiseItem.push_back({TextOf(path), snr, nullptr, {}, {}, {}, {}});
    } catch (const std::exception&) {
        // The list stays unchanged; this function has no result that could report the failure.
        return;
    }
}

void NSTResetNoise(void) {
    g_vecNoiseItem.clear();
}

int NSTOutput(const char* path) {
    try {
        g_strOutputFilePath = TextOf(path);
    } catch (const std::exception&) {
        g_strOutputFilePath.clear();
    }
    return IsNoiseTestConfigured() ? nst() : kSuccess;
}

void WFDBNoiseTestExSetSignal(char* path) {
    NSTSetSignal(path);
}

void WFDBNoiseTestExAddNoise(char* path, double snr) {
    NSTAddNoise(path, snr);
}

void WFDBNoiseTestExResetNoise(void) {
    NSTResetNoise();
}

int WFDBNoiseTestExOutput(char* path) {
    return NSTOutput(path) == kSuccess ? 1 : 0;
}

// 0 means success here; the exported declaration documents it.
int WFDBNoiseTest(char* signal, char* noise, char* output, int snr) {
    NSTSetSignal(signal);
    NSTResetNoise();
    NSTAddNoise(noise, snr);
    return WFDBNoiseTestExOutput(output) == 1 ? 0 : 1;
}
