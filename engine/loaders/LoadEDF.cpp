#include "ravo/ravo.h"

#include "engine/loaders/LoadMIT.h"
#include "engine/MaterialLoad.h"
#include "engine/PlayRaw.h"
#include "engine/Record.h"
#include "engine/ResponseReader.h"
#include "platform/LastError.h"
#include "platform/Platform.h"
#include "WFDB/Utils.h"

#include <cstring>
#include <new>
#include <string>
#include <unistd.h>

namespace {

char g_szDefaultRepository[] = "c:\\Physionet";

// The path of a file that the converter writes for `path`, named as the converter names it.
std::string ConvertedPath(const char* path, const char* extension) {
    char recordName[kRecordNameSize];
    GetRecordName(path, recordName);
    std::string converted(std::strlen(g_pszRepository) + 1 + sizeof(recordName), '\0');
    std::strcpy(converted.data(), g_pszRepository);
    PathAppend(converted.data(), recordName);
    converted.resize(std::strlen(converted.c_str()));
    return converted + extension;
}

bool Exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

// False when the record had to be converted and could not be.
bool ConvertOnce(const char* path, const std::string& headerPath) {
    const CAutoCriticalSection lock(g_CriticalSection);
    CreateDirectory(g_pszRepository, nullptr);
    if (Exists(headerPath) && Exists(ConvertedPath(path, ".dat"))) {
        return true;
    }
    return WFDBConvertEDF(path, g_pszRepository) == 1;
}

ECG_HEADER* Load(const char* path, WaveformType type) {
    StopOutput();
    const std::string headerPath = ConvertedPath(path, ".hea");
    const bool converted = ConvertOnce(path, headerPath);
    const Failure reason = LastFailure();
    ECG_HEADER* header = LoadMITHeader(headerPath.c_str());
    if (header != nullptr) {
        g_WaveformType = type;
    } else if (!converted) {
        SetLastFailure(reason); // instead of the reason that there is no converted record
    }
    return header;
}

} // namespace

char* g_pszRepository = g_szDefaultRepository;

ECG_HEADER* LoadDatabaseEDF(const char* path, WaveformType type) {
    if (path == nullptr || g_pszRepository == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no path is given, or g_pszRepository is null");
        return nullptr;
    }
    if (!IsCallAllowedHere()) {
        return nullptr;
    }
    try {
        return Load(path, type);
    } catch (const std::bad_alloc&) {
        SetLastFailure(RAVO_ERROR_MEMORY, "%s: no memory to load it", path);
        return nullptr;
    }
}
