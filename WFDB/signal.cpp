#include "WFDB/signal.h"

#include "platform/Files.h"
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

int WFDBLoadSignal(const char* directory, WFDB_HEADER* header) {
    if (directory == nullptr || header == nullptr || header->NumberOfSignals < 1) {
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
        return 0;
    }
}

int WFDBNextSample(WFDB_HEADER* header, double* out, int frames) {
    if (IsReadableHeader(header) == 0 || out == nullptr) {
        return 0;
    }
    return GetSignalHandler(header)->NextSample(header, out, frames);
}

int WFDBSeek(WFDB_HEADER* header, int seconds) {
    return IsReadableHeader(header) == 0 ? 0 : GetSignalHandler(header)->Seek(header, seconds);
}

int GetNextSampleWithoutDAC(WFDB_HEADER* header, double* out) {
    if (WFDBNextSample(header, out, 1) != 1) {
        return 0;
    }
    for (int64_t i = 0; i < header->NumberOfSignals; ++i) {
        const WFDB_SIGNAL& signal = header->Signal[i];
        out[i] = out[i] * signal.ADCGain + signal.ADCBaseLine;
    }
    return 1;
}
