#include "engine/PlayRaw.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "engine/Output.h"
#include "engine/OutputPosition.h"
#include "engine/PlayThread.h"
#include "engine/Prepare.h"
#include "engine/Preview.h"
#include "engine/Record.h"
#include "engine/ResponseReader.h"
#include "engine/Settings.h"
#include "engine/Wire.h"
#include "platform/LastError.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "platform/ThreadEnd.h"
#include "platform/Unload.h"

#include <mutex>
#include <pthread.h>

namespace {

// Held while the output threads are started and while they are ended: a host that stops under the
// engine lock and the connect thread that stops after a loss, without it, take turns here, so that
// no thread is joined twice and neither of them returns before the threads have ended.
std::mutex s_startStopLock;

int32_t s_bEndedForGood = 0;

// ---- Threads -----------------------------------------------------------------------------------

// The handle is stored in a single write, because the response reader reads that of the play
// thread.
bool StartOutputThread(unsigned long& handle, void* (*body)(void*)) {
    unsigned long thread = 0;
    if (!CreateThread(&thread, body, nullptr)) {
        return false;
    }
    StoreShared(handle, thread);
    return true;
}

void JoinOutputThread(unsigned long& handle) {
    const unsigned long thread = LoadShared(handle);
    if (thread != 0) {
        pthread_join(thread, nullptr);
        StoreShared(handle, 0);
    }
}

void JoinOutputThreads() {
    JoinOutputThread(g_hPlayThread);
    JoinOutputThread(g_hReceiveThread);
    JoinOutputThread(g_hOutputThread);
}

bool JoinOutputThreadWithin(unsigned long& handle, unsigned int milliseconds) {
    const unsigned long thread = LoadShared(handle);
    if (thread != 0) {
        if (!JoinThreadWithin(thread, milliseconds)) {
            return false;
        }
        StoreShared(handle, 0);
    }
    return true;
}

// Without a timed lock, because the thread sanitizer does not know its wait.
std::unique_lock<std::mutex> LockStartStopWithin(unsigned int milliseconds) {
    std::unique_lock<std::mutex> lock(s_startStopLock, std::try_to_lock);
    for (; !lock.owns_lock() && milliseconds > 0; --milliseconds) {
        SleepMicroseconds(1000);
        lock.try_lock();
    }
    return lock;
}

bool StartOutputThreads() {
    if (StartOutputThread(g_hReceiveThread, ReadNotifyThread) &&
        StartOutputThread(g_hPlayThread, PlayRawDataThread) &&
        StartOutputThread(g_hOutputThread, OutputSignalThread)) {
        return true;
    }
    g_hForceStopPlayEvent.SetEvent();
    JoinOutputThread(g_hPlayThread);
    g_hStopReceiveEvent.SetEvent();
    JoinOutputThreads();
    StoreShared(g_nDeviceReadTimeout, kIdleReadTimeout);
    return false;
}

// ---- Start -------------------------------------------------------------------------------------

bool SendStartCommand() {
    const bool isISPSupported = LoadShared(g_bIsISPSupported) != 0;
    const unsigned int reload = SampleClockReload(g_WaveformType, g_nSampleRate, isISPSupported);
    unsigned char command[kStartCommandSize];
    FormStartCommand(reload, LoadShared(g_fVoltageRange), command);
    DiscardEarlierResponses();
    if (DeviceWriteData(command, kStartCommandSize, 0) == 0) {
        SetLastFailure(RAVO_ERROR_REFUSED, "the simulator did not accept the start command");
        return false;
    }
    BeginOutputPosition(MonotonicNanoseconds(), SampleClockRate(reload, isISPSupported),
                        static_cast<uint32_t>(FramesPerPacket() * kPacketsPerBuffer));
    return true;
}

// Nothing plays.
int StartOutput(int startSecond, const OnceRun& once,
                void (*outputCallback)(double, double, double*, bool), void (*delayCallback)(int))
    RAVO_REQUIRES(g_CriticalSection) {
    if (!SendStartCommand()) {
        return 0;
    }
    StoreShared(g_OutputSignalCB, outputCallback);
    StoreShared(g_OutputDelayCB, delayCallback);
    g_nStartPosition = StartPosition(startSecond);
    g_OnceRun = once;
    if (!RunPlayThread()) {
        SetLastFailure(RAVO_ERROR_SYSTEM, "the threads of the output cannot be started");
        NotifyToStopOutputing(); // it was started, but no thread would answer its requests
        return 0;
    }
    SleepMicroseconds(100000);
    return 1;
}

bool IsPlayable() RAVO_REQUIRES(g_CriticalSection) {
    if (IsResponseReader()) {
        SetLastFailure(RAVO_ERROR_CALLBACK, "output cannot start on the delay callback");
    } else if (g_WaveformType == MATERIAL_NONE || g_nSampleRate == 0) {
        SetLastFailure(RAVO_ERROR_NOTHING_LOADED, "no material is loaded");
    } else if (ValidateECGData() == 0) {
        SetLastFailure(RAVO_ERROR_NO_LEAD, "no signal of the material feeds an output lead");
    } else if (!DeviceIsConnected()) {
        SetLastFailure(RAVO_ERROR_NOT_CONNECTED, "no simulator is connected");
    } else {
        return true;
    }
    return false;
}

} // namespace

