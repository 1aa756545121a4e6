#include "platform/Event.h"

#include <cstdint>
#include <ctime>
#include <unistd.h>

namespace {

// Unlocks however the scope is left, even by cancellation, unless told to keep the mutex.
class MutexGuard {
  public:
    explicit MutexGuard(pthread_mutex_t& mutex) : m_mutex(&mutex) { pthread_mutex_lock(m_mutex); }
    ~MutexGuard() {
        if (m_mutex != nullptr) {
            pthread_mutex_unlock(m_mutex);
        }
    }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    int Unlock() {
        pthread_mutex_t* mutex = m_mutex;
        m_mutex = nullptr;
        return pthread_mutex_unlock(mutex);
    }
    void KeepLocked() { m_mutex = nullptr; }

  private:
    pthread_mutex_t* m_mutex;
};

// The sub-second part is a count of microseconds stored as nanoseconds, and "now" is cut to the
// whole second.  Compatibility: hosts choose their time-outs for RAVOConnect by this.
timespec WholeSecondDeadline(unsigned int milliseconds) {
    const unsigned int microseconds = milliseconds * 1000U;
    timespec deadline{};
    deadline.tv_sec = time(nullptr) + static_cast<time_t>(microseconds / 1000000U);
    deadline.tv_nsec = static_cast<long>(microseconds % 1000000U);
    return deadline;
}

timespec ExactDeadline(unsigned int milliseconds) {
    constexpr int64_t kNanosecondsPerSecond = 1000000000;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t nanoseconds = int64_t{now.tv_nsec} + int64_t{milliseconds} * 1000000;
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    deadline.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
    return deadline;
}

bool IsPast(const timespec& deadline) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec > deadline.tv_sec ||
           (now.tv_sec == deadline.tv_sec && now.tv_nsec > deadline.tv_nsec);
}

int LockAndReset(pthread_mutex_t& mutex, bool& signalled) {
    MutexGuard guard(mutex);
    signalled = false;
    return guard.Unlock();
}

// Returns 0 with the guard's mutex held and the flag seen, or the time-out with the mutex kept
// locked for good.
int WaitUntilDeadline(MutexGuard& guard, pthread_mutex_t& mutex, pthread_cond_t& condition,
                      const bool& signalled, const timespec& deadline) {
    while (!signalled) {
        if (pthread_cond_timedwait(&condition, &mutex, &deadline) == kWaitTimedOut) {
            guard.KeepLocked();
            return kWaitTimedOut;
        }
    }
    return 0;
}

} // namespace

CAutoResetEvent::CAutoResetEvent(bool signalled) : m_signalled(signalled) {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_cond_init(&m_condition, nullptr);
}

CAutoResetEvent::~CAutoResetEvent() {
    pthread_mutex_destroy(&m_mutex);
    pthread_cond_destroy(&m_condition);
}

int CAutoResetEvent::SetEvent() {
    MutexGuard guard(m_mutex);
    m_signalled = true;
    guard.Unlock();
    return pthread_cond_signal(&m_condition);
}

int CAutoResetEvent::ResetEvent() {
    return LockAndReset(m_mutex, m_signalled);
}

int CAutoResetEvent::Wait() {
    MutexGuard guard(m_mutex);
    while (!m_signalled) {
        pthread_cond_wait(&m_condition, &m_mutex);
    }
    m_signalled = false;
    return guard.Unlock();
}

int CAutoResetEvent::WaitTimeout(unsigned int milliseconds) {
    if (milliseconds == 0) {
        MutexGuard guard(m_mutex);
        const int result = m_signalled ? 0 : kWaitTimedOut;
        m_signalled = false;
        return result;
    }
    const timespec deadline = WholeSecondDeadline(milliseconds);
    MutexGuard guard(m_mutex);
    const int result = WaitUntilDeadline(guard, m_mutex, m_condition, m_signalled, deadline);
    if (result == 0) {
        m_signalled = false;
    }
    return result;
}

CManualResetEvent::CManualResetEvent(bool signalled) : m_signalled(signalled) {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_cond_init(&m_condition, nullptr);
}

int CManualResetEvent::SetEvent() {
    MutexGuard guard(m_mutex);
    m_signalled = true;
    pthread_cond_signal(&m_condition);
    return guard.Unlock();
}

int CManualResetEvent::ResetEvent() {
    return LockAndReset(m_mutex, m_signalled);
}

int CManualResetEvent::Wait() {
    MutexGuard guard(m_mutex);
    while (!m_signalled) {
        pthread_cond_wait(&m_condition, &m_mutex);
    }
    return guard.Unlock();
}

int CManualResetEvent::WaitTimeout(unsigned int milliseconds) {
    if (milliseconds == 0) {
        MutexGuard guard(m_mutex);
        return m_signalled ? 0 : kWaitTimedOut;
    }
    const timespec deadline = WholeSecondDeadline(milliseconds);
    MutexGuard guard(m_mutex);
    return WaitUntilDeadline(guard, m_mutex, m_condition, m_signalled, deadline);
}

int WaitForSingleObject(CEvent* event, unsigned int milliseconds) {
    return event->WaitTimeout(milliseconds);
}

int WaitForMultipleObjects(unsigned int count, CEvent** events, int waitAll,
                           unsigned int milliseconds) {
    if (waitAll != 0) {
        return kWaitTimedOut;
    }
    const bool bounded = milliseconds != kWaitForever;
    const timespec deadline = bounded ? ExactDeadline(milliseconds) : timespec{};
    for (;;) {
        for (unsigned int i = 0; i < count; ++i) {
            if (events[i]->WaitTimeout(0) == 0) {
                return static_cast<int>(i);
            }
        }
        if (bounded && IsPast(deadline)) {
            return kWaitTimedOut;
        }
        usleep(0);
    }
}
