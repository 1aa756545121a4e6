#include "ravo/ravo.h"

#include "engine/loaders/LoadMIT.h"
#include "engine/MaterialLoad.h"
#include "engine/Record.h"
#include "engine/ResponseReader.h"
#include "platform/LastError.h"
#include "platform/Platform.h"
#include "WFDB/nst.h"
#include "WFDB/Utils.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned int kPathSize = 260;

struct HeaderReleaser {
    void operator()(ECG_HEADER* header) const { FreeECGHeader(header); }
};

using OwnedHeader = std::unique_ptr<ECG_HEADER, HeaderReleaser>;

// The temporary record of the noise stress test: its path without extension and its two files.
struct TemporaryRecord {
    char Path[kPathSize];
    char HeaderFile[kPathSize + 4];
    char DataFile[kPathSize + 4];
};

TemporaryRecord NameTemporaryRecord() {
    TemporaryRecord record = {};
    char directory[kPathSize];
    GetTempPath(kPathSize, directory);
    GetTempFileName(directory, "ravo", 0, record.Path);
    if (char* extension = PathFindExtension(record.Path)) {
        *extension = '\0';
    }
    std::snprintf(record.HeaderFile, sizeof(record.HeaderFile), "%s.hea", record.Path);
    std::snprintf(record.DataFile, sizeof(record.DataFile), "%s.dat", record.Path);
    return record;
}

// In a folder that everybody may write to, another user may have put a file under that name, or may
// change it while it is being read.
bool RequireOwn(const char* path) {
    struct stat information = {};
    if (lstat(path, &information) != 0 || information.st_uid == geteuid()) {
        return true;
    }
    SetLastFailure(RAVO_ERROR_BUSY, "%s belongs to the user with the id %u", path,
                   information.st_uid);
    return false;
}

// Runs a test that writes to the given path and returns whether the loader continues.
template <typename Test>
bool RunUnderEngineLock(char* outputPath, Test test) {
    const CMaterialLoad load;
    return test(outputPath);
}

// The samples are read into the engine here, so the files can be deleted; the record keeps its
// signal file open until the host frees the header.
ECG_HEADER* LoadAndDelete(TemporaryRecord& record) {
    OwnedHeader header(LoadMITHeader(record.HeaderFile));
    if (header == nullptr) {
        return nullptr;
    }
    const int loaded = LoadMITDatabase(header.get());
    DeleteFile(record.HeaderFile);
    DeleteFile(record.DataFile);
    return loaded == 0 ? nullptr : header.release();
}

// A loader.  The exception that it catches is refused memory.
template <typename Test>
ECG_HEADER* RunAndLoad(Test test) {
    if (!IsCallAllowedHere()) {
        return nullptr;
    }
    try {
        TemporaryRecord record = NameTemporaryRecord();
        if (!RequireOwn(record.HeaderFile) || !RequireOwn(record.DataFile)) {
            return nullptr;
        }
        const bool goesOn = RunUnderEngineLock(record.Path, test);
        return goesOn ? LoadAndDelete(record) : nullptr;
    } catch (const std::exception&) {
        SetLastFailure(RAVO_ERROR_MEMORY, "no memory for a noise stress test");
        return nullptr;
    }
}

// Without a configured test the call succeeds and writes nothing: a record under the temporary name
// would then belong to another process.
bool RunConfiguredTest(char* outputPath) {
    if (WFDBNoiseTestExOutput(outputPath) == 0) {
        return false;
    }
    if (!IsNoiseTestConfigured()) {
        SetLastFailure(RAVO_ERROR_NOTHING_LOADED, "no noise stress test is configured");
        return false;
    }
    return true;
}

} // namespace

ECG_HEADER* LoadDatabaseNoiseTest() {
    return RunAndLoad(RunConfiguredTest);
}

// WFDBNoiseTest returns 0 for success, which this form takes for failure.
ECG_HEADER* LoadDatabaseNoiseTest(const char* signal, const char* noise, int snr) {
    return RunAndLoad([=](char* outputPath) {
        if (WFDBNoiseTest(const_cast<char*>(signal), const_cast<char*>(noise), outputPath, snr) !=
            0) {
            return true;
        }
        SetLastFailure(RAVO_ERROR_UNSUPPORTED,
                       "this form of the noise stress test loads nothing; the mixed record is %s",
                       outputPath);
        return false;
    });
}
