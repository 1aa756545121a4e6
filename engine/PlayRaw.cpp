#include "engine/PlayRaw.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "engine/OutputPosition.h"
#include "engine/Packet.h"
#include "engine/Prepare.h"
#include "engine/Preview.h"
#include "engine/Record.h"
#include "platform/ConstructionOrder.h"
#include "platform/LastError.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "platform/ThreadEnd.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <exception>
#include <limits>
#include <mutex>
#include <pthread.h>

unsigned long g_hPlayThread = 0;
unsigned long g_hReceiveThread = 0;
unsigned long g_hOutputThread = 0;

RAVO_CONSTRUCT_ENGINE CManualResetEvent g_hStopPlayEvent(false);
RAVO_CONSTRUCT_ENGINE CManualResetEvent g_hForceStopPlayEvent(false);
RAVO_CONSTRUCT_ENGINE CManualResetEvent g_hStopReceiveEvent(false);
RAVO_CONSTRUCT_ENGINE CAutoResetEvent g_hSendEvent(false);

int32_t g_bIsOutputting = 0;
void* g_hOutputDataTimer = nullptr;
void (*g_OutputDelayCB)(int delay) = nullptr;

namespace {

// Held while the output threads are started and while they are ended: a host that stops under the
// engine lock and the connect thread that stops after a loss, without it, take turns here, so that
// no thread is joined twice and neither returns before the threads are gone.
std::mutex s_startStopLock;

int32_t s_bEndedForGood = 0;
int64_t s_nLastResponseTime = 0; // MonotonicNanoseconds
int64_t s_nSilence = 0;          // without any response, in nanoseconds
int64_t s_nSilenceOfRequests = 0;
thread_local bool t_isResponseReader = false;

constexpr unsigned int kStreamingReadTimeout = 0; // the reader polls
constexpr unsigned int kIdleReadTimeout = 1000;
constexpr unsigned int kWriteTimeout = 2000;

// Silence is what the response reader has looked for responses in vain.  Of the time between two
// looks no more than this counts: a process that was stopped, or a reader that was busy in the
// host's delay callback, has not looked, and what came meanwhile waits to be read.
constexpr int64_t kLongestLook = 100000000; // nanoseconds

// A simulator asks every 2.8 s at its slowest clock.
constexpr int64_t kSilence = 10000000000; // nanoseconds

constexpr int kReadSize = 32;

constexpr unsigned int kDisplayTimerMilliseconds = 10;
constexpr int kDisplayTicksPerSecond = 50;

// At an absurd rate one tick asks for millions of records, for which no stop is to wait; at a rate
// that is played a tick asks for fewer than this.
constexpr int64_t kRecordsBetweenLooks = 10000;

// At exit: what a stop takes at the slowest clock, and what it takes when forced.
constexpr unsigned int kPatienceMilliseconds = 5000;
constexpr unsigned int kForcedPatienceMilliseconds = 4000;

bool IsSignalled(CEvent& event) {
    return event.WaitTimeout(0) == 0;
}

// ---- Playing once ------------------------------------------------------------------------------

// The run that plays its material once; what is set before the threads start stays until they end.
struct OnceRun {
    bool isOn = false;
    uint64_t frames = 0;     // due; without end UINT64_MAX
    int32_t hasFinished = 0; // set by the play thread before the stop event
};
OnceRun s_once;

uint32_t FramesPerSecond() {
    return g_WaveformType == WAVEFORM_TYPE_TARNWICK ? kTarnwickFramesPerSecond : g_nSampleRate;
}

// Frames from the material's beginning to its end.
uint64_t FramesOfMaterial() {
    if (g_WaveformType >= kFirstPeriodicType) {
        return UINT64_MAX;
    }
    if (g_WaveformType == WAVEFORM_TYPE_TARNWICK) {
        return (g_nSampleCount * kTarnwickFramesPerSecond + g_nSampleRate - 1) / g_nSampleRate;
    }
    return g_nSampleCount;
}

// The frames of `seconds`, at least one; a double holds that many exactly.
uint64_t FramesOf(double seconds) {
    constexpr double kMost = 9007199254740992.0;
    return static_cast<uint64_t>(std::clamp(std::round(seconds * FramesPerSecond()), 1.0, kMost));
}

// The frames due from a start second on; 0 when there are none.
uint64_t FramesDueOnce(int startSecond, double seconds) {
    if (startSecond < 0 || !(seconds >= 0.0)) {
        return 0;
    }
    const uint64_t start = uint64_t{FramesPerSecond()} * static_cast<uint64_t>(startSecond);
    const uint64_t end = FramesOfMaterial();
    if (start >= end || start > std::numeric_limits<uint32_t>::max()) {
        return 0;
    }
    const uint64_t left = end == UINT64_MAX ? end : end - start;
    return seconds == 0.0 ? left : std::min(left, FramesOf(seconds));
}

// ---- Start -------------------------------------------------------------------------------------

// The position of a start second, which wraps at 32 bits.  Seconds outside the record that would
// come to lie inside it that way start at the last position instead, and stay outside.
uint32_t StartPosition(int second) {
    constexpr uint32_t kLastPosition = std::numeric_limits<uint32_t>::max();
    const int64_t position = int64_t{FramesPerSecond()} * second;
    const auto wrapped = static_cast<uint32_t>(position);
    return wrapped != position && wrapped < g_nSampleCount ? kLastPosition : wrapped;
}

// What the simulator sent before it was told to start answers to nothing of this output; a request
// among it would count as the first one.
void DiscardEarlierResponses() {
    unsigned char responses[kReadSize];
    StoreShared(g_nDeviceReadTimeout, kStreamingReadTimeout);
    while (DeviceReadData(responses, kReadSize) > 0) {
    }
    StoreShared(g_nDeviceReadTimeout, kIdleReadTimeout);
}

bool SendStartCommand() {
    const bool isISPSupported = LoadShared(g_bIsISPSupported) != 0;
    const unsigned int reload = SampleClockReload(g_WaveformType, g_nSampleRate, isISPSupported);
    const unsigned int range = OutputRangeByte(LoadShared(g_fVoltageRange));
    unsigned char command[4] = {0x00, static_cast<unsigned char>(reload >> 8),
                                static_cast<unsigned char>(reload),
                                static_cast<unsigned char>(range)};
    DiscardEarlierResponses();
    if (DeviceWriteData(command, sizeof command, 0) == 0) {
        SetLastFailure(RAVO_ERROR_REFUSED, "the simulator does not take the start command");
        return false;
    }
    BeginOutputPosition(MonotonicNanoseconds(), SampleClockRate(reload, isISPSupported),
                        static_cast<uint32_t>(FramesPerPacket() * kPacketsPerBuffer));
    return true;
}

// ---- Threads -----------------------------------------------------------------------------------

// The handle is stored whole: the response reader looks at the play thread's.
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

// Without a timed lock, whose wait the thread sanitizer does not know.
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

// ---- Play --------------------------------------------------------------------------------------

// One run of the play thread.
class Play {
  public:
    void Run() {
        while (m_more != 0) {
            // A stop is carried out at the simulator's next request, so that the buffer in flight
            // completes; once noted it is not waited on any more.
            switch (WaitForMultipleObjects(m_stopping ? 2 : 3, m_events, 0, 0)) {
            case kForceStop:
                End();
                break;
            case kSend:
                AnswerRequest();
                break;
            case kStop:
                m_stopping = true;
                break;
            default:
                EndWhenDeviceIsGone();
                SleepEx(10);
                break;
            }
        }
    }

