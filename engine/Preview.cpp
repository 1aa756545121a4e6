#include "engine/Preview.h"

#include "engine/Kinds.h"
#include "engine/Output.h"
#include "engine/OutputPosition.h"
#include "engine/Prepare.h"
#include "engine/Record.h"
#include "engine/Settings.h"
#include "platform/ConstructionOrder.h"
#include "platform/LastError.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "platform/ThreadEnd.h"
#include "platform/Unload.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <exception>
#include <limits>
#include <pthread.h>

namespace {

// Starts the callback thread once everything that it uses exists, and ends it before any of that is
// destroyed.
class CallbackThreadLife {
  public:
    CallbackThreadLife() { g_AutoFreeResource.StartCallbackThread(); }
    ~CallbackThreadLife() { g_AutoFreeResource.EndCallbackThread(); }
    CallbackThreadLife(const CallbackThreadLife&) = delete;
    CallbackThreadLife& operator=(const CallbackThreadLife&) = delete;
};

} // namespace

RAVO_CONSTRUCT_ENGINE_RELEASER CAutoFreeRescource g_AutoFreeResource;

RAVO_CONSTRUCT_ENGINE CAutoResetEvent g_hOutputDataEvent(false);
RAVO_CONSTRUCT_ENGINE CSimpleCriticalSection g_OutputCriticalSection;
RAVO_CONSTRUCT_ENGINE std::vector<OUTPUT_SIGNAL_DATA> g_vecOutputSignalData;
void* g_hOutputDataTimer = nullptr;
void (*g_OutputSignalCB)(double time, double recordTime, double* leads, bool end) = nullptr;

namespace {

RAVO_CONSTRUCT_ENGINE CallbackThreadLife s_callbackThreadLife;

constexpr size_t kQueueCapacity = 100000;

constexpr unsigned int kPreviewTimerMilliseconds = 10;
constexpr int kPreviewTicksPerSecond = 50;

// At an absurd rate one tick demands millions of records; a stop must not wait for all of them. At
// a playable rate a tick demands fewer than this.
constexpr int64_t kRecordsBetweenLooks = 10000;

void UnblockTimerSignals() {
    sigset_t timerSignals;
    sigemptyset(&timerSignals);
    sigaddset(&timerSignals, SIGUSR1);
    sigaddset(&timerSignals, SIGUSR2);
    pthread_sigmask(SIG_UNBLOCK, &timerSignals, nullptr);
}

// The one place where the callback thread accepts timer signals, so that they find a thread even in
// a host that blocks them everywhere, and the one place where it can be cancelled.
void WaitForRecords() {
    int ignored = 0;
    UnblockTimerSignals();
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &ignored);
    g_hOutputDataEvent.Wait();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
    BlockTimerSignals();
}

bool TakeFirstRecord(OUTPUT_SIGNAL_DATA& record) {
    const CAutoCriticalSection lock(g_OutputCriticalSection);
    if (g_vecOutputSignalData.empty()) {
        return false;
    }
    record = g_vecOutputSignalData.front();
    g_vecOutputSignalData.erase(g_vecOutputSignalData.begin());
    return true;
}

} // namespace

// ---- Queue and callback thread -----------------------------------------------------------------

CAutoFreeRescource::~CAutoFreeRescource() {
    EndCallbackThread();
    if (g_MaterialRelease != MaterialRelease::kNever) {
        FreeECGDataBuffer();
    }
}

void CAutoFreeRescource::StartCallbackThread() {
    CreateThread(&m_hThread, DoOutputThread, nullptr);
}

void CAutoFreeRescource::EndCallbackThread() {
    if (IsForkedChild()) {
        // A forked child that exits has inherited the event's waiter, but no thread.
        ForgetWaiters(g_hOutputDataEvent);
        m_hThread = 0;
        return;
    }
    if (m_hThread == 0 || pthread_equal(m_hThread, pthread_self()) != 0) {
        return;
    }
    pthread_cancel(m_hThread);
    if (!JoinThreadWithin(m_hThread, kCallbackPatience)) {
        pthread_detach(m_hThread);
    }
    m_hThread = 0;
}

void AppendOutputSignalData(double time, double recordTime, double* leads, bool end) {
    OUTPUT_SIGNAL_DATA record{};
    record.Time = time;
    record.RecordTime = recordTime;
    std::copy_n(leads, std::size(record.Leads), record.Leads);
    record.End = end;
    {
        const CAutoCriticalSection lock(g_OutputCriticalSection);
        g_vecOutputSignalData.push_back(record);
    }
    g_hOutputDataEvent.SetEvent();
}

bool OutputSignalDataHasRoom() {
    const CAutoCriticalSection lock(g_OutputCriticalSection);
    return g_vecOutputSignalData.size() < kQueueCapacity;
}

void EmptyOutputSignalData() {
    const CAutoCriticalSection lock(g_OutputCriticalSection);
    g_vecOutputSignalData.clear();
}

