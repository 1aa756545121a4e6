#include "platform/ThreadEnd.h"

#include <ctime>
#include <new>
#include <pthread.h>

bool JoinThreadWithin(unsigned long thread, unsigned int milliseconds) {
    if (pthread_equal(thread, pthread_self()) != 0) {
        return false;
    }
    constexpr long kNanosecondsPerSecond = 1000000000;
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += static_cast<time_t>(milliseconds / 1000);
    deadline.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000;
    if (deadline.tv_nsec >= kNanosecondsPerSecond) {
        deadline.tv_nsec -= kNanosecondsPerSecond;
        ++deadline.tv_sec;
    }
    return pthread_timedjoin_np(thread, nullptr, &deadline) == 0;
}

void ForgetWaiters(CAutoResetEvent& event) {
    new (&event) CAutoResetEvent(false);
}
