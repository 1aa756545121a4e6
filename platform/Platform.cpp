#include "platform/Platform.h"

#include "platform/ConstructionOrder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <sys/stat.h>
#include <unistd.h>

RAVO_CONSTRUCT_PLATFORM CAutoResetEvent g_hSigUsr1Event(false);
RAVO_CONSTRUCT_PLATFORM CAutoResetEvent g_hSigUsr2Event(false);

namespace {

void SleepFor(timespec remaining) {
    while (nanosleep(&remaining, &remaining) == -1 && errno == EINTR) {
    }
}

// The event is set under its mutex, in signal context: nothing else can wake a waiter.  The threads
// that wait on it keep the signal blocked, so the mutex is never held by the interrupted thread.
void SetFromSignal(CAutoResetEvent& event) {
    const int savedErrno = errno;
    event.SetEvent();
    errno = savedErrno;
}

// The system numbers a process's timers from 0.  That id would be indistinguishable from null, no
// timer, so the first timer is replaced by a second.
bool CreateNumberedTimer(sigevent& notification, timer_t& timer) {
    if (timer_create(CLOCK_REALTIME, &notification, &timer) != 0) {
        return false;
    }
    timer_t const first = timer;
    if (first != nullptr) {
        return true;
    }
    const bool created = timer_create(CLOCK_REALTIME, &notification, &timer) == 0;
    timer_delete(first);
    return created;
}

// All signals except those that a thread causes itself, which belong to the host's crash handler.
sigset_t ForeignSignals() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
        sigdelset(&signals, own);
    }
    return signals;
}

} // namespace

bool CreateThread(unsigned long* thread, void* (*start)(void*), void* argument) {
    // pthread_create may write a handle even when it fails.
    unsigned long started = 0;
    const sigset_t foreign = ForeignSignals();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &foreign, &before); // inherited by the thread
    const bool hasStarted = pthread_create(&started, nullptr, start, argument) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (hasStarted) {
        *thread = started;
    }
    return hasStarted;
}

void CloseThread(unsigned long /*thread*/) {}

bool CloseHandle(long descriptor) {
    return close(static_cast<int>(descriptor)) == 0;
}

void BlockTimerSignals() {
    sigset_t timerSignals;
    sigemptyset(&timerSignals);
    sigaddset(&timerSignals, SIGUSR1);
    sigaddset(&timerSignals, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &timerSignals, nullptr);
}

void SleepEx(unsigned int milliseconds) {
    timespec duration{};
    duration.tv_sec = static_cast<time_t>(milliseconds / 1000);
    duration.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000;
    SleepFor(duration);
}

void SleepMicroseconds(unsigned int microseconds) {
    timespec duration{};
    duration.tv_sec = static_cast<time_t>(microseconds / 1000000);
    duration.tv_nsec = static_cast<long>(microseconds % 1000000) * 1000;
    SleepFor(duration);
}

void onSigUsr1Timer(int /*signal*/, siginfo_t* /*information*/, void* /*context*/) {
    SetFromSignal(g_hSigUsr1Event);
}

void onSigUsr2Timer(int /*signal*/, siginfo_t* /*information*/, void* /*context*/) {
    SetFromSignal(g_hSigUsr2Event);
}

void TimerSetHandler(int signal, void (*handler)(int, siginfo_t*, void*)) {
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

void ReleaseTimerSignals() {
    for (const int number : {SIGUSR1, SIGUSR2}) {
        const auto handler = number == SIGUSR1 ? onSigUsr1Timer : onSigUsr2Timer;
        struct sigaction current {};
        sigaction(number, nullptr, &current);
        if ((current.sa_flags & SA_SIGINFO) != 0 && current.sa_sigaction == handler) {
            signal(number, SIG_IGN);
        }
    }
}

void* CreateNewTimer(unsigned int milliseconds, unsigned int& signal) {
    if (signal == SIGUSR1) {
        TimerSetHandler(SIGUSR1, onSigUsr1Timer);
    } else if (signal == SIGUSR2) {
        TimerSetHandler(SIGUSR2, onSigUsr2Timer);
    }

    timer_t timer = nullptr;
    sigevent notification{};
    notification.sigev_notify = SIGEV_SIGNAL;
    notification.sigev_signo = static_cast<int>(signal);
    notification.sigev_value.sival_ptr = &timer;
    if (!CreateNumberedTimer(notification, timer)) {
        return nullptr;
    }

    itimerspec schedule{};
    schedule.it_interval.tv_sec = static_cast<time_t>(milliseconds / 1000);
    schedule.it_interval.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    schedule.it_value = schedule.it_interval;
    timer_settime(timer, 0, &schedule, nullptr);
    return timer;
}

int DeleteTimer(unsigned int /*ignored*/, void*& timer) {
    return timer != nullptr ? timer_delete(timer) : -1;
}

bool CreateDirectory(const char* path, void* /*ignored*/) {
    if (path != nullptr) {
        mkdir(path, S_IRWXU | S_IRWXG | S_IRWXO);
    }
    return true;
}

unsigned int GetTempPath(unsigned int size, char* buffer) {
    if (buffer == nullptr) {
        return 0;
    }
    strncpy(buffer, "/tmp", size);
    return static_cast<unsigned int>(strlen(buffer));
}

unsigned int GetTempFileName(const char* directory, const char* prefix, unsigned int /*ignored*/,
                             char* fileName) {
    if (directory == nullptr || prefix == nullptr || fileName == nullptr) {
        return 0;
    }
    strcpy(fileName, directory);
    strcat(fileName, "/");
    strcat(fileName, prefix);
    strcat(fileName, "XXX");
    // Only a prefix that itself ends in three X makes a file; it stays, empty, for the caller.
    const int descriptor = mkstemp(fileName);
    if (descriptor != -1) {
        close(descriptor);
    }
    return static_cast<unsigned int>(strlen(fileName));
}

int strncpy_s(char* destination, unsigned long size, const char* source, unsigned long count) {
    if (destination == nullptr || source == nullptr || size == 0) {
        return -1;
    }
    if (count == 0) {
        destination[0] = '\0';
        return 0;
    }
    const size_t length = strlen(source);
    const size_t copied = length < count ? length + 1 : count;
    const bool fits = length < count ? length < size : count < size;
    if (!fits) {
        return -1;
    }
    memcpy(destination, source, copied);
    destination[copied - 1] = '\0';
    return 0;
}
