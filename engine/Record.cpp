#include "engine/Record.h"

#include "device/Calibration.h"
#include "device/Protocol.h"
#include "platform/ConstructionOrder.h"
#include "platform/LastError.h"
#include "platform/Memory.h"
#include "platform/SharedValue.h"
#include "platform/Text.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

int32_t g_WaveformType = WAVEFORM_TYPE_NONE;
int32_t g_NoiseOn = 0;
uint64_t g_nNoiseCurrent = 0;
int32_t g_NoiseData[kNoiseSamples] = {};
ECG_HEADER* g_pECGHeader = nullptr;
int32_t g_ECGMappingLead[8] = {};
double** g_pECGData = nullptr;
int32_t g_iECGSignalNumber = 0;
uint64_t g_nSampleCount = 0;
uint32_t g_nSampleRate = 0;
double g_fVoltageRange = 5.0;
int32_t g_bPlayLoop = 0;

RAVO_CONSTRUCT_MATERIAL CSimpleCriticalSection g_CriticalSection;
MaterialRelease g_MaterialRelease = MaterialRelease::kUnlocked;

namespace {

// Releases what is still loaded when the library goes.  Destroyed after the engine's own releaser,
// which empties the buffer once no thread reads it any more.  A thread that has been kept out
// meanwhile finds nothing loaded.
struct MaterialReleaser {
    MaterialReleaser() = default;
    MaterialReleaser(const MaterialReleaser&) = delete;
    MaterialReleaser& operator=(const MaterialReleaser&) = delete;
    ~MaterialReleaser() {
        if (g_MaterialRelease == MaterialRelease::kNever) {
            return;
        }
        FreeECGDataBuffer();
        std::free(std::exchange(g_pECGData, nullptr));
        ReplaceECGHeader(nullptr);
        if (g_MaterialRelease == MaterialRelease::kLocked) {
            g_CriticalSection.Unlock();
        }
    }
};

RAVO_CONSTRUCT_MATERIAL MaterialReleaser g_materialReleaser;

// The descriptions that public databases use for their signals.  Blanks and plus signs are part
// of the text.  "ECG0" and "ECG" feed lead II, "ECG1" feeds lead I, "ML5" feeds V5: that is how
// the databases concerned arrange their leads.
struct LeadName {
    const char* text;
    ECG_Lead lead;
};

constexpr LeadName kLeadNames[] = {
    {"ECG0", ECG_LEAD_II},
    {"ECG 1", ECG_LEAD_I},
    {"ECG1", ECG_LEAD_I},
    {"ECG 2", ECG_LEAD_II},
    {"ECG2", ECG_LEAD_II},
    {"ECG", ECG_LEAD_II},
    {"ECG [ECG1]", ECG_LEAD_I},
    {"ECG I", ECG_LEAD_I},
    {"ECG II", ECG_LEAD_II},
    {"ECG lead 1", ECG_LEAD_I},
    {"ECG lead 2", ECG_LEAD_II},
    {"ECG lead I", ECG_LEAD_I},
    {"ECG Lead I", ECG_LEAD_I},
    {"ECG lead II ", ECG_LEAD_II},
    {"ECG Lead II", ECG_LEAD_II},
    {"ECG LeadII", ECG_LEAD_II},
    {"ECG Lead V3", ECG_LEAD_V3},
    {"ECG Lead V4", ECG_LEAD_V4},
    {"ECG lead V5", ECG_LEAD_V5},
    {"ECG Lead V5", ECG_LEAD_V5},
    {"ECG lead V6", ECG_LEAD_V6},
    {"ECG lead V", ECG_LEAD_V1},
    {"ECG Lead V ", ECG_LEAD_V1},
    {"ECG Lead V", ECG_LEAD_V1},
    {"ECG signal 0", ECG_LEAD_I},
    {"ECG signal 1", ECG_LEAD_II},
    {"ECG V1", ECG_LEAD_V1},
    {"ECG V2", ECG_LEAD_V2},
    {"ECG V3", ECG_LEAD_V3},
    {"ECG V4", ECG_LEAD_V4},
    {"ECG V5", ECG_LEAD_V5},
    {"ECG V6", ECG_LEAD_V6},
    {"ECG V", ECG_LEAD_V1},
    {"ECG V Lead", ECG_LEAD_V1},
    {"i", ECG_LEAD_I},
    {"I ", ECG_LEAD_I},
    {"I+", ECG_LEAD_I},
    {"I", ECG_LEAD_I},
    {"ii", ECG_LEAD_II},
    {"II ", ECG_LEAD_II},
    {"II+", ECG_LEAD_II},
    {"II", ECG_LEAD_II},
    {"lead I", ECG_LEAD_I},
    {"lead II", ECG_LEAD_II},
    {"lead V", ECG_LEAD_V1},
    {"MCL1 ", ECG_LEAD_I},
    {"MCL1+", ECG_LEAD_I},
    {"MCL1", ECG_LEAD_I},
    {"ML2", ECG_LEAD_II},
    {"ML5", ECG_LEAD_V5},
    {"MLI", ECG_LEAD_I},
    {"MLII", ECG_LEAD_II},
    {"mod.V1", ECG_LEAD_V1},
    {"MV2 ", ECG_LEAD_V2},
    {"MV2", ECG_LEAD_V2},
    {"ST1", ECG_LEAD_I},
    {"ST2", ECG_LEAD_II},
    {"ST I_1/2", ECG_LEAD_I},
    {"ST I_1/3", ECG_LEAD_I},
    {"ST I_2/2", ECG_LEAD_I},
    {"ST I_2/3", ECG_LEAD_I},
    {"ST I_3/3", ECG_LEAD_I},
    {"ST_I", ECG_LEAD_I},
    {"ST II_1/2", ECG_LEAD_II},
    {"ST II_1/3", ECG_LEAD_II},
    {"ST II_2/3", ECG_LEAD_II},
    {"ST II_3/3", ECG_LEAD_II},
    {"ST_II", ECG_LEAD_II},
    {"ST V_1/2", ECG_LEAD_V1},
    {"ST V_1/3", ECG_LEAD_V1},
    {"ST V_2/2", ECG_LEAD_V1},
    {"ST V_2/3", ECG_LEAD_V1},
    {"ST V_3/3", ECG_LEAD_V1},
    {"v1", ECG_LEAD_V1},
    {"V1", ECG_LEAD_V1},
    {"V1-V2", ECG_LEAD_V1},
    {"v2", ECG_LEAD_V2},
    {"V2", ECG_LEAD_V2},
    {"V2-V3", ECG_LEAD_V2},
    {"v3", ECG_LEAD_V3},
    {"V3", ECG_LEAD_V3},
    {"v4", ECG_LEAD_V4},
    {"V4", ECG_LEAD_V4},
    {"V4-V5", ECG_LEAD_V4},
    {"v5", ECG_LEAD_V5},
    {"V5", ECG_LEAD_V5},
    {"v6", ECG_LEAD_V6},
    {"V6", ECG_LEAD_V6},
    {"V ", ECG_LEAD_V1},
    {"V+", ECG_LEAD_V1},
    {"V", ECG_LEAD_V1},
    {"Thorax_1", ECG_LEAD_I},
    {"Thorax_2", ECG_LEAD_II},
    {"Abdomen_1", ECG_LEAD_V1},
    {"Abdomen_2", ECG_LEAD_V2},
    {"Abdomen_3", ECG_LEAD_V3},
    {"Abdomen_4", ECG_LEAD_V4},
};

// Signals that play as AHA material; it has no chest leads.
constexpr int kAHASignals = 2;

constexpr int kAHASamplingFrequency = 250;

// Signals of material that carries all output leads, in the order of the leads.
constexpr const char* kAllChannelNames[kOutputLeads] = {"ECG 1",  "ECG 2",  "ECG V1", "ECG V2",
                                                        "ECG V3", "ECG V4", "ECG V5", "ECG V6"};

// What one array costs beside its samples: its slot in the table and the allocator's own block.
constexpr uint64_t kArrayOverhead = 32;

// The memory that the machine has for each of so many arrays.  An overcommitting system grants far
// more than it has and kills the process when the samples arrive, so more is refused here.
uint64_t MemoryPerArray(int64_t arrays) {
    return PhysicalMemory() / static_cast<uint64_t>(arrays);
}

double** NewSignalTable(int slots) {
    if (MemoryPerArray(slots) <= kArrayOverhead) {
        return nullptr;
    }
    return static_cast<double**>(std::calloc(static_cast<size_t>(slots), sizeof(double*)));
}

double* NewSamples(uint64_t count) {
    return static_cast<double*>(std::calloc(count, sizeof(double)));
}

int NoMemoryForSamples() {
    SetLastFailure(RAVO_ERROR_MEMORY, "no memory for %d signals of %llu samples",
                   g_iECGSignalNumber, static_cast<unsigned long long>(g_nSampleCount));
    return 0;
}

bool IsAllocatedUpTo(int signals) {
    for (int i = 0; i < signals; ++i) {
        if (GetECGSignal(i) == nullptr) {
            return false;
        }
    }
    return true;
}

bool PlaysThroughMapping(int32_t type) {
    return type == WAVEFORM_TYPE_MIT || type == WAVEFORM_TYPE_EDF_FOUR_CHEST ||
           type == WAVEFORM_TYPE_EDF;
}

// Index 8, the number of ECG_LEAD_NONE, counts as not mapped like -1: a record of which only the
// ninth signal feeds leads is refused.
bool IsMapped(int32_t signal) {
    return signal >= 0 && signal < g_iECGSignalNumber && signal != ECG_LEAD_NONE;
}

void DeleteBlock(ECG_HEADER* header) {
    delete[] reinterpret_cast<unsigned char*>(header);
}

ECG_HEADER* NewNamedHeader(int signals, int rate, int sampleCount, const std::string& name) {
    ECG_HEADER* header = NewECGHeader(signals);
    if (header == nullptr) {
        return nullptr;
    }
    CopyText(header->RecordName, name.c_str());
    header->NumberOfSignals = signals;
    header->SamplingFrequency = rate;
    header->NumberOfSamples = sampleCount;
    for (int i = 0; i < signals; ++i) {
        CopyText(header->Signal[i].Description, kAllChannelNames[i]);
        header->Signal[i].Lead = static_cast<ECG_Lead>(i);
    }
    return header;
}

// Noise of the instant in millivolts; only direct material carries any.
double CurrentNoise() {
    const bool mixed = LoadShared(g_NoiseOn) != 0 && g_WaveformType == WAVEFORM_TYPE_DIRECT;
    if (!mixed || g_nNoiseCurrent >= kNoiseSamples) {
        return 0.0;
    }
    return g_NoiseData[g_nNoiseCurrent] / 1000.0;
}

using Quad = int __attribute__((vector_size(16)));

// The settings that turn voltages into codes, as they are at one instant.
class CodeConverter {
  public:
    CodeConverter()
        : m_range(LoadShared(g_fVoltageRange)), m_noise(CurrentNoise()),
          m_is16Bit(LoadShared(g_nDACBit) != 0),
          m_isCorrected(g_WaveformType != WAVEFORM_TYPE_AHA && LoadShared(g_bDACAvailable) != 0) {}

