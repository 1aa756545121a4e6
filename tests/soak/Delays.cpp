// Every step of connecting and of losing the simulator is delayed now and then.  These functions
// replace the system's in the whole program, including the emulated simulator.
#include "Delays.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <dlfcn.h>
#include <poll.h>
#include <random>
#include <sys/file.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<bool> isDelaying{false};

// One step in eight, by up to 30 ms.
void Step() {
    if (!isDelaying) {
        return;
    }
    thread_local std::minstd_rand random(
        static_cast<unsigned>(std::hash<std::thread::id>()(std::this_thread::get_id())));
    if (random() % 8 == 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
    }
}

template <typename Function>
Function* System(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

void DelaySteps(bool on) {
    isDelaying = on;
}

FILE* popen(const char* command, const char* type) {
    Step();
    return System<FILE*(const char*, const char*)>("popen")(command, type);
}

int pclose(FILE* pipe) {
    const int status = System<int(FILE*)>("pclose")(pipe);
    Step();
    return status;
}

extern "C" int flock(int descriptor, int operation) noexcept {
    Step();
    return System<int(int, int)>("flock")(descriptor, operation);
}

extern "C" int unlink(const char* path) noexcept {
    Step();
    const int result = System<int(const char*)>("unlink")(path);
    Step();
    return result;
}

extern "C" int tcgetattr(int descriptor, termios* attributes) noexcept {
    Step();
    return System<int(int, termios*)>("tcgetattr")(descriptor, attributes);
}

extern "C" int tcflush(int descriptor, int queue) noexcept {
    Step();
    return System<int(int, int)>("tcflush")(descriptor, queue);
}

int ppoll(pollfd* requests, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    Step();
    return System<int(pollfd*, nfds_t, const timespec*, const sigset_t*)>("ppoll")(requests, count,
                                                                                   timeout, mask);
}