  private:
    enum Wake { kForceStop, kSend, kStop };

    // Every end but that of the material, which the preview reaches by itself: the preview ends
    // with the play.
    void End() {
        m_more = 0;
        g_hStopPlayEvent.SetEvent();
    }

    void AnswerRequest() {
        if (HasPlayedOnce()) {
            StoreShared(s_once.hasFinished, 1);
            m_stopping = true;
        }
        if (m_stopping) {
            NotifyToStopOutputing();
            End();
            return;
        }
        const int written = SendBuffer();
        if (written == 0) {
            End();
        }
        ++m_buffers;
        CountFramesSent(static_cast<size_t>(written) / kPacketSize * FramesPerPacket());
        m_stopping = IsSignalled(g_hStopPlayEvent);
    }

    int SendBuffer() {
        return s_once.isOn ? SendPacketOnce(m_sequence, m_once) : SendPacket(m_sequence, m_more);
    }

    // The request that comes after n buffers proves that n - 1 of them have been played.
    bool HasPlayedOnce() const {
        return s_once.isOn && m_buffers > 0 &&
               (m_buffers - 1) * kPacketsPerBuffer * FramesPerPacket() >= s_once.frames;
    }

    // A simulator that stays on the bus but has fallen silent is as good as gone: without this it
    // would hold whoever stops the output, and with it the host, for ever.
    void EndWhenDeviceIsGone() {
        if (!DeviceIsConnected() || Silence() >= kSilence) {
            End();
        }
    }

