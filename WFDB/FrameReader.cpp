#include "WFDB/FrameReader.h"

#include "WFDB/stdafx.h"

int64_t SecondsWithinRecord(const WFDB_HEADER* header, int seconds) {
    const double duration = static_cast<double>(header->NumberOfSamplesPerSignal) /
                            static_cast<double>(header->SamplingFrequency);
    return duration < seconds ? 0 : seconds;
}

int64_t FrameWithinRecord(const WFDB_HEADER* header, int frame) {
    return frame > header->NumberOfSamplesPerSignal ? 0 : frame;
}

int MoveSignalFile(WFDB_HEADER* header, int64_t offset) {
    READER_STATE state = LoadReaderState(header);
    state.PendingSample = 0;
    state.HasPendingSample = 0;
    StoreReaderState(header, state);
    return fseeko(state.SignalFile, offset, SEEK_SET) == 0;
}