    // -1.0 to +1.0 of the range.  A voltage that is no number counts as 0; so does every voltage
    // when the range is no range.
    double Normalise(double voltage) const {
        const double noisy = NumberOrZero(voltage) + m_noise;
        return NumberOrZero(ClampVoltage(noisy, m_range) / m_range);
    }

    // The code of a normalised voltage, before correction and truncation.  The full scale stops
    // short of the converter's end codes.
    double Scale(double x) const { return m_is16Bit ? x * 32000.0 + 32768.0 : x * 2000.0 + 2048.0; }

    bool CorrectsCodes() const { return m_isCorrected && !m_is16Bit; }

  private:
    static double NumberOrZero(double value) { return std::isnan(value) ? 0.0 : value; }

    double m_range;
    double m_noise;
    bool m_is16Bit;
    bool m_isCorrected;
};

// The uncorrected code lies between 48 and 4048, inside its row of the table.  The table is a
// file's content and can push the corrected code anywhere.
double CorrectCode(double code, int channel) {
    constexpr double kLargestCode = 4294967295.0;
    const double error = g_DACError[channel * kDACErrorCodes + static_cast<int>(code)];
    return std::max(0.0, std::min(2.0 * code - error, kLargestCode));
}

} // namespace

// ---- Header ------------------------------------------------------------------------------------

