#pragma once

#include "platform/ThreadSafety.h"

#include <pthread.h>

// A mutex that is not recursive: a thread that locks it twice blocks for ever.
class RAVO_CAPABILITY("mutex") CSimpleCriticalSection {
  public:
    CSimpleCriticalSection();
    ~CSimpleCriticalSection();
    CSimpleCriticalSection(const CSimpleCriticalSection&) = delete;
    CSimpleCriticalSection& operator=(const CSimpleCriticalSection&) = delete;

    // Both return the result of the mutex call, 0 on success.
    int Lock() RAVO_ACQUIRE();
    int Unlock() RAVO_RELEASE();

    // Does not wait; whether it locked.
    bool TryLock() RAVO_TRY_ACQUIRE(true);

  private:
    pthread_mutex_t m_mutex;
};

// Holds the section for the length of a scope.
class RAVO_SCOPED_CAPABILITY CAutoCriticalSection {
  public:
    explicit CAutoCriticalSection(CSimpleCriticalSection& section) RAVO_ACQUIRE(section);
    ~CAutoCriticalSection() RAVO_RELEASE();
    CAutoCriticalSection(const CAutoCriticalSection&) = delete;
    CAutoCriticalSection& operator=(const CAutoCriticalSection&) = delete;

  private:
    CSimpleCriticalSection& m_section;
};
