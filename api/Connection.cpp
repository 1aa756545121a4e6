#include "api/Connection.h"

#include "device/Calibration.h"
#include "device/Device.h"
#include "device/Monitor.h"
#include "device/Protocol.h"
#include "device/Search.h"
#include "device/SearchReport.h"
#include "engine/PlayRaw.h"
#include "engine/Preview.h"
#include "engine/Record.h"
#include "engine/ResponseReader.h"
#include "platform/ConstructionOrder.h"
#include "platform/LastError.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "platform/ThreadEnd.h"
#include "platform/Unload.h"
#include "ravo/ravo.h"

#include <atomic>
#include <chrono>
#include <pthread.h>

RAVO_CONSTRUCT_CONNECTION CAutoResetEvent g_hReconnectEvent(false);
RAVO_CONSTRUCT_CONNECTION CAutoResetEvent g_hConnectedEvent(false);
RAVO_CONSTRUCT_CONNECTION CSimpleCriticalSection g_APICriticalSection;
RAVO_CONSTRUCT_CONNECTION CSimpleCriticalSection g_DebugCS;

int32_t g_nPortNumber = -1;
unsigned long g_hConnectDeviceThread = 0;
int32_t g_bStopConnectDeviceThread = 0;
void (*g_Callback)(bool connected) = nullptr;
int32_t g_bConnected = 0;
int32_t g_bDebugIsOutputting = 0;

