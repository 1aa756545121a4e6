#pragma once

#include "WFDB/wfdb.h"

#include <algorithm>
#include <cstdint>

// The reading functions of one storage format.
struct SIGNAL_HANDLER {
    // Read up to `frames` frames, one value per signal and frame; the result is the number of whole
    // frames read.  NextSample yields physical values, NextSampleEx ADC values.
    int (*NextSample)(WFDB_HEADER* header, double* out, int frames);
    int (*NextSampleEx)(WFDB_HEADER* header, int* out, int frames);

    // Position the signal file at a time in seconds or at a frame; 1 on success.
    int (*Seek)(WFDB_HEADER* header, int seconds);
    int (*SeekEx)(WFDB_HEADER* header, int frame);
};

// The reader for the format of the first signal; null for a null header and for formats other
// than 16 and 212.
SIGNAL_HANDLER* GetSignalHandler(WFDB_HEADER* header);

// Reads one frame and turns its values back into ADC units.  1 on success, else 0.
int GetNextSampleWithoutDAC(WFDB_HEADER* header, double* out);

// What the readers of both formats have in common.

// A signal's samples in one frame of the file, never below 1.
inline int32_t GetSamplesPerFrame(const WFDB_HEADER* header, int64_t signal) {
    return std::max<int32_t>(header->Signal[signal].SamplesPerFrame, 1);
}

// The wanted position, or the start when it lies behind the end of the record.
int64_t SecondsWithinRecord(const WFDB_HEADER* header, int seconds);
int64_t FrameWithinRecord(const WFDB_HEADER* header, int frame);

// A position that does not exist, for a move that must fail.
constexpr int64_t kNoPosition = -1;

// Forgets the pending sample of format 212 and moves the signal file to the byte `offset`.  1 on
// success, else 0.
int MoveSignalFile(WFDB_HEADER* header, int64_t offset);