void* DoOutputThread(void* /*ignored*/) {
    int previous = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
    BlockTimerSignals();
    OUTPUT_SIGNAL_DATA record{};
    for (;;) {
        WaitForRecords();
        while (TakeFirstRecord(record)) {
            const auto callback = LoadShared(g_OutputSignalCB);
            if (callback != nullptr) {
                callback(record.Time, record.RecordTime, record.Leads, record.End);
            }
        }
    }
}

// ---- Producer ----------------------------------------------------------------------------------

namespace {

// One run of the preview of material that may start over.  It keeps a position of its own and asks
// for 20 ms of material every 10 ms: it deliberately runs at twice real time and therefore reaches
// the end of a record, which ends the output, when half of it has played.
class LoopingPreview {
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

    // A host that does not keep up, or a rate that no host keeps up with, must not exhaust the
    // memory. False when a stop is requested in the meantime.
    static bool WaitForRoom() {
        while (!OutputSignalDataHasRoom()) {
            if (IsSignalled(g_hStopPlayEvent)) {
                return false;
            }
            SleepMicroseconds(1000);
        }
        return true;
    }

    // The record that reports that the output was stopped, at the position reached.
    void EmitStop() {
        const uint32_t rate = g_nSampleRate;
        const uint64_t position = IsAtEndOfRecord() ? g_nSampleCount : m_position;
        PrepareSignalDataAt(static_cast<int64_t>(m_position), m_leads);
        Emit(rate, static_cast<double>(position) / rate, true);
    }

    // Runs of 50 ticks demand exactly `rate` records; the very first tick is extra.
    int64_t RecordsOfNextTick(uint32_t rate) {
        const auto recordsUntil = [rate](int tick) {
            return static_cast<int64_t>(static_cast<double>(tick) * rate * 0.02);
        };
        const int64_t n = recordsUntil(m_tick) - recordsUntil(m_tick - 1);
        m_tick = m_tick % kPreviewTicksPerSecond + 1;
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
    static bool HasEnd() {
        return KindOf(g_WaveformType).ending != Ending::kNever && g_nSampleCount != 0;
    }
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

// One run of the preview of material that plays once.  It follows the outputs: everything it has
// shown has been played.
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
    // A host that does not keep up gets the remaining records later, since this is called again.
    void EmitPlayed(uint64_t frames) {
        const uint64_t samples = SamplesOf(std::min(frames, g_OnceRun.frames));
        while (m_emitted < samples && OutputSignalDataHasRoom()) {
            Emit(false);
            ++m_emitted;
        }
    }

    // The number of samples that begin within `frames` frames.  Native text is resampled, so there
    // it differs.
    uint64_t SamplesOf(uint64_t frames) const {
        if (m_rate == m_framesPerSecond) {
            return frames;
        }
        return (frames * m_rate + m_framesPerSecond - 1) / m_framesPerSecond;
    }

    void EmitEnd() {
        const bool hasFinished = LoadShared(g_OnceRun.hasFinished) != 0;
        if (hasFinished) {
            EmitPlayed(g_OnceRun.frames);
        }
        StoreShared(g_bIsOutputting, 0);
        Emit(true, hasFinished);
    }

    // Emits the sample reached, or a record with leads of 0.
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
    if (g_OnceRun.isOn) {
        LivePreview().Run();
    } else {
        LoopingPreview().Run();
    }
}

} // namespace

void* OutputSignalThread(void* /*ignored*/) {
    BlockTimerSignals();
    unsigned int timerSignal = SIGUSR2;
    g_hOutputDataTimer = CreateNewTimer(kPreviewTimerMilliseconds, timerSignal);
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

// ---- On demand ---------------------------------------------------------------------------------

namespace {

// seconds x rate, limited to 64 bits.
int64_t SampleOfSecond(int64_t seconds, uint32_t rate) {
    int64_t sample = 0;
    if (__builtin_mul_overflow(seconds, int64_t{rate}, &sample)) {
        return seconds < 0 ? std::numeric_limits<int64_t>::min()
                           : std::numeric_limits<int64_t>::max();
    }
    return sample;
}

} // namespace

int GetWaveformSignal(int startSecond, int seconds,
                      void (*callback)(double time, double* leads, bool end)) {
    const uint32_t rate = g_nSampleRate;
    if (callback == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no callback is given");
        return 0;
    }
    if (ValidateECGData() == 0) {
        return 0;
    }

    int64_t bound = SampleOfSecond(int64_t{startSecond} + seconds, rate);
    if (g_WaveformType < MATERIAL_SINE) {
        bound = std::min(bound, int64_t{static_cast<int32_t>(g_nSampleCount)});
    }

    double leads[12] = {};
    int64_t i = SampleOfSecond(startSecond, rate);
    for (; i < bound; ++i) {
        PrepareSignalDataAt(i, leads);
        callback(static_cast<double>(i) / rate, leads, false);
    }
    std::fill(std::begin(leads), std::end(leads), 0.0);
    callback(rate == 0 ? 0.0 : static_cast<double>(i) / rate, leads,
             true); // no samples without a rate
    return 1;
}
