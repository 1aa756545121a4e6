#pragma once

// The loaded material: its header, the mapping of its signals to output leads, and its samples.
//
// Loaders replace the material as a whole, after output has been stopped and while they hold
// g_CriticalSection.  The output threads read it without a lock.  Voltages are millivolts.

#include "platform/SimpleCriticalSection.h"
#include "ravo/material.h"

#include <cstddef>
#include <cstdint>
#include <string>

// Material, settings, start and stop.  Taken after the API lock and before the preview queue's.
extern CSimpleCriticalSection g_CriticalSection;

// What happens to the material when the library is unloaded: it is released, with or without
// g_CriticalSection held until that is done, or it is left to a thread that still uses it.
enum class MaterialRelease { kUnlocked, kLocked, kNever };
extern MaterialRelease g_MaterialRelease;

constexpr int kOutputLeads = 8; // I, II, V1 to V6

constexpr size_t kNoiseSamples = 10000;

extern uint64_t g_nNoiseCurrent;           // index into g_NoiseData
extern int32_t g_NoiseData[kNoiseSamples]; // microvolts
extern ECG_HEADER* g_pECGHeader;           // the engine's own header; null before any load
extern int32_t g_ECGMappingLead[8];        // for each output lead the signal that feeds it, or -1
extern double** g_pECGData;                // sample k of signal i is g_pECGData[i][k]
extern int32_t g_iECGSignalNumber;         // arrays in g_pECGData
extern uint64_t g_nSampleCount;            // samples per signal
extern uint32_t g_nSampleRate;             // samples per second

// ---- Header ------------------------------------------------------------------------------------

// Bytes of a header for n signals.  A header carries one spare, zeroed entry after the n in use.
size_t CalcECGHeaderSize(int n);

// A zeroed header with room for `signals` signals, released with FreeECGHeader.  Null when memory
// is refused.
ECG_HEADER* NewECGHeader(int64_t signals);

// A byte copy, which shares the WFDB_HEADER of the original.  Null when memory is refused.
ECG_HEADER* CopyECGHeader(const ECG_HEADER* header);

// Makes `header` the engine's own and releases the block of the earlier one.  The WFDB_HEADER of
// the earlier record is left alone: it belongs to the copy that the host was given.
void ReplaceECGHeader(ECG_HEADER* header);

WFDB_HEADER* GetWFDBHeader(ECG_HEADER* header);

// Releases a header together with its WFDB_HEADER, which every copy of the header shares.  The
// samples of the record must have been loaded by then.  Null is ignored.
void FreeECGHeader(ECG_HEADER* header);

// Headers of material with a fixed arrangement of signals: two leads at 250 samples per second,
// and all eight output leads.  Null when memory is refused.
ECG_HEADER* NewECGHeaderAHA(int sampleCount, const std::string& name);
ECG_HEADER* NewECGHeaderAllChannel(int rate, int sampleCount, const std::string& name);

// ---- Samples -----------------------------------------------------------------------------------

// Replaces the sample buffer by one of `signals` arrays of g_nSampleCount zeros, or of two arrays
// for AHA material.  g_WaveformType and g_nSampleCount must be set before.  1 on success; 0 when
// memory is refused or the machine's physical memory could not hold the arrays, which leaves the
// arrays so far.
int ReallocateECGDataBuffer(int signals);

// Releases the samples.  The table of arrays stays, with every slot null, until the next
// reallocation, so that a late reader finds no material instead of freed memory.
void FreeECGDataBuffer();

// The most samples per signal that the machine's physical memory could hold.
int64_t MostSamplesInMemory(int64_t signals);

// The sample buffer with what belongs to it, taken out of the engine: a loader that may still fail
// keeps the earlier one until the new one is complete.
struct ECG_DATA_BUFFER {
    int32_t WaveformType;
    uint64_t SampleCount;
    int32_t SignalNumber;
    double** Data;
};

ECG_DATA_BUFFER DetachECGDataBuffer();
void AttachECGDataBuffer(const ECG_DATA_BUFFER& buffer);
void ReleaseECGDataBuffer(const ECG_DATA_BUFFER& buffer);

// 1 when the loaded material can be played, else 0.
int ValidateECGData();

// The samples of `signal`; null when the buffer has no such array.
inline const double* GetECGSignal(int signal) {
    const bool exists = g_pECGData != nullptr && signal >= 0 && signal < g_iECGSignalNumber;
    return exists ? g_pECGData[signal] : nullptr;
}
