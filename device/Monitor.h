#pragma once

#include "platform/Event.h"

#include <cstdint>
#include <map>

// While monitoring is on, a thread looks about once a second whether the system still lists the
// open port; when it does not, it closes the port and calls ReconnectDevice.  The thread lives from
// the loading of the library to its unloading.
//
// A device that goes and comes back under the same name between two looks is not noticed.
class CAutoMonitor {
  public:
    CAutoMonitor();
    // Ends the thread.  Does not wait for the next look, only for one that is under way.
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

// Wakes the connect thread, so that it looks whether the device is still there.  The connection
// manager, which lives above this floor, supplies it.
void ReconnectDevice();

// The registry of handlers for a host's device notifications.  It is only written: hosts that
// deliver such notifications look their handlers up themselves.  Not locked.
using NotifyHandler = void (*)(unsigned int event, unsigned int, unsigned long);
extern std::map<unsigned int, NotifyHandler> g_mapNotifyEvent;

// Replaces the event's handler, and returns the new one.
NotifyHandler RegisterNotifyEvent(unsigned int event, NotifyHandler handler);