namespace {

constexpr unsigned int kDeviceChanged = 537;

// How late a wait for the simulator may notice a connection.  Polling leaves nothing to clean up at
// exit.
constexpr unsigned int kConnectedPollMicroseconds = 2000;

constexpr const char* kListenerCannotWait = "a listener cannot wait for its own thread to connect";

thread_local bool t_isConnectThread = false;

// RAVOFree waits for the connect thread and lends it the API lock meanwhile.
std::atomic<bool> s_lockIsLent{false};

std::atomic<bool> s_connectThreadIsJoined{false}; // set by RAVOFree or at exit
std::atomic<bool> s_listenerRuns{false};
std::atomic<int> s_threadsInConnect{0}; // how many are in the wait of RAVOConnect

bool StopRequested() {
    return LoadShared(g_bStopConnectDeviceThread) != 0 || IsLibraryLeft();
}

void AskConnectThreadToStop() {
    // In this order, so that a thread that notices the stop no longer finds a listener to call.
    StoreShared(g_Callback, nullptr);
    StoreShared(g_bStopConnectDeviceThread, 1);
    ReconnectDevice();
}

void* SetConnectedEvent(void* /*ignored*/) {
    g_hConnectedEvent.SetEvent();
    return nullptr;
}

// A host thread that is still in RAVOConnect's wait when the process exits would hold up the
// destruction of the event, and one that has been woken but has not left the wait yet would use the
// event's mutex afterwards.  It is woken on a separate thread, because a wait that is just timing
// out keeps the event locked for good.
void WakeThreadsInConnect() {
    unsigned long waker = 0;
    if (s_threadsInConnect == 0 || !CreateThread(&waker, SetConnectedEvent, nullptr)) {
        return;
    }
    JoinThreadWithin(waker, kWakePatience);
    for (unsigned int i = 0; i < kWakePatience && s_threadsInConnect > 0; ++i) {
        SleepMicroseconds(1000);
    }
}

bool WaitUntilConnected(unsigned int timeout) {
    ++s_threadsInConnect;
    const int result = g_hConnectedEvent.WaitTimeout(timeout);
    --s_threadsInConnect;
    return result == 0 && !IsLibraryLeft();
}

// False, with the reason, when a connect could not end.
bool IsInitAllowedHere() {
    if (!IsCallAllowedHere()) {
        return false;
    }
    if (IsLibraryLeft()) {
        SetLastFailure(RAVO_ERROR_CLOSING, "the library is shutting down");
        return false;
    }
    return true;
}

bool IsSimulatorKnown() {
    return DeviceIsConnected() && LoadShared(g_bConnected) != 0 && !IsLibraryLeft();
}

// False, with the reason, when nothing that a wait for the simulator could observe will happen.
bool RequireSearch() {
    if (t_isConnectThread) {
        SetLastFailure(RAVO_ERROR_CALLBACK, kListenerCannotWait);
    } else if (LoadShared(g_hConnectDeviceThread) == 0 || StopRequested()) {
        SetLastFailure(RAVO_ERROR_NOT_CONNECTED, "nothing searches for a simulator");
    } else {
        return true;
    }
    return false;
}

void WaitUntilDeviceIsLost() {
    while (!StopRequested()) {
        g_hReconnectEvent.Wait();
        if (!DeviceIsAlive()) {
            DeviceClose();
            return;
        }
    }
}

void ServeConnectedDevice() {
    ReadDeviceHWInfo();
    LoadDACFile();
    NotifyListener(true);
    g_AutoMonitor.StartMonitor();
    WaitUntilDeviceIsLost();
    DeviceClose();
    StopOutputOnClosing();
    g_AutoMonitor.PauseMonitor();
    NotifyListener(false);
}

// Ends the thread when the host has not called RAVOFree, or is inside it on another thread.
void EndConnectThread() {
    // Claimed before the handle is read: RAVOFree clears the handle before it releases the claim.
    const bool beingFreed = s_connectThreadIsJoined.exchange(true);
    const unsigned long thread = LoadShared(g_hConnectDeviceThread);
    if (thread == 0) {
        return;
    }
    if (!beingFreed && LoadShared(g_bConnected) != 0) {
        APClose();
    }
    if (t_isConnectThread) {
        DeviceClose(); // the thread no longer gets this far
    } else if (!beingFreed) {
        const unsigned int patience = s_listenerRuns ? kListenerPatience : kSearchPatience;
        AskConnectThreadToStop();
        JoinThreadWithin(thread, patience);
    }
}

// Waits, for example, for a host thread that is loading material.  Calls made from now on are
// refused.
void WaitUntilExportsAreLeft() {
    for (unsigned int i = 0; i < kExportPatience; ++i) {
        if (g_APICriticalSection.TryLock()) {
            g_APICriticalSection.Unlock();
            return;
        }
        SleepMicroseconds(1000);
    }
}

// Constructed last and so destroyed first: platform/Unload.h describes what it does.  It is defined
// here and not in a unit of its own because a linker takes only those units of a static library to
// which something refers.
class Shutdown {
  public:
    Shutdown() = default;
    ~Shutdown() {
        if (IsForkedChild()) {
            // A forked child: threads and device belong to its parent, and at the time of the fork
            // one of those threads may have been working on the material.
            g_MaterialRelease = MaterialRelease::kNever;
            ForgetWaiters(g_hReconnectEvent);
            ForgetWaiters(g_hConnectedEvent);
            return;
        }
        LeaveLibrary();
        const bool outputHasEnded = EndOutputForGood();
        EndConnectThread();
        WakeThreadsInConnect();
        g_AutoFreeResource.EndCallbackThread();
        ReleaseTimerSignals();
        WaitUntilExportsAreLeft();
        g_MaterialRelease = outputHasEnded && g_CriticalSection.TryLock() ? MaterialRelease::kLocked
                                                                          : MaterialRelease::kNever;
    }
    Shutdown(const Shutdown&) = delete;
    Shutdown& operator=(const Shutdown&) = delete;
};

RAVO_CONSTRUCT_SHUTDOWN const Shutdown s_shutdown;

} // namespace

// ---- Exports -----------------------------------------------------------------------------------

bool RAVOInit(RAVO_LISTENER listener) {
    return RAVOInitPort(-1, listener);
}

bool RAVOInitPort(int port, RAVO_LISTENER listener) {
    if (!IsInitAllowedHere()) {
        return false;
    }
    StoreShared(g_nPortNumber, port);
    return DoInit(listener);
}

bool RAVOConnect(int port, unsigned int timeout) {
    if (t_isConnectThread) {
        SetLastFailure(RAVO_ERROR_CALLBACK, kListenerCannotWait);
        return false;
    }
    if (!IsInitAllowedHere()) {
        return false;
    }
    const bool wasConnected = IsSimulatorKnown();
    StoreShared(g_nPortNumber, port);
    g_hConnectedEvent.ResetEvent();
    if (!DoInit(ConnectedHandler)) {
        return false;
    }
    if (WaitUntilConnected(timeout)) {
        return true;
    }
    RAVOFree();
    if (wasConnected) {
        SetLastFailure(RAVO_ERROR_BUSY,
                       "this process was already connected, and has been disconnected");
    } else {
        SetSearchFailure();
    }
    return false;
}

