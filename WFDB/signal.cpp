#include "WFDB/signal.h"

#include "platform/Files.h"
#include "platform/LastError.h"
#include "WFDB/signal16.h"
#include "WFDB/signal212.h"
#include "WFDB/stdafx.h"

#include <new>
#include <string>

namespace {

std::string JoinPath(const char* directory, const char* fileName) {
    std::string path = directory;
    if (!path.empty() && path.back() != '/') {
        path += '/';
    }
    return path + fileName;
}

bool RequireSignals(const WFDB_HEADER* header) {
    if (header == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no record header is given");
        return false;
    }
    if (header->NumberOfSignals < 1) {
        SetLastFailure(RAVO_ERROR_UNSUPPORTED, "record %.255s has no signal in a \".dat\" file",
                       header->RecordName);
        return false;
    }
    return true;
}

// The reason why fewer frames were read than requested.
void SetShortReadFailure(WFDB_HEADER* header) {
    if (std::ferror(GetSignalFile(header)) != 0) {
        SetLastFailure(RAVO_ERROR_NOT_READABLE, "record %.255s: its signal file cannot be read",
                       header->RecordName);
    } else {
        SetLastFailure(RAVO_ERROR_END, "record %.255s: end of the samples", header->RecordName);
    }
}

} // namespace

SIGNAL_HANDLER* GetSignalHandler(WFDB_HEADER* header) {
    if (header == nullptr) {
        return nullptr;
    }
    switch (header->Signal[0].Format) {
    case 16:
        return const_cast<SIGNAL_HANDLER*>(&g_SignalHandler16);
    case 212:
        return const_cast<SIGNAL_HANDLER*>(&g_SignalHandler212);
    default:
        return nullptr;
    }
}

int IsReadableHeader(WFDB_HEADER* header) {
    return header != nullptr && header->NumberOfSignals > 0 && GetSignalFile(header) != nullptr &&
           GetSignalHandler(header) != nullptr;
}

bool RequireReadable(WFDB_HEADER* header) {
    if (!RequireSignals(header)) {
        return false;
    }
    if (GetSignalFile(header) == nullptr) {
        SetLastFailure(RAVO_ERROR_NOTHING_LOADED, "record %.255s: its signal file is not open",
                       header->RecordName);
        return false;
    }
    if (GetSignalHandler(header) == nullptr) {
        SetLastFailure(RAVO_ERROR_UNSUPPORTED,
                       "record %.255s: signal format %d cannot be read; 16 and 212 can",
                       header->RecordName, static_cast<int>(header->Signal[0].Format));
        return false;
    }
    return true;
}

int WFDBLoadSignal(const char* directory, WFDB_HEADER* header) {
    if (directory == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no directory is given");
        return 0;
    }
    if (!RequireSignals(header)) {
        return 0;
    }
    try {
        FILE* file = OpenOrdinaryFile(JoinPath(directory, header->Signal[0].FileName).c_str());
        if (file == nullptr) {
            return 0;
        }
        SetSignalFile(header, file);
        return 1;
    } catch (const std::bad_alloc&) {
        SetLastFailure(RAVO_ERROR_MEMORY, "no memory for the path of a signal file");
        return 0;
    }
}

int WFDBNextSample(WFDB_HEADER* header, double* out, int frames) {
    if (!RequireReadable(header)) {
        return 0;
    }
    if (out == nullptr || frames < 1) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no room for samples is given");
        return 0;
    }
    const int read = GetSignalHandler(header)->NextSample(header, out, frames);
    if (read < frames) {
        SetShortReadFailure(header);
    }
    return read;
}

int WFDBSeek(WFDB_HEADER* header, int seconds) {
    if (!RequireReadable(header)) {
        return 0;
    }
    if (GetSignalHandler(header)->Seek(header, seconds) != 1) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "record %.255s: there is no second %d",
                       header->RecordName, seconds);
        return 0;
    }
    return 1;
}

int GetNextSampleWithoutDAC(WFDB_HEADER* header, double* out) {
    if (IsReadableHeader(header) == 0 || out == nullptr ||
        GetSignalHandler(header)->NextSample(header, out, 1) != 1) {
        return 0;
    }
    for (int64_t i = 0; i < header->NumberOfSignals; ++i) {
        const WFDB_SIGNAL& signal = header->Signal[i];
        out[i] = out[i] * signal.ADCGain + signal.ADCBaseLine;
    }
    return 1;
}
