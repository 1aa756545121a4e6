#pragma once

#include "device/Calibration.h"
#include "device/Protocol.h"
#include "engine/Output.h"
#include "engine/PlayRaw.h"
#include "engine/Preview.h"
#include "engine/Settings.h"
#include "platform/SharedValue.h"
#include "tests/engine/MadeMaterial.h"
#include "tests/engine/ScriptedPort.h"
#include "tests/support/Eventually.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <vector>

// Output on a line whose other end is the test, and what its preview shows.

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

using Wire = std::vector<unsigned char>;

constexpr size_t kBuffer = 3200;
constexpr size_t kStopBytes = 2; // one as the stop is carried out, one as the play thread ends

inline bool OutputThreadsAreGone() {
    return LoadShared(g_hPlayThread) == 0 && LoadShared(g_hReceiveThread) == 0 &&
           LoadShared(g_hOutputThread) == 0;
}

// Keeps requesting buffers and reading the data that arrives, so that every play can end.
class WillingSimulator {
  public:
    explicit WillingSimulator(ScriptedPort& port)
        : m_port(port), m_thread([this] {
              while (!m_done) {
                  m_port.AskForBuffer();
                  m_received += m_port.Receive(kBuffer, 5).size();
              }
          }) {}
    ~WillingSimulator() { Finish(); }
    WillingSimulator(const WillingSimulator&) = delete;
    WillingSimulator& operator=(const WillingSimulator&) = delete;

    // The number of whole buffers up to the last byte of the output.
    size_t BuffersUntilTheEnd() {
        Finish();
        while (m_received % kBuffer != kStopBytes && !m_port.Receive(1).empty()) {
            ++m_received;
        }
        return m_received / kBuffer;
    }

  private:
    void Finish() {
        m_done = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    ScriptedPort& m_port;
    std::atomic<bool> m_done{false};
    size_t m_received = 0;
    std::thread m_thread;
};

inline std::mutex g_previewLock;
inline std::vector<OUTPUT_SIGNAL_DATA> g_preview;

inline void KeepPreview(double time, double recordTime, double* leads, bool end) {
    OUTPUT_SIGNAL_DATA record{time, recordTime, {}, end};
    std::copy_n(leads, 12, record.Leads);
    const std::lock_guard<std::mutex> lock(g_previewLock);
    g_preview.push_back(record);
}

inline size_t PreviewSize() {
    const std::lock_guard<std::mutex> lock(g_previewLock);
    return g_preview.size();
}

inline void ForgetPreview() {
    const std::lock_guard<std::mutex> lock(g_previewLock);
    g_preview.clear();
}

inline bool PreviewHasEnded() {
    const std::lock_guard<std::mutex> lock(g_previewLock);
    return !g_preview.empty() && g_preview.back().End;
}

inline std::atomic<bool> g_isShowing{false};
inline std::atomic<bool> g_mayReturn{false};

inline void ShowUntilAllowed(double /*time*/, double /*recordTime*/, double* /*leads*/,
                             bool /*end*/) {
    g_isShowing = true;
    while (!g_mayReturn) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    g_isShowing = false;
}

// The host does not return from its progress callback while this object lives, so that records
// stay in the queue.
class BusyHost {
  public:
    BusyHost() {
        double leads[12] = {};
        g_mayReturn = false;
        StoreShared(g_OutputSignalCB, ShowUntilAllowed);
        AppendOutputSignalData(0.0, 0.0, leads, false);
        EXPECT_TRUE(Eventually([] { return g_isShowing.load(); }));
    }
    ~BusyHost() {
        g_mayReturn = true;
        EXPECT_TRUE(Eventually([] { return !g_isShowing; }));
    }
    BusyHost(const BusyHost&) = delete;
    BusyHost& operator=(const BusyHost&) = delete;
};

// Threads with stacks that no address space can hold: the system refuses them.
class NoThreads {
  public:
    NoThreads() {
        pthread_attr_t huge;
        pthread_getattr_default_np(&m_usual);
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, size_t{1} << 50);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~NoThreads() {
        pthread_setattr_default_np(&m_usual);
        pthread_attr_destroy(&m_usual);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

  private:
    pthread_attr_t m_usual{};
};

class PlayRawTest : public testing::Test {
  protected:
    void SetUp() override {
        g_fVoltageRange = 5.0;
        g_bPlayLoop = 0;
        g_bIsISPSupported = 1;
        g_nDACBit = 0;
        g_bDACAvailable = 0;
    }

    // Ends the output without waiting for a simulator that has no script for it.
    void Stop(ScriptedPort& port) {
        const WillingSimulator simulator(port);
        StopOutput();
    }

    // The same, after everything sent so far has been received.  Returns how many buffers followed:
    // a request that overtakes the stop is still answered.
    uint64_t StopAndCountBuffers(ScriptedPort& port) {
        WillingSimulator simulator(port);
        StopOutput();
        return simulator.BuffersUntilTheEnd();
    }

    // Requests the buffer in place of which the stop is sent, and makes another request if the
    // first one has overtaken the stop.
    static Wire AskWhenStopped(ScriptedPort& port) {
        port.AskForBuffer();
        Wire answer = port.Receive(kStopBytes);
        if (answer.empty() || answer[0] == 'S') {
            return answer;
        }
        EXPECT_EQ(port.Receive(kBuffer - kStopBytes).size(), kBuffer - kStopBytes);
        port.AskForBuffer();
        return port.Receive(kStopBytes);
    }
};

// A long record that loops, ready to be played; the test acts as the simulator.
class PlayingTest : public PlayRawTest {
  protected:
    void SetUp() override {
        PlayRawTest::SetUp();
        MakeMaterial(MATERIAL_DIRECT, 8, 1000000, 500);
        g_bPlayLoop = 1;
    }

    static bool Start(void (*progress)(double, double, double*, bool) = nullptr,
                      void (*delay)(int) = nullptr) {
        return OutputWaveform(0, progress, delay) == 1;
    }

    // The start command and the first buffer, which is not requested.
    void ReceiveFirstBuffer() { EXPECT_EQ(port.Receive(4 + kBuffer).size(), 4 + kBuffer); }

    ScriptedPort port;
};
