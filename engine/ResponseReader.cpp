#include "engine/ResponseReader.h"

#include "device/Device.h"
#include "engine/Output.h"
#include "engine/OutputPosition.h"
#include "engine/Wire.h"
#include "platform/LastError.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "platform/Unload.h"

#include <algorithm>

void (*g_OutputDelayCB)(int delay) = nullptr;

namespace {

int64_t s_nLastResponseTime = 0; // MonotonicNanoseconds()
int64_t s_nSilence = 0;
int64_t s_nSilenceOfRequests = 0;
thread_local bool t_isResponseReader = false;

constexpr int kReadSize = 32;

// More than a terminal keeps; a device that sends for ever is not waited for.
constexpr int kMostEarlierReads = 4096;

// At most this much of the time between two reads counts as silence. A stopped process, or a reader
// that was busy in the host's delay callback, could not read, and the responses of that time are
// still pending.
constexpr int64_t kLongestLook = 100000000; // nanoseconds

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

void ReportDelay(int delay) {
    CountDelay(static_cast<uint32_t>(delay));
    const auto callback = LoadShared(g_OutputDelayCB);
    if (delay != 0 && callback != nullptr) {
        callback(delay);
    }
}

void NoteRequest() {
    CountRequest(LoadShared(s_nLastResponseTime));
    StoreShared(s_nSilenceOfRequests, 0);
    if (LoadShared(g_hPlayThread) != 0) {
        g_hSendEvent.SetEvent();
    }
}

} // namespace

bool IsResponseReader() {
    return t_isResponseReader;
}

bool IsCallAllowedHere() {
    if (!RequireLoadingProcess()) {
        return false;
    }
    if (IsResponseReader()) {
        SetLastFailure(RAVO_ERROR_CALLBACK, "not to be called from the delay callback");
        return false;
    }
    return true;
}

void DiscardEarlierResponses() {
    unsigned char responses[kReadSize];
    StoreShared(g_nDeviceReadTimeout, kStreamingReadTimeout);
    for (int i = 0; i < kMostEarlierReads && DeviceReadData(responses, kReadSize) > 0; ++i) {
    }
    StoreShared(g_nDeviceReadTimeout, kIdleReadTimeout);
}

void ForgetSilence() {
    StoreShared(s_nSilence, 0);
    StoreShared(s_nSilenceOfRequests, 0);
}

int64_t Silence() {
    return LoadShared(s_nSilence);
}

int64_t SilenceOfRequests() {
    return LoadShared(s_nSilenceOfRequests);
}

unsigned char* ResponseHandling(unsigned char* data, int length) {
    const RESPONSE response = ParseResponse(data, length);
    switch (response.kind) {
    case RESPONSE::kRequest:
        NoteRequest();
        break;
    case RESPONSE::kDelay:
        ReportDelay(response.delay);
        break;
    case RESPONSE::kOther:
        break;
    }
    return data + response.size;
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
