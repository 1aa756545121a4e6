#include "engine/PlayThread.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "engine/Output.h"
#include "engine/OutputPosition.h"
#include "engine/ResponseReader.h"
#include "engine/Wire.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"

#include <cerrno>

namespace {

constexpr unsigned int kWriteTimeout = 2000;

// At its slowest clock a simulator asks every 2.8 s.
constexpr int64_t kSilence = 10000000000; // nanoseconds

// One run of the play thread.
class Play {
  public:
    void Run() {
        while (m_more != 0) {
            // A stop is carried out at the simulator's next request, so that the buffer in flight
            // is completed; once the stop is noted, it is not waited for again.
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

    // For every end except that of the material, which the preview reaches by itself: the preview
    // ends with the play.
    void End() {
        m_more = 0;
        g_hStopPlayEvent.SetEvent();
    }

    void AnswerRequest() {
        if (HasPlayedOnce()) {
            StoreShared(g_OnceRun.hasFinished, 1);
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
        return g_OnceRun.isOn ? SendPacketOnce(m_sequence, m_once) : SendPacket(m_sequence, m_more);
    }

    // The request after n buffers proves that n - 1 of them have been played.
    bool HasPlayedOnce() const {
        return g_OnceRun.isOn && m_buffers > 0 &&
               (m_buffers - 1) * kPacketsPerBuffer * FramesPerPacket() >= g_OnceRun.frames;
    }

    // A simulator that stays on the bus but no longer sends anything counts as gone. Without this,
    // a thread that stops the output, and the host with it, would wait for ever.
    void EndWhenDeviceIsGone() {
        if (!DeviceIsConnected() || SilenceThatCounts() >= kSilence) {
            End();
        }
    }

    // A stop waits for a request; anything else that the simulator sends then counts as silence.
    int64_t SilenceThatCounts() const { return m_stopping ? SilenceOfRequests() : Silence(); }

    CEvent* m_events[3] = {&g_hForceStopPlayEvent, &g_hSendEvent, &g_hStopPlayEvent};
    int m_more = 1;
    bool m_stopping = false;
    unsigned char m_sequence = 0;
    uint64_t m_buffers = 0; // sent
    FRAMES_ONCE m_once{g_OnceRun.frames, {}};
};

} // namespace

void* PlayRawDataThread(void* /*ignored*/) {
    BlockTimerSignals();
    errno = 0; // a write examines the value that earlier calls have left in errno
    DeviceSetTimeoutSetting(kStreamingReadTimeout, kWriteTimeout);
    Play().Run();
    g_hStopReceiveEvent.SetEvent();
    SleepMicroseconds(10000);
    DeviceCancelIO();
    DeviceSetTimeoutSetting(kIdleReadTimeout, kWriteTimeout);
    NotifyToStopOutputing();
    return nullptr;
}