size_t CalcECGHeaderSize(int n) {
    return sizeof(ECG_HEADER) + sizeof(ECG_SIGNAL) * static_cast<size_t>(n);
}

ECG_HEADER* NewECGHeader(int64_t signals) {
    unsigned char* block = nullptr;
    if (signals >= 0 && signals <= std::numeric_limits<int>::max() &&
        CalcECGHeaderSize(static_cast<int>(signals)) <= PhysicalMemory()) {
        block = new (std::nothrow) unsigned char[CalcECGHeaderSize(static_cast<int>(signals))]();
    }
    if (block == nullptr) {
        SetLastFailure(RAVO_ERROR_MEMORY, "no memory for a record header of %lld signals",
                       static_cast<long long>(signals));
    }
    return reinterpret_cast<ECG_HEADER*>(block);
}

ECG_HEADER* CopyECGHeader(const ECG_HEADER* header) {
    ECG_HEADER* copy = NewECGHeader(header->NumberOfSignals);
    if (copy != nullptr) {
        std::memcpy(copy, header, CalcECGHeaderSize(static_cast<int>(header->NumberOfSignals)));
    }
    return copy;
}

void ReplaceECGHeader(ECG_HEADER* header) {
    DeleteBlock(std::exchange(g_pECGHeader, header));
}

