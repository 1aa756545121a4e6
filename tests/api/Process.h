#pragma once

#include <chrono>
#include <cstddef>
#include <dirent.h>
#include <string>
#include <thread>

// What a process has open and running, as the system sees it.

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

template <typename Condition>
bool Eventually(Condition condition, int patienceMilliseconds = 60000) {
    for (int i = 0; i < patienceMilliseconds; ++i) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}
