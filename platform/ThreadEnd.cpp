#include "platform/ThreadEnd.h"

#include "platform/Platform.h"

#include <cerrno>
#include <chrono>
#include <new>
#include <pthread.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int kMicrosecondsBetweenLooks = 200;

} // namespace

bool JoinThreadWithin(unsigned long thread, unsigned int milliseconds) {
    if (pthread_equal(thread, pthread_self()) != 0) {
        return false;
    }
    // The clock of a timed join can be set: setting it forward would end the wait at once, setting
    // it back would prolong it.
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    int result = pthread_tryjoin_np(thread, nullptr);
    while (result == EBUSY && Clock::now() < deadline) {
        SleepMicroseconds(kMicrosecondsBetweenLooks);
        result = pthread_tryjoin_np(thread, nullptr);
    }
    return result == 0;
}

void ForgetWaiters(CAutoResetEvent& event) {
    new (&event) CAutoResetEvent(false);
}
