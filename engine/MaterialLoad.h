#pragma once

#include "engine/PlayRaw.h"
#include "engine/Record.h"

// Held by every loader while it replaces the material: output is stopped, and g_CriticalSection
// is held.  The loaders of EDF files and of noise stress tests run without the API lock, so another
// thread of the host may start output after it was stopped and before the lock is taken: it is
// stopped once more.
class RAVO_SCOPED_CAPABILITY CMaterialLoad {
  public:
    CMaterialLoad() RAVO_ACQUIRE(g_CriticalSection) RAVO_UNCHECKED : m_lock(g_CriticalSection) {}
    ~CMaterialLoad() RAVO_RELEASE() RAVO_UNCHECKED {}
    CMaterialLoad(const CMaterialLoad&) = delete;
    CMaterialLoad& operator=(const CMaterialLoad&) = delete;

  private:
    struct OutputStop {
        OutputStop() { StopOutput(); }
    };

    OutputStop m_stopBefore;
    CAutoCriticalSection m_lock;
    OutputStop m_stopAgain;
};
