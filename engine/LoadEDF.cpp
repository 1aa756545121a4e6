#include "engine/LoadEDF.h"

#include "engine/LoadMIT.h"
#include "engine/PlayRaw.h"
#include "engine/Record.h"
#include "platform/Platform.h"
#include "WFDB/Utils.h"

#include <cstring>
#include <new>
#include <string>
#include <unistd.h>

namespace {

char g_szDefaultRepository[] = "c:\\Physionet";

// A file of the record that the converter makes of `path`, named as the converter names it.
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

// A failed conversion shows itself when its record is loaded.
void ConvertOnce(const char* path, const std::string& headerPath) {
    const CAutoCriticalSection lock(g_CriticalSection);
    CreateDirectory(g_pszRepository, nullptr);
    if (!Exists(headerPath) || !Exists(ConvertedPath(path, ".dat"))) {
        WFDBConvertEDF(path, g_pszRepository);
    }
}

ECG_HEADER* Load(const char* path, WaveformType type) {
    StopOutput();
    const std::string headerPath = ConvertedPath(path, ".hea");
    ConvertOnce(path, headerPath);
    ECG_HEADER* header = LoadMITHeader(headerPath.c_str());
    if (header != nullptr) {
        g_WaveformType = type;
    }
    return header;
}

} // namespace

char* g_pszRepository = g_szDefaultRepository;

ECG_HEADER* LoadDatabaseEDF(const char* path, WaveformType type) {
    if (path == nullptr || g_pszRepository == nullptr) {
        return nullptr;
    }
    try {
        return Load(path, type);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
