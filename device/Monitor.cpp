#include "device/Monitor.h"

#include "device/Device.h"
#include "platform/ConstructionOrder.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "platform/Unload.h"

#include <ctime>
#include <pthread.h>

int32_t g_bStopMonitor;

RAVO_CONSTRUCT_MONITOR std::map<unsigned int, NotifyHandler> g_mapNotifyEvent;
RAVO_CONSTRUCT_MONITOR CAutoMonitor g_AutoMonitor;

namespace {

constexpr unsigned int kIdlePause = 100;         // for SleepEx: 0.1 ms
constexpr unsigned int kConfirmationPause = 500; // for SleepEx: 0.5 ms
constexpr long kPauseBetweenLooks = 1000200000;  // nanoseconds, what SleepEx makes of 1200
constexpr int kConfirmations = 3;

pthread_mutex_t g_stopMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_stopRequested = PTHREAD_COND_INITIALIZER;

bool IsStopRequested() {
    return LoadShared(g_bStopMonitor) != 0;
}

void RequestStop() {
    pthread_mutex_lock(&g_stopMutex);
    StoreShared(g_bStopMonitor, 1);
    pthread_cond_broadcast(&g_stopRequested);
    pthread_mutex_unlock(&g_stopMutex);
}

// Unloading the library must not have to wait for the end of this pause.
void SleepUntilNextLook() {
    constexpr long kNanosecondsPerSecond = 1000000000;
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    const long nanoseconds = deadline.tv_nsec + kPauseBetweenLooks;
    deadline.tv_sec += nanoseconds / kNanosecondsPerSecond;
    deadline.tv_nsec = nanoseconds % kNanosecondsPerSecond;

    pthread_mutex_lock(&g_stopMutex);
    while (!IsStopRequested() && pthread_cond_clockwait(&g_stopRequested, &g_stopMutex,
                                                        CLOCK_MONOTONIC, &deadline) == 0) {
    }
    pthread_mutex_unlock(&g_stopMutex);
}

// A single check could miss a port that exists, so an absence is confirmed by a second check.
bool IsDevicePresent() {
    bool present = DeviceIsAlive();
    for (int pass = 0; pass < kConfirmations && !IsStopRequested(); ++pass) {
        if (DeviceIsAlive()) {
            return true;
        }
        SleepEx(kConfirmationPause);
    }
    return present;
}

} // namespace

CAutoMonitor::CAutoMonitor() : m_monitoring(false) {
    CreateThread(&m_thread, &MonitorDeviceThread, nullptr);
}

CAutoMonitor::~CAutoMonitor() {
    if (IsForkedChild()) {
        return; // no thread to end; one of the parent's may have held the locks at the fork
    }
    RequestStop();
    m_monitoring.SetEvent();
    if (m_thread != 0) {
        pthread_join(m_thread, nullptr);
    }
}

void CAutoMonitor::StartMonitor() {
    m_monitoring.SetEvent();
}

void CAutoMonitor::PauseMonitor() {
    m_monitoring.ResetEvent();
}

bool CAutoMonitor::IsMonitored() {
    return m_monitoring.WaitTimeout(0) == 0;
}

void* MonitorDeviceThread(void* /*ignored*/) {
    BlockTimerSignals();
    while (!IsStopRequested()) {
        if (!g_AutoMonitor.IsMonitored()) {
            SleepEx(kIdlePause);
            continue;
        }
        const uint32_t opening = DeviceOpening();
        if (IsDevicePresent() && !DeviceIsHungUp()) {
            SleepUntilNextLook();
        } else if (g_AutoMonitor.IsMonitored() && !IsStopRequested()) {
            // Only if monitoring is still on, and only the port that was examined: the thread that
            // switched it off meanwhile may have opened the next port, or the same one again.
            DeviceCloseOpening(opening);
            ReconnectDevice();
            SleepEx(kIdlePause);
        }
    }
    return nullptr;
}

NotifyHandler RegisterNotifyEvent(unsigned int event, NotifyHandler handler) {
    g_mapNotifyEvent[event] = handler;
    return handler;
}
