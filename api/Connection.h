#pragma once

// The connection manager behind RAVOInit, RAVOConnect and RAVOFree: the connect thread, which finds
// the simulator, calls the listener, waits for the loss and starts over.

#include "engine/Record.h"
#include "platform/Event.h"
#include "platform/SimpleCriticalSection.h"

#include <cstdint>

extern CAutoResetEvent g_hReconnectEvent; // to check again whether the device is there
extern CAutoResetEvent g_hConnectedEvent; // RAVOConnect's wait is over

// The API lock: every export that touches shared state holds it, before any other lock.
extern CSimpleCriticalSection g_APICriticalSection RAVO_ACQUIRED_BEFORE(g_CriticalSection);
extern CSimpleCriticalSection g_DebugCS;

extern int32_t g_nPortNumber;                // N of /dev/ttyACMN; -1 searches
extern unsigned long g_hConnectDeviceThread; // 0 while none runs
extern int32_t g_bStopConnectDeviceThread;
extern void (*g_Callback)(bool connected);
extern int32_t g_bConnected; // the state last reported to the listener
extern int32_t g_bDebugIsOutputting;

// Installs the listener and starts the connect thread if none runs.  False when no thread can be
// started, and while RAVOFree waits for the connect thread or the library is being left.
bool DoInit(void (*listener)(bool connected));

// Body of the connect thread.
void* ConnectDeviceThread(void* ignored);

// The listener of RAVOConnect.
void ConnectedHandler(bool connected);

void NotifyListener(bool connected);

// Makes the connect thread look again whether the device is there.  Called by the monitor.
void ReconnectDevice();

// A handler for RegisterNotifyEvent; acts on device changes only.
void WinEventCb(unsigned int event, unsigned int ignored, unsigned long alsoIgnored);

// Whether a port is open that is known to hold the simulator: not while the connect thread is still
// identifying the device.
bool IsDeviceReady();

// Holds the API lock for one exported call.
//
// To the analysis it always locks: what it guards may be touched in its scope.
//
// RAVOFree holds that lock while it waits for the connect thread.  A listener that called the
// library just then would wait for RAVOFree, and RAVOFree for the listener; so RAVOFree lends its
// lock to the connect thread meanwhile.
class RAVO_SCOPED_CAPABILITY CAutoApiLock {
  public:
    CAutoApiLock() RAVO_ACQUIRE(g_APICriticalSection);
    ~CAutoApiLock() RAVO_RELEASE();
    CAutoApiLock(const CAutoApiLock&) = delete;
    CAutoApiLock& operator=(const CAutoApiLock&) = delete;

  private:
    bool m_locked = false;
};