WFDB_HEADER* GetWFDBHeader(ECG_HEADER* header) {
    return header->WFDBHeader;
}

void FreeECGHeader(ECG_HEADER* header) {
    if (header == nullptr) {
        return;
    }
    if (header->WFDBHeader != nullptr) {
        WFDBFreeHeader(header->WFDBHeader);
    }
    DeleteBlock(header);
}

ECG_HEADER* NewECGHeaderAHA(int sampleCount, const std::string& name) {
    return NewNamedHeader(kAHASignals, kAHASamplingFrequency, sampleCount, name);
}

ECG_HEADER* NewECGHeaderAllChannel(int rate, int sampleCount, const std::string& name) {
    return NewNamedHeader(kOutputLeads, rate, sampleCount, name);
}

// ---- Mapping -----------------------------------------------------------------------------------

ECG_Lead MappingLeadText(const char* description) {
    if (description == nullptr) {
        return ECG_LEAD_NONE;
    }
    const auto* row = std::find_if(
        std::begin(kLeadNames), std::end(kLeadNames),
        [description](const LeadName& name) { return std::strcmp(name.text, description) == 0; });
    return row == std::end(kLeadNames) ? ECG_LEAD_NONE : row->lead;
}

int FindMappingLeadIndex(ECG_Lead lead) {
    if (g_pECGHeader == nullptr) {
        return -1;
    }
    const int64_t signals = g_pECGHeader->NumberOfSignals;
    for (int64_t i = 0; i < signals; ++i) {
        if (g_pECGHeader->Signal[i].Lead == lead) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void UpdateMITMappingLeadIndex() {
    for (int lead = 0; lead < kOutputLeads; ++lead) {
        StoreShared(g_ECGMappingLead[lead], FindMappingLeadIndex(static_cast<ECG_Lead>(lead)));
    }
}

void UpdateMappingLead(ECG_HEADER* edited) {
    if (edited == nullptr || g_pECGHeader == nullptr) {
        return;
    }
    // The host's header can belong to another, smaller record.
    const int64_t signals =
        std::min<int64_t>(edited->NumberOfSignals, g_pECGHeader->NumberOfSignals);
    for (int64_t i = 0; i < signals; ++i) {
        g_pECGHeader->Signal[i].Lead = edited->Signal[i].Lead;
    }
    UpdateMITMappingLeadIndex();
}

// ---- Samples -----------------------------------------------------------------------------------

int ReallocateECGDataBuffer(int signals) {
    FreeECGDataBuffer();
    g_iECGSignalNumber = std::max(signals, 0);
    std::free(std::exchange(g_pECGData, NewSignalTable(std::max(signals, 1))));
    if (g_pECGData == nullptr) {
        return NoMemoryForSamples();
    }
    const int arrays = g_WaveformType == WAVEFORM_TYPE_AHA
                           ? std::min(g_iECGSignalNumber, kAHASignals)
                           : g_iECGSignalNumber;
    if (arrays == 0 || g_nSampleCount == 0) {
        return 1;
    }
    if (g_nSampleCount > static_cast<uint64_t>(MostSamplesInMemory(arrays))) {
        return NoMemoryForSamples();
    }
    for (int i = 0; i < arrays; ++i) {
        g_pECGData[i] = NewSamples(g_nSampleCount);
        if (g_pECGData[i] == nullptr) {
            return NoMemoryForSamples();
        }
    }
    return 1;
}

void FreeECGDataBuffer() {
    if (g_pECGData == nullptr) {
        return;
    }
    for (int i = 0; i < g_iECGSignalNumber; ++i) {
        std::free(g_pECGData[i]);
        g_pECGData[i] = nullptr;
    }
}

int64_t MostSamplesInMemory(int64_t signals) {
    const uint64_t memory = MemoryPerArray(std::max<int64_t>(signals, 1));
    return memory > kArrayOverhead
               ? static_cast<int64_t>((memory - kArrayOverhead) / sizeof(double))
               : 0;
}

ECG_DATA_BUFFER DetachECGDataBuffer() {
    return {g_WaveformType, g_nSampleCount, std::exchange(g_iECGSignalNumber, 0),
            std::exchange(g_pECGData, nullptr)};
}

void AttachECGDataBuffer(const ECG_DATA_BUFFER& buffer) {
    g_WaveformType = buffer.WaveformType;
    g_nSampleCount = buffer.SampleCount;
    g_iECGSignalNumber = buffer.SignalNumber;
    g_pECGData = buffer.Data;
}

void ReleaseECGDataBuffer(const ECG_DATA_BUFFER& buffer) {
    for (int i = 0; i < buffer.SignalNumber && buffer.Data != nullptr; ++i) {
        std::free(buffer.Data[i]);
    }
    std::free(buffer.Data);
}

int ValidateECGData() {
    if (g_pECGData == nullptr || g_iECGSignalNumber == 0) {
        SetLastFailure(RAVO_ERROR_NOTHING_LOADED, "no material is loaded");
        return 0;
    }
    if (PlaysThroughMapping(g_WaveformType) &&
        std::none_of(std::begin(g_ECGMappingLead), std::end(g_ECGMappingLead), IsMapped)) {
        SetLastFailure(RAVO_ERROR_NO_LEAD, "no signal of the record feeds an output lead");
        return 0;
    }
    const int needed = g_WaveformType == WAVEFORM_TYPE_AHA ? kAHASignals : g_iECGSignalNumber;
    if (!IsAllocatedUpTo(needed)) {
        SetLastFailure(RAVO_ERROR_NOTHING_LOADED, "the loaded record has no samples");
        return 0;
    }
    return 1;
}

// ---- Conversion and settings -------------------------------------------------------------------

double AdjustVoltage(double voltage) {
    return ClampVoltage(voltage, LoadShared(g_fVoltageRange));
}

unsigned int DAC(double voltage, int channel) {
    const CodeConverter converter;
    double code = converter.Scale(converter.Normalise(voltage));
    if (converter.CorrectsCodes() && channel >= 0 && channel < kOutputLeads) {
        code = CorrectCode(code, channel);
    }
    return static_cast<unsigned int>(code);
}

void ConvertFrame(const double* voltages, int* frame) {
    const CodeConverter converter;
    double codes[kOutputLeads];
    for (int channel = 0; channel < kOutputLeads; ++channel) {
        codes[channel] = converter.Scale(converter.Normalise(voltages[channel]));
    }
    const bool isCorrected = converter.CorrectsCodes();
    const auto codeOf = [&](int channel) {
        const double code = isCorrected ? CorrectCode(codes[channel], channel) : codes[channel];
        return static_cast<int>(static_cast<unsigned int>(code));
    };
    // Stored four at a time, as the packer loads them: a load that spans several stores would wait
    // for the cache.
    for (int first = 0; first < kOutputLeads; first += 4) {
        const Quad quad = {codeOf(first), codeOf(first + 1), codeOf(first + 2), codeOf(first + 3)};
        std::memcpy(frame + first, &quad, sizeof(quad));
    }
}

int IsDACFileLoaded() {
    return LoadShared(g_bDACAvailable);
}

void SetOutputVoltageRange(double range) {
    const CAutoCriticalSection lock(g_CriticalSection);
    StoreShared(g_fVoltageRange, range);
}

void EnableNoise(bool on) {
    const CAutoCriticalSection lock(g_CriticalSection);
    StoreShared(g_NoiseOn, on);
}

void SetOutputLoop(bool loop) {
    const CAutoCriticalSection lock(g_CriticalSection);
    StoreShared(g_bPlayLoop, loop);
}
