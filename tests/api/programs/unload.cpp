// A host that repeatedly loads the library by its path, uses it up to STATE, and unloads it without
// cleaning up.
//
//   unload LIBRARY STATE ROUNDS
//
// STATE: loaded, searching, connected or playing, as in leave.cpp.  Ends with status 0 when after
// each round the library has been removed from memory with all its threads.
#include "api/ravo.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <fstream>
#include <set>
#include <string>
#include <thread>

namespace {

std::atomic<bool> g_connected{false};
std::atomic<bool> g_shown{false};

void Hear(bool connected) {
    g_connected = connected;
}

void Show(double /*time*/, double /*recordTime*/, double* /*leads*/, bool /*end*/) {
    g_shown = true;
}

void WaitUntil(const std::atomic<bool>& condition) {
    while (!condition) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

template <typename Function>
Function* Find(void* library, const char* name) {
    void* const symbol = dlsym(library, name);
    if (symbol == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        exit(2);
    }
    return reinterpret_cast<Function*>(symbol);
}

bool Use(void* library, const std::string& state) {
    g_connected = false;
    g_shown = false;
    if (Find<decltype(RAVOGetVersion)>(library, "RAVOGetVersion")() != 0x01000504) {
        return false;
    }
    if (state == "loaded") {
        return true;
    }
    if (!Find<decltype(RAVOInit)>(library, "RAVOInit")(Hear)) {
        return false;
    }
    if (state == "searching") {
        return true;
    }
    WaitUntil(g_connected);
    if (state == "connected") {
        return true;
    }
    Find<decltype(RAVOEnableLoop)>(library, "RAVOEnableLoop")(true);
    if (!Find<decltype(RAVOLoadWaveform)>(library, "RAVOLoadWaveform")(WAVEFORM_SINE, 1.0, 1.0) ||
        !Find<decltype(RAVOOutputWaveform)>(library, "RAVOOutputWaveform")(0, Show, nullptr)) {
        return false;
    }
    WaitUntil(g_shown);
    return true;
}

std::set<std::string> Threads() {
    std::set<std::string> threads;
    DIR* tasks = opendir("/proc/self/task");
    while (const dirent* task = readdir(tasks)) {
        threads.insert(task->d_name);
    }
    closedir(tasks);
    return threads;
}

// A thread that has been joined can still be on its way out of the kernel's list: one of those
// before may be missing now, and a new one may go in a moment.
bool NewThreadsEnd(const std::set<std::string>& before) {
    const auto isNew = [&](const std::string& thread) { return before.count(thread) == 0; };
    for (int i = 0; i < 10000; ++i) {
        const auto now = Threads();
        if (std::none_of(now.begin(), now.end(), isNew)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

bool IsMapped(const char* name) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(name) != std::string::npos) {
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    std::thread([] {}).join(); // the first thread also starts one of the sanitizer's
    const auto threads = Threads();
    for (int round = std::atoi(argv[3]); round > 0; --round) {
        void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            return 3;
        }
        if (!Use(library, argv[2])) {
            return 4;
        }
        if (dlclose(library) != 0 || IsMapped("libravo.so")) {
            return 5;
        }
        if (!NewThreadsEnd(threads)) {
            return 6;
        }
        if (std::string(argv[2]) == "playing") {
            raise(SIGUSR2); // a late tick must not run a handler that is gone
        }
    }
    return 0;
}
