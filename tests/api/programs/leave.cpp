// A host that leaves without tidying up.
//
//   leave STATE WAY
//
// STATE, what it has done with the library before it leaves:
//   loaded      nothing
//   loading     a thread loads material again and again
//   searching   RAVOInit, no simulator there
//   connected   RAVOInit, simulator found
//   playing     and output running
//   freed       as playing, then RAVOFree
//   timeout     RAVOConnect has timed out
//   connecting  a thread waits in RAVOConnect for a minute
//   forsaken    the same, and the connect thread has been ended by RAVOFree meanwhile
// WAY, how it leaves:
//   main        returns from main
//   thread      exit on another thread, while main waits
//   listener, progress, delay   exit on the library's thread that runs that callback
//   free        exit on the listener while main is in RAVOFree
//   stop        exit on another thread while main is in RAVOStopOutput
//   busy        returns from main while the progress callback does not return
//   fork        a forked child exits first; its parent must go on undisturbed
//
// It leaves with status 7.
#include "api/ravo.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int kStatus = 7;

std::string g_state;
std::string g_way;
std::atomic<bool> g_connected{false};
std::atomic<bool> g_shown{false};
std::atomic<bool> g_mayLeave{false};

void Sleep(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void WaitUntil(const std::atomic<bool>& condition) {
    while (!condition) {
        Sleep(1);
    }
}

[[noreturn]] void WaitForEver() {
    for (;;) {
        Sleep(1000);
    }
}

void Hear(bool connected) {
    g_connected = connected;
    if (g_way == "listener") {
        exit(kStatus);
    }
    if (g_way == "free") {
        WaitUntil(g_mayLeave);
        Sleep(200); // main is inside RAVOFree by now
        exit(kStatus);
    }
}

void Show(double /*time*/, double /*recordTime*/, double* /*leads*/, bool /*end*/) {
    g_shown = true;
    if (g_way == "progress") {
        exit(kStatus);
    }
    if (g_way == "busy") {
        WaitForEver();
    }
}

void Delayed(int /*delay*/) {
    if (g_way == "delay") {
        exit(kStatus);
    }
}

bool Play() {
    RAVOEnableLoop(true);
    return RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0) && RAVOOutputWaveform(0, Show, Delayed);
}

bool Enter() {
    if (g_state == "loaded") {
        return RAVOGetVersion() != 0;
    }
    if (g_state == "loading") {
        std::thread([] {
            for (;;) {
                g_shown = RAVOLoadWaveformCalibrationMode(1.0, 1.0);
            }
        }).detach();
        WaitUntil(g_shown);
        return true;
    }
    if (g_state == "timeout") {
        return !RAVOConnect(9, 2000);
    }
    if (g_state == "connecting" || g_state == "forsaken") {
        std::thread([] { RAVOConnect(9, 60000); }).detach();
        Sleep(500);
        if (g_state == "forsaken") {
            RAVOFree();
        }
        return true;
    }
    if (!RAVOInit(Hear)) {
        return false;
    }
    if (g_state == "searching") {
        Sleep(300);
        return true;
    }
    WaitUntil(g_connected);
    if (g_state == "connected") {
        return true;
    }
    if (!Play()) {
        return false;
    }
    WaitUntil(g_shown);
    if (g_state == "freed") {
        RAVOFree();
    }
    return true;
}

bool ForkedChildExits() {
    const pid_t child = fork();
    if (child == 0) {
        exit(kStatus);
    }
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) { // the timer signals of the output
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == kStatus &&
           RAVOIsOutputting() == (g_state == "playing");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    g_state = argv[1];
    g_way = argv[2];
    if (!Enter()) {
        return 3;
    }
    if (g_way == "thread") {
        std::thread([] { exit(kStatus); }).detach();
        WaitForEver();
    }
    if (g_way == "stop") {
        std::thread([] {
            Sleep(20); // main is inside RAVOStopOutput by now
            exit(kStatus);
        }).detach();
        RAVOStopOutput();
        WaitForEver();
    }
    if (g_way == "free") {
        g_mayLeave = true;
        RAVOFree();
        WaitForEver();
    }
    if (g_way == "listener" || g_way == "progress" || g_way == "delay") {
        WaitForEver();
    }
    if (g_way == "fork" && !ForkedChildExits()) {
        return 4;
    }
    return kStatus;
}
