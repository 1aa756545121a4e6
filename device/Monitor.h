#pragma once

#include "platform/Event.h"

#include <cstdint>
#include <map>

// While monitoring is on, a thread checks about once a second whether the system still lists the
// open port and has not hung it up; otherwise it closes the port and calls ReconnectDevice.  The
// thread lives from the loading of the library to its unloading.
//
// A name that goes and comes back between two checks is not noticed.
class CAutoMonitor {
  public:
    CAutoMonitor();
    // Ends the thread.  Waits only for a check that is under way.
    ~CAutoMonitor();
    CAutoMonitor(const CAutoMonitor&) = delete;
    CAutoMonitor& operator=(const CAutoMonitor&) = delete;

    void StartMonitor();
    void PauseMonitor();
    bool IsMonitored();

  private:
    unsigned long m_thread = 0;
    CManualResetEvent m_monitoring;
};

extern CAutoMonitor g_AutoMonitor;
extern int32_t g_bStopMonitor; // set when the library is unloaded

// Body of the monitor thread.
void* MonitorDeviceThread(void* ignored);

// Wakes the connect thread, so that it checks whether the device is still present.  Defined by the
// connection manager, one floor above.
void ReconnectDevice();

// The registry of handlers for a host's device notifications.  The library only writes it: hosts
// that deliver such notifications look up their handlers themselves.  Not locked.
using NotifyHandler = void (*)(unsigned int event, unsigned int, unsigned long);
extern std::map<unsigned int, NotifyHandler> g_mapNotifyEvent;

// Replaces the event's handler, and returns the new one.
NotifyHandler RegisterNotifyEvent(unsigned int event, NotifyHandler handler);