    // A stop waits for a request; to it, whatever else the simulator sends is silence.
    int64_t Silence() const { return LoadShared(m_stopping ? s_nSilenceOfRequests : s_nSilence); }

    CEvent* m_events[3] = {&g_hForceStopPlayEvent, &g_hSendEvent, &g_hStopPlayEvent};
    int m_more = 1;
    bool m_stopping = false;
    unsigned char m_sequence = 0;
    uint64_t m_buffers = 0; // sent
    FRAMES_ONCE m_once{s_once.frames, {}};
};

// ---- Responses ---------------------------------------------------------------------------------

class SilenceCounter {
  public:
    void Look(int64_t now, bool found) {
        const int64_t passed = std::min(now - m_lastLook, kLongestLook);
        m_lastLook = now;
        StoreShared(s_nSilence, found ? 0 : LoadShared(s_nSilence) + passed);
        StoreShared(s_nSilenceOfRequests, LoadShared(s_nSilenceOfRequests) + passed);
    }

  private:
    int64_t m_lastLook = MonotonicNanoseconds();
};

// ---- Display -----------------------------------------------------------------------------------

// One run of the display stream.  It keeps a position of its own and asks for 20 ms of material
// every 10 ms: it runs at twice real time on purpose, and so reaches the end of a record, which
// ends the output, when half of it has played.
class DisplayStream {
  public:
    void Run() {
        CEvent* events[] = {&g_hStopPlayEvent, &g_hSigUsr2Event};
        while (WaitForMultipleObjects(2, events, 0, kWaitForever) != 0) {
            if (!EmitTick()) {
                return;
            }
        }
        EmitStop();
    }

  private:
    // Emits the records of one timer tick; false when the record has ended.
    bool EmitTick() {
        const uint32_t rate = g_nSampleRate;
        for (int64_t n = RecordsOfNextTick(rate); n > 0 && WaitForRoom(); --n) {
            if (n % kRecordsBetweenLooks == 0 && IsSignalled(g_hStopPlayEvent)) {
                return true;
            }
            if (!EmitRecord(rate)) {
                return false;
            }
        }
        return true;
    }

    // A host that does not keep up, or a rate that no host keeps up with, must not take all memory.
    // False when output is to stop meanwhile.
    static bool WaitForRoom() {
        while (!OutputSignalDataHasRoom()) {
            if (IsSignalled(g_hStopPlayEvent)) {
                return false;
            }
            SleepMicroseconds(1000);
        }
        return true;
    }

    // The record that says that the output was stopped, at the position reached.
    void EmitStop() {
        const uint32_t rate = g_nSampleRate;
        const uint64_t position = IsAtEndOfRecord() ? g_nSampleCount : m_position;
        PrepareSignalDataAt(static_cast<int64_t>(m_position), m_leads);
        Emit(rate, static_cast<double>(position) / rate, true);
    }

    // Runs of 50 ticks ask for exactly `rate` records; the very first tick comes on top.
    int64_t RecordsOfNextTick(uint32_t rate) {
        const auto recordsUntil = [rate](int tick) {
            return static_cast<int64_t>(static_cast<double>(tick) * rate * 0.02);
        };
        const int64_t n = recordsUntil(m_tick) - recordsUntil(m_tick - 1);
        m_tick = m_tick % kDisplayTicksPerSecond + 1;
        return n;
    }

    bool EmitRecord(uint32_t rate) {
        // Taken before a rewind: the first record after it is shown at 0, wherever it starts.
        const double recordTime = PositionInRecord() / rate;
        if (IsAtEndOfRecord()) {
            if (LoadShared(g_bPlayLoop) == 0) {
                std::fill(std::begin(m_leads), std::end(m_leads), 0.0);
                Emit(rate, static_cast<double>(g_nSampleCount) / rate, true);
                return false;
            }
            m_position = g_nStartPosition;
        }
        PrepareSignalDataAt(static_cast<int64_t>(m_position), m_leads);
        Emit(rate, recordTime, false);
        ++m_emitted;
        ++m_position;
        return true;
    }

