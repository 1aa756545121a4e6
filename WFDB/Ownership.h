#pragma once

#include "platform/Files.h"
#include "ravo/wfdb.h"

#include <cstdlib>
#include <memory>

// Owners for everything that the record library opens and allocates; every way out of a function
// releases it.

struct RecordReleaser {
    void operator()(WFDB_HEADER* header) const { WFDBFreeHeader(header); }
};

struct MemoryReleaser {
    void operator()(void* memory) const { std::free(memory); }
};

using OwnedRecord = std::unique_ptr<WFDB_HEADER, RecordReleaser>;

// An array that the caller of the library releases with WFDBMemFree.
template <typename T>
using OwnedArray = std::unique_ptr<T[], MemoryReleaser>;