int OutputWaveform(int startSecond,
                   void (*outputCallback)(double time, double recordTime, double* leads, bool end),
                   void (*delayCallback)(int delay)) {
    const CAutoCriticalSection lock(g_CriticalSection);
    StopOutput();
    return IsPlayable() ? StartOutput(startSecond, OnceRun(), outputCallback, delayCallback) : 0;
}

int OutputOnce(int startSecond, double seconds,
               void (*outputCallback)(double time, double recordTime, double* leads, bool end),
               void (*delayCallback)(int delay)) {
    const CAutoCriticalSection lock(g_CriticalSection);
    StopOutput();
    OnceRun once;
    once.isOn = true;
    if (!IsPlayable()) {
        return 0;
    }
    g_nNoiseCurrent = 0; // so that a repeated play is identical
    once.frames = FramesDueOnce(startSecond, seconds);
    if (once.frames == 0) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "nothing to play at second %d for %g s", startSecond,
                       seconds);
    }
    return once.frames != 0 ? StartOutput(startSecond, once, outputCallback, delayCallback) : 0;
}

void StopOutput() {
    StopOutputOnClosing();
}

void StopOutputOnClosing() {
    if (IsResponseReader()) {
        g_hStopPlayEvent.SetEvent();
        return;
    }
    const std::lock_guard<std::mutex> lock(s_startStopLock);
    g_hStopPlayEvent.SetEvent();
    JoinOutputThreads();
    EmptyOutputSignalData();
}

bool IsOutputting() {
    const CAutoCriticalSection lock(g_CriticalSection);
    return LoadShared(g_bIsOutputting) != 0;
}

bool EndOutputForGood() {
    StoreShared(s_bEndedForGood, 1);
    g_hStopPlayEvent.SetEvent();
    if (IsResponseReader()) {
        // No thread is left to read the request at which the play thread would end, and the holder
        // of the lock may be waiting for the current thread.
        g_hForceStopPlayEvent.SetEvent();
        return false;
    }
    const std::unique_lock<std::mutex> lock = LockStartStopWithin(kStopPatience);
    if (!lock.owns_lock()) {
        return false;
    }
    if (!JoinOutputThreadWithin(g_hPlayThread, kStopPatience)) {
        g_hForceStopPlayEvent.SetEvent();
        JoinOutputThreadWithin(g_hPlayThread, kForcedPatience);
    }
    JoinOutputThreadWithin(g_hReceiveThread, kForcedPatience);
    JoinOutputThreadWithin(g_hOutputThread, kForcedPatience);
    return g_hPlayThread == 0 && g_hReceiveThread == 0 && g_hOutputThread == 0;
}

bool RunPlayThread() {
    const std::lock_guard<std::mutex> lock(s_startStopLock);
    JoinOutputThreads();
    EmptyOutputSignalData();
    g_nSampleCurrent = g_nStartPosition;
    g_hStopPlayEvent.ResetEvent();
    g_hForceStopPlayEvent.ResetEvent();
    g_hStopReceiveEvent.ResetEvent();
    g_hSendEvent.ResetEvent();
    if (LoadShared(s_bEndedForGood) != 0) {
        return false;
    }
    // Before the first read of the reader, which would otherwise wait for a whole second while the
    // simulator's first request is pending.
    StoreShared(g_nDeviceReadTimeout, kStreamingReadTimeout);
    ForgetSilence();
    StoreShared(g_bIsOutputting, 1);
    if (!StartOutputThreads()) {
        StoreShared(g_bIsOutputting, 0);
        return false;
    }
    g_hSendEvent.SetEvent();
    return true;
}
