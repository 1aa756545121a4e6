#pragma once

#include <cstdint>
#include <unistd.h>

// The machine's memory in bytes.  A system that overcommits grants far more and kills the process
// when the memory is used, so callers refuse anything larger.
inline uint64_t PhysicalMemory() {
    return static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) *
           static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}