    // Periodic waveforms have no end, and a position that only grows.
    static bool HasEnd() { return g_WaveformType < kFirstPeriodicType && g_nSampleCount != 0; }
    bool IsAtEndOfRecord() const {
        return HasEnd() && m_position != 0 && m_position % g_nSampleCount == 0;
    }
    double PositionInRecord() const {
        return static_cast<double>(HasEnd() ? m_position % g_nSampleCount : m_position);
    }

    void Emit(uint32_t rate, double recordTime, bool end) {
        if (end) {
            StoreShared(g_bIsOutputting, 0);
        }
        AppendOutputSignalData(static_cast<double>(m_emitted) / rate, recordTime, m_leads, end);
    }

    uint64_t m_position = g_nStartPosition;
    uint64_t m_emitted = 0;
    int m_tick = 0;
    double m_leads[12] = {};
};

// One run of the preview of material that plays once.  It follows the outputs: what it has shown is
// what has been played.
class LivePreview {
  public:
    void Run() {
        CEvent* events[] = {&g_hStopPlayEvent, &g_hSigUsr2Event};
        while (WaitForMultipleObjects(2, events, 0, kWaitForever) != 0) {
            OutputPosition position;
            if (GetOutputPosition(position)) {
                EmitPlayed(EstimateFramesPlayed(position, MonotonicNanoseconds()));
            }
        }
        EmitEnd();
    }

  private:
    // A host that does not keep up gets the rest later: this is called again.
    void EmitPlayed(uint64_t frames) {
        const uint64_t samples = SamplesOf(std::min(frames, s_once.frames));
        while (m_emitted < samples && OutputSignalDataHasRoom()) {
            Emit(false);
            ++m_emitted;
        }
    }

    // Samples that begin within so many frames: for native text, which is resampled, not as many.
    uint64_t SamplesOf(uint64_t frames) const {
        if (m_rate == m_framesPerSecond) {
            return frames;
        }
        return (frames * m_rate + m_framesPerSecond - 1) / m_framesPerSecond;
    }

    void EmitEnd() {
        const bool hasFinished = LoadShared(s_once.hasFinished) != 0;
        if (hasFinished) {
            EmitPlayed(s_once.frames);
        }
        StoreShared(g_bIsOutputting, 0);
        Emit(true, hasFinished);
    }

    // The sample reached, or no leads.
    void Emit(bool end, bool empty = false) {
        const uint64_t sample = m_start + m_emitted;
        if (empty) {
            std::fill(std::begin(m_leads), std::end(m_leads), 0.0);
        } else {
            PrepareSignalDataAt(static_cast<int64_t>(sample), m_leads);
        }
        AppendOutputSignalData(static_cast<double>(m_emitted) / m_rate,
                               static_cast<double>(sample) / m_rate, m_leads, end);
    }

