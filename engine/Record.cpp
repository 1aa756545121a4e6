#include "engine/Record.h"

#include "engine/Kinds.h"
#include "platform/ConstructionOrder.h"
#include "platform/LastError.h"
#include "platform/Memory.h"
#include "platform/SharedValue.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

int32_t g_WaveformType = MATERIAL_NONE;
uint64_t g_nNoiseCurrent = 0;
int32_t g_NoiseData[kNoiseSamples] = {};
ECG_HEADER* g_pECGHeader = nullptr;
int32_t g_ECGMappingLead[8] = {};
double** g_pECGData = nullptr;
int32_t g_iECGSignalNumber = 0;
uint64_t g_nSampleCount = 0;
uint32_t g_nSampleRate = 0;

RAVO_CONSTRUCT_MATERIAL CSimpleCriticalSection g_CriticalSection;
MaterialRelease g_MaterialRelease = MaterialRelease::kUnlocked;

namespace {

// Releases what is still loaded when the library is unloaded.  Destroyed after the engine's own
// releaser, which empties the buffer once no thread reads it any more.  A thread that was waiting
// for the lock then finds nothing loaded.
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

constexpr int kAHASamplingFrequency = 250;

// Signals of material that carries all output leads, in the order of the leads.
constexpr const char* kAllChannelNames[kOutputLeads] = {"ECG 1",  "ECG 2",  "ECG V1", "ECG V2",
                                                        "ECG V3", "ECG V4", "ECG V5", "ECG V6"};

// The memory that one array occupies besides its samples: its slot in the table and the allocator's
// overhead.
constexpr uint64_t kArrayOverhead = 32;

// The memory available for each of `arrays` arrays.  A system that overcommits grants far more and
// kills the process when the samples arrive, so larger requests are refused here.
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

// Index 8, the value of ECG_LEAD_NONE, counts as not mapped, like -1: a record in which only the
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

// ---- Samples -----------------------------------------------------------------------------------

int ReallocateECGDataBuffer(int signals) {
    FreeECGDataBuffer();
    g_iECGSignalNumber = std::max(signals, 0);
    std::free(std::exchange(g_pECGData, NewSignalTable(std::max(signals, 1))));
    if (g_pECGData == nullptr) {
        return NoMemoryForSamples();
    }
    const MaterialKind& kind = KindOf(g_WaveformType);
    const int arrays =
        kind.signals != 0 ? std::min(g_iECGSignalNumber, kind.signals) : g_iECGSignalNumber;
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
    const MaterialKind& kind = KindOf(g_WaveformType);
    if (kind.isMapped &&
        std::none_of(std::begin(g_ECGMappingLead), std::end(g_ECGMappingLead), IsMapped)) {
        SetLastFailure(RAVO_ERROR_NO_LEAD, "no signal of the record feeds an output lead");
        return 0;
    }
    const int needed = kind.signals != 0 ? kind.signals : g_iECGSignalNumber;
    if (!IsAllocatedUpTo(needed)) {
        SetLastFailure(RAVO_ERROR_NOTHING_LOADED, "the loaded record has no samples");
        return 0;
    }
    return 1;
}
