#pragma once

#include "platform/ThreadSafety.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

// The standard library's mutex and condition variable in a form that clang's analysis understands:
// RAVO_GUARDED_BY and RAVO_REQUIRES name such a lock.
namespace lab {

class RAVO_CAPABILITY("mutex") Mutex {
  public:
    void Lock() RAVO_ACQUIRE() { m_mutex.lock(); }
    void Unlock() RAVO_RELEASE() { m_mutex.unlock(); }

  private:
    friend class Condition;
    std::mutex m_mutex;
};

// Holds the lock for the length of a scope.
class RAVO_SCOPED_CAPABILITY MutexGuard {
  public:
    explicit MutexGuard(Mutex& mutex) RAVO_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~MutexGuard() RAVO_RELEASE() { m_mutex.Unlock(); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

  private:
    Mutex& m_mutex;
};

// A wait may end spuriously: the caller holds the lock and checks its condition in a loop. There is
// no wait with a predicate, since the analysis does not see the caller's locks inside a lambda.
class Condition {
  public:
    using Time = std::chrono::steady_clock::time_point;

    void Wait(Mutex& mutex) RAVO_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.m_mutex, std::adopt_lock);
        m_condition.wait(lock);
        lock.release();
    }

    // False once the time is reached.
    bool WaitUntil(Mutex& mutex, Time time) RAVO_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.m_mutex, std::adopt_lock);
        const bool isNotified = m_condition.wait_until(lock, time) == std::cv_status::no_timeout;
        lock.release();
        return isNotified;
    }

    void NotifyOne() { m_condition.notify_one(); }
    void NotifyAll() { m_condition.notify_all(); }

  private:
    std::condition_variable m_condition;
};

} // namespace lab
