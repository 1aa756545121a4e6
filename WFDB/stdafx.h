#pragma once

#include "ravo/wfdb.h"

#include <cstdio>
#include <cstring>

// What every unit of the record library shares: the reader's private state, which lives in the
// Reserved bytes of a header.

#pragma pack(push, 1)

struct READER_STATE {
    FILE* SignalFile;
    int16_t PendingSample; // second sample of the last format-212 triple, 12 bits
    uint8_t HasPendingSample;
    FILE* AnnotationFile;
    uint8_t Unused[13];
};

#pragma pack(pop)

static_assert(sizeof(READER_STATE) == sizeof(WFDB_HEADER::Reserved), "fills Reserved");

// The state is copied in and out because Reserved is not aligned for a pointer.

inline READER_STATE LoadReaderState(const WFDB_HEADER* header) {
    READER_STATE state;
    std::memcpy(&state, header->Reserved, sizeof(state));
    return state;
}

inline void StoreReaderState(WFDB_HEADER* header, const READER_STATE& state) {
    std::memcpy(header->Reserved, &state, sizeof(state));
}

// The open files of a record, null when not open.  The header still owns them.

inline FILE* GetSignalFile(const WFDB_HEADER* header) {
    return header == nullptr ? nullptr : LoadReaderState(header).SignalFile;
}

inline FILE* GetAnnotationFile(const WFDB_HEADER* header) {
    return header == nullptr ? nullptr : LoadReaderState(header).AnnotationFile;
}

inline void SetSignalFile(WFDB_HEADER* header, FILE* file) {
    READER_STATE state = LoadReaderState(header);
    state.SignalFile = file;
    StoreReaderState(header, state);
}

inline void SetAnnotationFile(WFDB_HEADER* header, FILE* file) {
    READER_STATE state = LoadReaderState(header);
    state.AnnotationFile = file;
    StoreReaderState(header, state);
}

inline size_t SignalCount(const WFDB_HEADER* header) {
    const int64_t count = header->NumberOfSignals;
    return count > 0 ? static_cast<size_t>(count) : 0;
}