    const uint32_t m_rate = g_nSampleRate;
    const uint32_t m_framesPerSecond = FramesPerSecond();
    const uint64_t m_start = uint64_t{g_nStartPosition} / m_framesPerSecond * m_rate;
    uint64_t m_emitted = 0;
    double m_leads[12] = {};
};

void RunPreview() {
    if (s_once.isOn) {
        LivePreview().Run();
    } else {
        DisplayStream().Run();
    }
}

// Under g_CriticalSection, nothing playing.
int StartOutput(int startSecond, const OnceRun& once,
                void (*outputCallback)(double, double, double*, bool), void (*delayCallback)(int)) {
    if (!SendStartCommand()) {
        return 0;
    }
    StoreShared(g_OutputSignalCB, outputCallback);
    StoreShared(g_OutputDelayCB, delayCallback);
    g_nStartPosition = StartPosition(startSecond);
    s_once = once;
    if (!RunPlayThread()) {
        SetLastFailure(RAVO_ERROR_SYSTEM, "the threads of the output cannot be started");
        NotifyToStopOutputing(); // it has been told to start, and nobody would ever answer it
        return 0;
    }
    SleepMicroseconds(100000);
    return 1;
}

bool IsPlayable() {
    if (IsResponseReader()) {
        SetLastFailure(RAVO_ERROR_CALLBACK, "output cannot start on the delay callback");
    } else if (g_WaveformType == WAVEFORM_TYPE_NONE || g_nSampleRate == 0) {
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

// ---- Start and stop ----------------------------------------------------------------------------

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
    g_nNoiseCurrent = 0; // a play that is repeated is the same one
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

bool IsResponseReader() {
    return t_isResponseReader;
}

bool EndOutputForGood() {
    StoreShared(s_bEndedForGood, 1);
    g_hStopPlayEvent.SetEvent();
    if (IsResponseReader()) {
        // Nobody is left to read the request at which the play thread would end, and whoever holds
        // the lock may be waiting for this very thread.
        g_hForceStopPlayEvent.SetEvent();
        return false;
    }
    const std::unique_lock<std::mutex> lock = LockStartStopWithin(kPatienceMilliseconds);
    if (!lock.owns_lock()) {
        return false;
    }
    if (!JoinOutputThreadWithin(g_hPlayThread, kPatienceMilliseconds)) {
        g_hForceStopPlayEvent.SetEvent();
        JoinOutputThreadWithin(g_hPlayThread, kForcedPatienceMilliseconds);
    }
    JoinOutputThreadWithin(g_hReceiveThread, kForcedPatienceMilliseconds);
    JoinOutputThreadWithin(g_hOutputThread, kForcedPatienceMilliseconds);
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
    // Before the reader's first read: it must not sit in a read of one second while the simulator's
    // first request waits.
    StoreShared(g_nDeviceReadTimeout, kStreamingReadTimeout);
    StoreShared(s_nSilence, 0);
    StoreShared(s_nSilenceOfRequests, 0);
    StoreShared(g_bIsOutputting, 1);
    if (!StartOutputThreads()) {
        StoreShared(g_bIsOutputting, 0);
        return false;
    }
    g_hSendEvent.SetEvent();
    return true;
}

// ---- Thread bodies -----------------------------------------------------------------------------

void* PlayRawDataThread(void* /*ignored*/) {
    BlockTimerSignals();
    errno = 0; // a write looks at what earlier calls left here
    DeviceSetTimeoutSetting(kStreamingReadTimeout, kWriteTimeout);
    Play().Run();
    g_hStopReceiveEvent.SetEvent();
    SleepMicroseconds(10000);
    DeviceCancelIO();
    DeviceSetTimeoutSetting(kIdleReadTimeout, kWriteTimeout);
    NotifyToStopOutputing();
    return nullptr;
}

void* ReadNotifyThread(void* /*ignored*/) {
    BlockTimerSignals();
    t_isResponseReader = true;
    // One byte more than is read: a request cut short by the end of the read counts as whole.
    unsigned char responses[kReadSize + 1];
    SilenceCounter silence;
    while (!IsSignalled(g_hStopReceiveEvent)) {
        const int received = DeviceReadData(responses, kReadSize);
        const int64_t now = MonotonicNanoseconds();
        silence.Look(now, received > 0);
        if (received < 1) {
            SleepEx(10);
            continue;
        }
        StoreShared(s_nLastResponseTime, now);
        unsigned char* const end = responses + received;
        for (unsigned char* position = responses; position < end;) {
            position = ResponseHandling(position, static_cast<int>(end - position));
            if (IsSignalled(g_hStopReceiveEvent)) {
                return nullptr;
            }
        }
    }
    return nullptr;
}

unsigned char* ResponseHandling(unsigned char* data, int length) {
    if (length < 1) {
        return data;
    }
    switch (data[0]) {
    case 'N':
        CountRequest(LoadShared(s_nLastResponseTime));
        StoreShared(s_nSilenceOfRequests, 0);
        if (LoadShared(g_hPlayThread) != 0) {
            g_hSendEvent.SetEvent();
        }
        return data + 2;
    case 'X':
        if (length >= 3) {
            const int delay = (data[1] * 100 + data[2]) * 5;
            CountDelay(static_cast<uint32_t>(delay));
            const auto callback = LoadShared(g_OutputDelayCB);
            if (delay != 0 && callback != nullptr) {
                callback(delay);
            }
            return data + 3;
        }
        return data + length;
    case 'S':
        return data + std::min(length, 15);
    default:
        return data + length;
    }
}

void* OutputSignalThread(void* /*ignored*/) {
    BlockTimerSignals();
    unsigned int timerSignal = SIGUSR2;
    g_hOutputDataTimer = CreateNewTimer(kDisplayTimerMilliseconds, timerSignal);
    StoreShared(g_bIsOutputting, 1);
    try {
        RunPreview();
    } catch (const std::exception&) {
        // No memory for the queue: the output ends.
        StoreShared(g_bIsOutputting, 0);
    }
    DeleteTimer(0, g_hOutputDataTimer);
    g_hStopPlayEvent.SetEvent();
    return nullptr;
}