bool RAVOWaitConnected(unsigned int milliseconds) {
    if (!IsCallAllowedHere()) {
        return false;
    }
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!IsSimulatorKnown()) {
        if (!RequireSearch()) {
            return false;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            SetSearchFailure();
            return false;
        }
        SleepMicroseconds(kConnectedPollMicroseconds);
    }
    return true;
}

void RAVOFree(void) {
    if (t_isConnectThread || IsResponseReader() || IsLibraryLeft() || IsForkedChild()) {
        return; // a callback cannot wait for its own thread
    }
    const CAutoCriticalSection lock(g_APICriticalSection);
    const unsigned long thread = LoadShared(g_hConnectDeviceThread);
    if (thread == 0 || s_connectThreadIsJoined.exchange(true)) {
        return;
    }
    StopOutputOnClosing();
    if (DeviceIsIdentified()) {
        APClose(); // not to a device that has not been identified yet
    }
    AskConnectThreadToStop();
    s_lockIsLent = true;
    pthread_join(thread, nullptr);
    s_lockIsLent = false;
    StoreShared(g_hConnectDeviceThread, 0);
    s_connectThreadIsJoined = false;
}

// ---- Connect thread ----------------------------------------------------------------------------

bool DoInit(void (*listener)(bool connected)) {
    if (!IsInitAllowedHere()) {
        return false;
    }
    const CAutoApiLock lock;
    if (IsLibraryLeft() || s_lockIsLent) {
        SetLastFailure(RAVO_ERROR_CLOSING,
                       "the library is shutting down, or being freed by another thread");
        return false;
    }
    g_hReconnectEvent.ResetEvent();
    StoreShared(g_bStopConnectDeviceThread, 0);
    StoreShared(g_Callback, listener);
    if (LoadShared(g_hConnectDeviceThread) != 0) {
        return true;
    }
    unsigned long thread = 0;
    if (!CreateThread(&thread, ConnectDeviceThread, nullptr)) {
        SetLastFailure(RAVO_ERROR_SYSTEM, "the connect thread cannot be started");
        return false;
    }
    StoreShared(g_hConnectDeviceThread, thread);
    return true;
}

void* ConnectDeviceThread(void* /*ignored*/) {
    BlockTimerSignals();
    t_isConnectThread = true;
    ForgetSearchRounds();
    while (!StopRequested()) {
        if (DeviceConnect(LoadShared(g_nPortNumber), 1)) {
            ServeConnectedDevice();
        } else {
            SleepMicroseconds(10000);
        }
    }
    return nullptr;
}

void ConnectedHandler(bool connected) {
    if (connected) {
        g_hConnectedEvent.SetEvent();
    }
}

void NotifyListener(bool connected) {
    StoreShared(g_bConnected, connected ? 1 : 0);
    const auto listener = LoadShared(g_Callback);
    if (listener != nullptr) {
        s_listenerRuns = true;
        listener(connected);
        s_listenerRuns = false;
    }
}

void ReconnectDevice() {
    g_hReconnectEvent.SetEvent();
}

void WinEventCb(unsigned int event, unsigned int /*ignored*/, unsigned long /*alsoIgnored*/) {
    if (event == kDeviceChanged) {
        ReconnectDevice();
    }
}

bool IsDeviceReady() {
    return DeviceIsConnected() &&
           (LoadShared(g_bConnected) != 0 || LoadShared(g_hConnectDeviceThread) == 0);
}

CAutoApiLock::CAutoApiLock() RAVO_UNCHECKED {
    if (IsLibraryLeft()) {
        return; // the lock may be gone
    }
    if (!t_isConnectThread) {
        g_APICriticalSection.Lock();
        m_locked = true;
        return;
    }
    while (!s_lockIsLent) {
        if (g_APICriticalSection.TryLock()) {
            m_locked = true;
            return;
        }
        SleepMicroseconds(1000);
    }
}

CAutoApiLock::~CAutoApiLock() RAVO_UNCHECKED {
    if (m_locked) {
        g_APICriticalSection.Unlock();
    }
}
