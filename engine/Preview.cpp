#include "engine/Preview.h"

#include "engine/Prepare.h"
#include "engine/Record.h"
#include "platform/ConstructionOrder.h"
#include "platform/LastError.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "platform/ThreadEnd.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <limits>
#include <pthread.h>
#include <unistd.h>

namespace {

// Starts the callback thread once everything that it touches exists, and ends it before any of
// that goes.
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
void (*g_OutputSignalCB)(double time, double recordTime, double* leads, bool end) = nullptr;

namespace {

RAVO_CONSTRUCT_ENGINE CallbackThreadLife s_callbackThreadLife;

constexpr size_t kQueueCapacity = 100000;

constexpr unsigned int kPatienceMilliseconds = 3000;

void UnblockTimerSignals() {
    sigset_t timerSignals;
    sigemptyset(&timerSignals);
    sigaddset(&timerSignals, SIGUSR1);
    sigaddset(&timerSignals, SIGUSR2);
    pthread_sigmask(SIG_UNBLOCK, &timerSignals, nullptr);
}

// The one place where the callback thread takes timer signals, so that they find a thread also in
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

// seconds x rate, held to what 64 bits carry.
int64_t SampleOfSecond(int64_t seconds, uint32_t rate) {
    int64_t sample = 0;
    if (__builtin_mul_overflow(seconds, int64_t{rate}, &sample)) {
        return seconds < 0 ? std::numeric_limits<int64_t>::min()
                           : std::numeric_limits<int64_t>::max();
    }
    return sample;
}

} // namespace

CAutoFreeRescource::~CAutoFreeRescource() {
    EndCallbackThread();
    if (g_MaterialRelease != MaterialRelease::kNever) {
        FreeECGDataBuffer();
    }
}

void CAutoFreeRescource::StartCallbackThread() {
    m_nThreadOwner = getpid();
    CreateThread(&m_hThread, DoOutputThread, nullptr);
}

void CAutoFreeRescource::EndCallbackThread() {
    if (m_nThreadOwner != getpid()) {
        // A forked child that exits has inherited the event's waiter, but no thread.
        ForgetWaiters(g_hOutputDataEvent);
        m_hThread = 0;
        return;
    }
    if (m_hThread == 0 || pthread_equal(m_hThread, pthread_self()) != 0) {
        return;
    }
    pthread_cancel(m_hThread);
    if (!JoinThreadWithin(m_hThread, kPatienceMilliseconds)) {
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
    if (g_WaveformType < WAVEFORM_TYPE_SINE) {
        bound = std::min(bound, int64_t{static_cast<int32_t>(g_nSampleCount)});
    }

    double leads[12] = {};
    int64_t i = SampleOfSecond(startSecond, rate);
    for (; i < bound; ++i) {
        PrepareSignalDataAt(i, leads);
        callback(static_cast<double>(i) / rate, leads, false);
    }
    std::fill(std::begin(leads), std::end(leads), 0.0);
    callback(rate == 0 ? 0.0 : static_cast<double>(i) / rate, leads, true); // no rate, no samples
    return 1;
}
