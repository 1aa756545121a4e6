#pragma once

#include <cstddef>
#include <dirent.h>
#include <string>

// The descriptors and threads that a process has, as the system reports them.

inline size_t EntriesOf(const std::string& directory) {
    size_t count = 0;
    DIR* entries = opendir(directory.c_str());
    while (const dirent* entry = readdir(entries)) {
        count += entry->d_name[0] == '.' ? 0 : 1;
    }
    closedir(entries);
    return count;
}

inline size_t Threads() {
    return EntriesOf("/proc/self/task");
}

inline size_t Descriptors() {
    return EntriesOf("/proc/self/fd");
}
