#include "engine/PlayRaw.h"

#include "device/Calibration.h"
#include "device/Protocol.h"
#include "engine/loaders/LoadMIT.h"
#include "engine/Output.h"
#include "engine/PlayThread.h"
#include "engine/Prepare.h"
#include "engine/Preview.h"
#include "engine/ResponseReader.h"
#include "engine/Settings.h"
#include "engine/Wire.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "ScriptedPort.h"
#include "tests/engine/MadeMaterial.h"
#include "tests/support/Eventually.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <ctime>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <mutex>
#include <ostream>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

using Wire = std::vector<unsigned char>;

constexpr size_t kBuffer = 3200;
constexpr size_t kStopBytes = 2; // one when the stop is carried out, one as the play thread ends

bool OutputThreadsAreGone() {
    return LoadShared(g_hPlayThread) == 0 && LoadShared(g_hReceiveThread) == 0 &&
           LoadShared(g_hOutputThread) == 0;
}

// Keeps asking for buffers and reading what comes, so that whatever plays can end.
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

    // How many whole buffers came until the output's last byte.
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

std::atomic<int> g_delays{0};
std::atomic<int> g_lastDelay{0};

void KeepDelay(int delay) {
    g_lastDelay = delay;
    ++g_delays;
}

std::mutex g_previewLock;
std::vector<OUTPUT_SIGNAL_DATA> g_preview;

void KeepPreview(double time, double recordTime, double* leads, bool end) {
    OUTPUT_SIGNAL_DATA record{time, recordTime, {}, end};
    std::copy_n(leads, 12, record.Leads);
    const std::lock_guard<std::mutex> lock(g_previewLock);
    g_preview.push_back(record);
}

size_t PreviewSize() {
    const std::lock_guard<std::mutex> lock(g_previewLock);
    return g_preview.size();
}

void ForgetPreview() {
    const std::lock_guard<std::mutex> lock(g_previewLock);
    g_preview.clear();
}

bool PreviewHasEnded() {
    const std::lock_guard<std::mutex> lock(g_previewLock);
    return !g_preview.empty() && g_preview.back().End;
}

std::atomic<bool> g_isShowing{false};
std::atomic<bool> g_mayReturn{false};

void ShowUntilAllowed(double /*time*/, double /*recordTime*/, double* /*leads*/, bool /*end*/) {
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

const std::vector<double> kNoLeads(12, 0.0);

std::vector<double> LeadsOf(const OUTPUT_SIGNAL_DATA& record) {
    return std::vector<double>(record.Leads, record.Leads + 12);
}

class PlayRawTest : public testing::Test {
  protected:
    void SetUp() override {
        g_fVoltageRange = 5.0;
        g_bPlayLoop = 0;
        g_bIsISPSupported = 1;
        g_nDACBit = 0;
        g_bDACAvailable = 0;
    }

    // Ends what plays without waiting for a simulator that has no script for it.
    void Stop(ScriptedPort& port) {
        const WillingSimulator simulator(port);
        StopOutput();
    }

    // The same, after all that went out so far was received.  Returns how many buffers followed: a
    // request that overtakes the stop is still answered.
    uint64_t StopAndCountBuffers(ScriptedPort& port) {
        WillingSimulator simulator(port);
        StopOutput();
        return simulator.BuffersUntilTheEnd();
    }

    // Asks for the buffer instead of which the stop comes, and once more when the request has
    // overtaken the stop.
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

// A long record that starts over, ready to play on a simulator that the test is.
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

    // The start command and the buffer that goes out unasked.
    void ReceiveFirstBuffer() { EXPECT_EQ(port.Receive(4 + kBuffer).size(), 4 + kBuffer); }

    ScriptedPort port;
};

// ---- Start -------------------------------------------------------------------------------------

struct StartCase {
    int32_t type;
    uint32_t rate;
    int32_t isp;
    double range;
    Wire command;
};

void PrintTo(const StartCase& start, std::ostream* out) {
    *out << "code " << start.type << " rate " << start.rate << " isp " << start.isp << " range "
         << start.range;
}

class StartCommandTest : public PlayRawTest, public testing::WithParamInterface<StartCase> {};

TEST_P(StartCommandTest, IsAsTheFirmwareReadsIt) {
    const StartCase& start = GetParam();
    MakeMaterial(start.type, 8, 100000, start.rate);
    g_bIsISPSupported = start.isp;
    g_fVoltageRange = start.range;
    g_bPlayLoop = 1;
    ScriptedPort port;
    const BusyHost host; // to work off a full queue takes long, and the highest rate fills it
    ASSERT_EQ(OutputWaveform(0, ShowUntilAllowed, nullptr), 1);
    EXPECT_EQ(port.Receive(4), start.command);
    Stop(port);
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    Rates, StartCommandTest,
    testing::Values(
        StartCase{
            MATERIAL_DIRECT, 500, 1, 5.0, {0x00, 0xD1, 0x6F, 5}}, // 65536 - 12000 + 79 = 53615
        StartCase{
            MATERIAL_DIRECT, 500, 0, 5.0, {0x00, 0xD1, 0x2C, 5}}, // 65536 - 12000 + 12 = 53548
        StartCase{MATERIAL_TARNWICK, 500, 1, 5.0, {0x00, 0xE8, 0xDF, 5}}, // 59536 + 79 = 59615
        StartCase{MATERIAL_TARNWICK, 250, 0, 5.0, {0x00, 0xE8, 0x9C, 5}}, // 59536 + 12 = 59548
        StartCase{MATERIAL_DIRECT, 360, 1, 5.0, {0x00, 0xBF, 0x34, 5}}, // 48869.33 + 79 = 48948.33
        StartCase{MATERIAL_DIRECT, 257, 0, 5.0, {0x00, 0xA4, 0xD9, 5}}, // 42189.70 + 12 = 42201.70
        StartCase{MATERIAL_SINE, 1000, 1, 5.0, {0x00, 0xE8, 0xDF, 5}},
        StartCase{
            MATERIAL_DIRECT, 91, 0, 5.0, {0x00, 0x00, 0x00, 5}}, // -385.9: below the clock's range
        StartCase{MATERIAL_DIRECT, 1, 1, 5.0, {0x00, 0x00, 0x00, 5}},
        StartCase{MATERIAL_DIRECT, 75949, 1, 5.0, {0x00, 0xFF, 0xFF, 5}}, // 65536.0 and above is
                                                                          // out of range
        StartCase{MATERIAL_DIRECT, 4294967295U, 1, 5.0, {0x00, 0xFF, 0xFF, 5}}));

INSTANTIATE_TEST_SUITE_P(
    Ranges, StartCommandTest,
    testing::Values(StartCase{MATERIAL_DIRECT, 500, 1, 2.5, {0x00, 0xD1, 0x6F, 2}},
                    StartCase{MATERIAL_DIRECT, 500, 1, 10.0, {0x00, 0xD1, 0x6F, 10}},
                    StartCase{MATERIAL_DIRECT, 500, 1, 0.0, {0x00, 0xD1, 0x6F, 0}},
                    StartCase{MATERIAL_DIRECT, 500, 1, -3.0, {0x00, 0xD1, 0x6F, 0}},
                    StartCase{MATERIAL_DIRECT, 500, 1, 1e300, {0x00, 0xD1, 0x6F, 255}},
                    StartCase{MATERIAL_DIRECT, 500, 1, kNaN, {0x00, 0xD1, 0x6F, 0}}));

// The pause lets the threads come up before the host goes on.
TEST_F(PlayingTest, StartPausesForATenthOfASecond) {
    const auto before = Clock::now();
    ASSERT_TRUE(Start());
    EXPECT_GE(Clock::now() - before, milliseconds(100));
    Stop(port);
}

TEST_F(PlayRawTest, DoesNotStartWithoutMaterial) {
    g_iECGSignalNumber = 0;
    ScriptedPort port;
    EXPECT_EQ(OutputWaveform(0, nullptr, nullptr), 0);
    EXPECT_TRUE(port.IsQuietFor(50));
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayRawTest, DoesNotStartWithoutDevice) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000, 500);
    EXPECT_EQ(OutputWaveform(0, nullptr, nullptr), 0);
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayRawTest, DoesNotStartAtRateZero) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000, 0);
    ScriptedPort port;
    EXPECT_EQ(OutputWaveform(0, nullptr, nullptr), 0);
    MakeMaterial(MATERIAL_TARNWICK, 8, 1000, 0);
    EXPECT_EQ(OutputWaveform(0, nullptr, nullptr), 0);
    EXPECT_TRUE(port.IsQuietFor(50));
}

TEST_F(PlayRawTest, DoesNotStartWhenTheStartCommandIsNotTaken) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000, 500);
    ScriptedPort port;
    port.Fill();
    EXPECT_EQ(OutputWaveform(0, nullptr, nullptr), 0);
    EXPECT_TRUE(OutputThreadsAreGone());
}

// Threads whose stacks no address space holds: the system refuses them.
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

TEST_F(PlayRawTest, TakesTheStartBackWhenThereAreNoThreads) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000000, 500);
    ScriptedPort port;
    {
        const NoThreads noThreads;
        EXPECT_EQ(OutputWaveform(0, nullptr, nullptr), 0);
    }
    EXPECT_TRUE(OutputThreadsAreGone());
    EXPECT_FALSE(IsOutputting());
    EXPECT_EQ(port.Receive(5), (Wire{0x00, 0xD1, 0x6F, 5, 'S'}));
    EXPECT_TRUE(port.IsQuietFor(50));

    ASSERT_EQ(OutputWaveform(0, nullptr, nullptr), 1);
    EXPECT_EQ(port.Receive(4 + kBuffer).size(), 4 + kBuffer);
    Stop(port);
}

// It would ask for a buffer beyond the first.
TEST_F(PlayRawTest, StartForgetsAnEarlierRequest) {
    g_hSendEvent.SetEvent();
    const NoThreads noThreads;
    EXPECT_FALSE(RunPlayThread());
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 110);
}

// ---- Play --------------------------------------------------------------------------------------

// An EAGAIN that an earlier call left behind would slow every write down.
TEST_F(PlayRawTest, PlayThreadStartsWithoutEarlierErrors) {
    const ScriptedPort port;
    g_hForceStopPlayEvent.SetEvent();
    int error = 0;
    std::thread play([&error] {
        errno = EAGAIN;
        PlayRawDataThread(nullptr);
        error = errno;
    });
    play.join();
    EXPECT_NE(error, EAGAIN);
}

// The last byte of the output waits until the response reader has had time to end.
TEST_F(PlayRawTest, PlayThreadPausesBeforeItsLastByte) {
    ScriptedPort port;
    port.AskForBuffer(); // with input waiting, setting the time-outs takes no time
    g_hForceStopPlayEvent.SetEvent();
    const auto before = Clock::now();
    PlayRawDataThread(nullptr);
    EXPECT_GE(Clock::now() - before, milliseconds(10));
    EXPECT_EQ(port.Receive(1), Wire{'S'});
}

TEST_F(PlayingTest, AnswersEachRequestWithOneBuffer) {
    ASSERT_TRUE(Start());
    port.Receive(4);
    // The first goes out unasked.
    const Wire first = port.Receive(kBuffer);
    ASSERT_EQ(first.size(), kBuffer);
    EXPECT_TRUE(port.IsQuietFor(300));
    port.AskForBuffer();
    const Wire second = port.Receive(kBuffer);
    ASSERT_EQ(second.size(), kBuffer);
    EXPECT_TRUE(port.IsQuietFor(300));
    for (size_t k = 0; k < 50; ++k) {
        EXPECT_EQ(first[64 * k], 0x01);
        EXPECT_EQ(first[64 * k + 1], k);
        EXPECT_EQ(second[64 * k + 1], 50 + k);
    }
    EXPECT_EQ(first[322], 0x45);
    EXPECT_EQ(second[322], 0x45);
    EXPECT_TRUE(Eventually(IsOutputting));
    const uint64_t further = StopAndCountBuffers(port);
    EXPECT_FALSE(IsOutputting());
    EXPECT_EQ(g_nSampleCurrent, (2 + further) * 250); // 50 packets of 5 frames each
}

TEST_F(PlayRawTest, SequenceNumbersStartOver) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000000, 500);
    g_bPlayLoop = 1;
    for (int run = 0; run < 2; ++run) {
        ScriptedPort port;
        ASSERT_EQ(OutputWaveform(0, nullptr, nullptr), 1);
        port.Receive(4);
        const Wire first = port.Receive(kBuffer);
        ASSERT_EQ(first.size(), kBuffer);
        EXPECT_EQ(first[1], 0);
        Stop(port);
    }
}

TEST_F(PlayRawTest, EveryRunHearsTheSimulator) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000000, 500);
    g_bPlayLoop = 1;
    for (int run = 0; run < 2; ++run) {
        ScriptedPort port;
        ASSERT_EQ(OutputWaveform(0, nullptr, nullptr), 1);
        ASSERT_EQ(port.Receive(4 + kBuffer).size(), 4 + kBuffer);
        port.AskForBuffer();
        EXPECT_EQ(port.Receive(kBuffer).size(), kBuffer) << run;
        Stop(port);
    }
}

TEST_F(PlayRawTest, StartsAtTheStartSecond) {
    MakeMaterial(MATERIAL_DIRECT, 8, 100000, 500);
    g_bPlayLoop = 1;
    ScriptedPort port;
    ASSERT_EQ(OutputWaveform(3, nullptr, nullptr), 1);
    EXPECT_EQ(g_nStartPosition, 1500U);
    EXPECT_EQ(port.Receive(4 + kBuffer).size(), 4 + kBuffer);
    const uint64_t further = StopAndCountBuffers(port);
    EXPECT_EQ(g_nSampleCurrent, 1500 + (1 + further) * 250);
}

TEST_F(PlayRawTest, NativeTextMaterialCountsMilliseconds) {
    MakeMaterial(MATERIAL_TARNWICK, 8, 100000, 500);
    g_bPlayLoop = 1;
    ScriptedPort port;
    ASSERT_EQ(OutputWaveform(3, nullptr, nullptr), 1);
    EXPECT_EQ(g_nStartPosition, 3000U);
    Stop(port);
}

TEST_F(PlayRawTest, EndsAfterTheLastSample) {
    MakeMaterial(MATERIAL_DIRECT, 8, 300, 10); // the preview would end the output after 15 s
    ScriptedPort port;
    ASSERT_EQ(OutputWaveform(0, nullptr, nullptr), 1);
    port.Receive(4 + kBuffer);
    port.AskForBuffer();
    const Wire wire = port.Receive(kBuffer + 1);
    ASSERT_EQ(wire.size(), kBuffer + 1);
    EXPECT_EQ(wire[kBuffer], 'S');
    EXPECT_TRUE(port.IsQuietFor(300));
    StopOutput();
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayRawTest, ShortMaterialRepeatsWhenLooping) {
    MakeMaterial(MATERIAL_DIRECT, 8, 7, 500);
    g_bPlayLoop = 1;
    ScriptedPort port;
    ASSERT_EQ(OutputWaveform(0, nullptr, nullptr), 1);
    port.Receive(4);
    const Wire buffer = port.Receive(kBuffer);
    ASSERT_EQ(buffer.size(), kBuffer);
    const auto frame = [&buffer](int number) {
        const auto start = buffer.begin() + 64 * (number / 5) + 4 + 12 * (number % 5);
        return Wire(start, start + 12);
    };
    for (int number = 7; number < 250; ++number) {
        ASSERT_EQ(frame(number), frame(number % 7));
    }
    EXPECT_NE(frame(0), frame(1));
    Stop(port);
}

// ---- Stop --------------------------------------------------------------------------------------

TEST_F(PlayRawTest, StopWithNothingPlayingReturnsAtOnce) {
    double leads[12] = {};
    StoreShared(g_OutputSignalCB, nullptr);
    AppendOutputSignalData(0.0, 0.0, leads, false);
    StopOutput();
    StopOutputOnClosing();
    EXPECT_TRUE(OutputThreadsAreGone());
}

size_t QueuedRecords() {
    const CAutoCriticalSection lock(g_OutputCriticalSection);
    return g_vecOutputSignalData.size();
}

void QueueRecords(int count) {
    double leads[12] = {};
    for (int i = 0; i < count; ++i) {
        AppendOutputSignalData(i, i, leads, false);
    }
}

TEST_F(PlayRawTest, StopForgetsWhatThePreviewHasNotShown) {
    const BusyHost host;
    QueueRecords(2);
    StopOutput();
    EXPECT_EQ(QueuedRecords(), 0U);
}

TEST_F(PlayRawTest, StartForgetsWhatThePreviewHasNotShown) {
    const BusyHost host;
    QueueRecords(2);
    const NoThreads noThreads;
    EXPECT_FALSE(RunPlayThread());
    EXPECT_EQ(QueuedRecords(), 0U);
}

// 50 s of 1000 samples a second at twice real time.
TEST_F(PlayRawTest, QueueHoldsAHundredThousandRecords) {
    const BusyHost host;
    QueueRecords(99999);
    EXPECT_TRUE(OutputSignalDataHasRoom());
    QueueRecords(1);
    EXPECT_FALSE(OutputSignalDataHasRoom());
    StopOutput();
    EXPECT_TRUE(OutputSignalDataHasRoom());
}

TEST_F(PlayingTest, LoadingARecordStopsTheOutput) {
    const WillingSimulator simulator(port);
    ASSERT_TRUE(Start());
    // Before it looks whether there is a record.
    EXPECT_EQ(LoadMITHeader("/nonesuch.hea"), nullptr);
    EXPECT_TRUE(OutputThreadsAreGone());

    ASSERT_TRUE(Start());
    ECG_HEADER* header = NewECGHeaderAHA(3, "1001");
    EXPECT_EQ(LoadMITDatabase(header), 1);
    EXPECT_TRUE(OutputThreadsAreGone());
    FreeECGHeader(header);
}

TEST_F(PlayingTest, StopIsCarriedOutAtTheNextRequest) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    std::atomic<bool> stopped{false};
    std::thread host([&stopped] {
        StopOutput();
        stopped = true;
    });
    EXPECT_TRUE(Eventually([] { return g_hStopPlayEvent.WaitTimeout(0) == 0; }));
    EXPECT_TRUE(port.IsQuietFor(500));
    EXPECT_FALSE(stopped);
    port.AskForBuffer();
    // One 'S' answers the request, one closes the play.
    EXPECT_EQ(port.Receive(2), (Wire{'S', 'S'}));
    host.join();
    EXPECT_TRUE(OutputThreadsAreGone());
    EXPECT_EQ(LoadShared(g_nDeviceReadTimeout), 1000U);
    EXPECT_EQ(LoadShared(g_nDeviceWriteTimeout), 2000U);
}

TEST_F(PlayingTest, StopDuringTheBufferLetsItComplete) {
    ASSERT_TRUE(Start());
    ASSERT_EQ(port.Receive(4 + 1).size(), 5U);
    g_hStopPlayEvent.SetEvent();
    EXPECT_EQ(port.Receive(kBuffer - 1).size(), kBuffer - 1);
    Stop(port);
}

TEST_F(PlayingTest, ForceStopEndsThePlayWithoutARequest) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    g_hForceStopPlayEvent.SetEvent();
    EXPECT_EQ(port.Receive(1), Wire{'S'});
    StopOutput();
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayingTest, StopsAtOnceFromManyThreadsReturnWhenTheThreadsAreGone) {
    ASSERT_TRUE(Start());
    const WillingSimulator simulator(port);
    std::vector<std::thread> hosts;
    std::atomic<int> early{0};
    for (int i = 0; i < 4; ++i) {
        hosts.emplace_back([i, &early] {
            if (i % 2 == 0) {
                const CAutoCriticalSection lock(g_CriticalSection);
                StopOutput();
                early += OutputThreadsAreGone() ? 0 : 1;
            } else {
                StopOutputOnClosing();
                early += OutputThreadsAreGone() ? 0 : 1;
            }
        });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    EXPECT_EQ(early, 0);
}

TEST_F(PlayingTest, ANewStartStopsTheEarlierOutput) {
    ASSERT_TRUE(Start());
    {
        const WillingSimulator simulator(port);
        ASSERT_EQ(OutputWaveform(5, nullptr, nullptr), 1);
    }
    EXPECT_EQ(g_nStartPosition, 2500U);
    EXPECT_TRUE(Eventually(IsOutputting));
    Stop(port);
}

TEST_F(PlayingTest, EndsWhenThePortHasBeenClosed) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    port.Unplug();
    StopOutputOnClosing();
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayingTest, EndsWhenTheLineTakesNothing) {
    ASSERT_TRUE(Start());
    port.Fill();
    const auto before = Clock::now();
    port.AskForBuffer();
    // The play thread gives up after the write time-out and then ends the reader; silence would end
    // it after ten seconds only.
    EXPECT_TRUE(Eventually([] { return g_hStopReceiveEvent.WaitTimeout(0) == 0; }));
    EXPECT_GE(Clock::now() - before, seconds(2));
    EXPECT_LT(Clock::now() - before, seconds(9));
    StopOutput();
    EXPECT_TRUE(OutputThreadsAreGone());
}

// A simulator that stays on the bus but sends nothing must not block a stop.
TEST_F(PlayingTest, SilenceOfTenSecondsEndsAStop) {
    const auto before = Clock::now();
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    StopOutput();
    EXPECT_GE(Clock::now() - before, milliseconds(9990));
    EXPECT_TRUE(OutputThreadsAreGone());
}

TEST_F(PlayingTest, SilenceOfTenSecondsEndsThePlayAndTheDisplay) {
    const auto before = Clock::now();
    ASSERT_TRUE(Start(KeepPreview));
    ReceiveFirstBuffer();
    EXPECT_TRUE(Eventually(PreviewHasEnded, 60000));
    EXPECT_GE(Clock::now() - before, milliseconds(9990));
    EXPECT_FALSE(IsOutputting());
    StopOutput();
    EXPECT_TRUE(OutputThreadsAreGone());
}

// Any byte is a sign of life.
TEST_F(PlayingTest, StatusRecordsBreakTheSilence) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    for (int i = 0; i < 4; ++i) {
        std::this_thread::sleep_for(seconds(3));
        port.Send({'S', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    }
    EXPECT_TRUE(IsOutputting());
    EXPECT_NE(g_hStopReceiveEvent.WaitTimeout(0), 0);
    Stop(port);
}

// The ten seconds of a stop count from the last buffer, not from the start.
TEST_F(PlayingTest, AStopWaitsForARequestAfterALongPlay) {
    const auto before = Clock::now();
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    while (Clock::now() - before < seconds(11)) {
        EXPECT_TRUE(port.IsQuietFor(1000));
        port.AskForBuffer();
        ASSERT_EQ(port.Receive(kBuffer).size(), kBuffer);
    }
    std::thread host([] { StopOutput(); });
    EXPECT_TRUE(port.IsQuietFor(500));
    EXPECT_EQ(AskWhenStopped(port), (Wire{'S', 'S'}));
    host.join();
}

// What is not a request does not keep a stop waiting, which waits for one.
TEST_F(PlayingTest, TalkWithoutRequestsDoesNotHoldAStop) {
    ASSERT_TRUE(Start());
    ReceiveFirstBuffer();
    std::atomic<bool> stopped{false};
    std::atomic<bool> talkIsOver{false};
    std::thread talk([&] {
        for (int i = 0; i < 60 && !stopped; ++i) {
            port.Send({'S', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
            std::this_thread::sleep_for(seconds(1));
        }
        talkIsOver = true;
    });
    StopOutput();
    EXPECT_FALSE(talkIsOver);
    EXPECT_TRUE(OutputThreadsAreGone());
    stopped = true;
    talk.join();
}

// ---- Responses ---------------------------------------------------------------------------------

class ResponseTest : public PlayRawTest {
  protected:
    void SetUp() override {
        PlayRawTest::SetUp();
        g_delays = 0;
        StoreShared(g_OutputDelayCB, KeepDelay);
        g_hSendEvent.ResetEvent();
    }
    void TearDown() override { StoreShared(g_hPlayThread, 0); }

    static int Consumed(Wire response) {
        response.reserve(response.size() + 1);
        const unsigned char* after =
            ResponseHandling(response.data(), static_cast<int>(response.size()));
        return static_cast<int>(after - response.data());
    }
};

TEST_F(ResponseTest, RequestWithoutPlayThreadIsIgnored) {
    EXPECT_EQ(Consumed({'N', 0}), 2);
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 110);
}

TEST_F(ResponseTest, RequestWakesThePlayThread) {
    StoreShared(g_hPlayThread, 1);
    EXPECT_EQ(Consumed({'N', 0, 'X'}), 2);
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 0);
}

TEST_F(ResponseTest, RequestAtTheEndCountsAsWhole) {
    StoreShared(g_hPlayThread, 1);
    EXPECT_EQ(Consumed({'N'}), 2);
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 0);
}

TEST_F(ResponseTest, DelayIsReported) {
    EXPECT_EQ(Consumed({'X', 1, 2, 'N'}), 3);
    EXPECT_EQ(g_delays, 1);
    EXPECT_EQ(g_lastDelay, 510);
    EXPECT_EQ(Consumed({'X', 255, 255}), 3);
    EXPECT_EQ(g_lastDelay, 128775); // (25500 + 255) x 5
}

TEST_F(ResponseTest, DelayOfNothingIsNotReported) {
    EXPECT_EQ(Consumed({'X', 0, 0}), 3);
    EXPECT_EQ(g_delays, 0);
}

TEST_F(ResponseTest, DelayWithoutCallbackIsSkipped) {
    StoreShared(g_OutputDelayCB, nullptr);
    EXPECT_EQ(Consumed({'X', 1, 2}), 3);
}

TEST_F(ResponseTest, CutDelayIsDropped) {
    EXPECT_EQ(Consumed({'X', 1}), 2);
    EXPECT_EQ(Consumed({'X'}), 1);
    EXPECT_EQ(g_delays, 0);
}

TEST_F(ResponseTest, StatusIsSkipped) {
    EXPECT_EQ(Consumed(Wire(15, 'S')), 15);
    EXPECT_EQ(Consumed(Wire(17, 'S')), 15);
    EXPECT_EQ(Consumed(Wire(14, 'S')), 14);
    EXPECT_EQ(Consumed({'S'}), 1);
}

TEST_F(ResponseTest, AnythingElseTakesTheRestWithIt) {
    StoreShared(g_hPlayThread, 1);
    EXPECT_EQ(Consumed({0, 'N', 0}), 3);
    EXPECT_EQ(Consumed({'n', 'N', 0, 'X', 1, 2}), 6);
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 110);
    EXPECT_EQ(g_delays, 0);
}

TEST_F(ResponseTest, NothingIsNothing) {
    unsigned char none = 'N';
    EXPECT_EQ(ResponseHandling(&none, 0), &none);
}

TEST_F(PlayingTest, SeveralResponsesInOneRead) {
    g_delays = 0;
    ASSERT_TRUE(Start(nullptr, KeepDelay));
    ReceiveFirstBuffer();
    port.Send({0x4E, 0x00, 0x58, 0x01, 0x02});
    EXPECT_EQ(port.Receive(kBuffer).size(), kBuffer);
    EXPECT_TRUE(Eventually([] { return g_delays == 1; }));
    EXPECT_EQ(g_lastDelay, 510);
    // A status record in front of a request.
    port.Send({'S', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'N', 0});
    EXPECT_EQ(port.Receive(kBuffer).size(), kBuffer);
    // Garbage swallows the request after it.
    port.Send({0xFF, 'N', 0});
    EXPECT_TRUE(port.IsQuietFor(300));
    // So does what is left of it, in a reader that has not looked since.
    const auto isAnswered = [this] {
        port.AskForBuffer();
        return !port.Receive(1, 1000).empty();
    };
    EXPECT_TRUE(Eventually(isAnswered, 20));
    EXPECT_EQ(port.Receive(kBuffer - 1).size(), kBuffer - 1);
    Stop(port);
}

void EndReaderFromDelay(int /*delay*/) {
    g_hStopReceiveEvent.SetEvent();
    ++g_delays;
}

TEST_F(ResponseTest, ReaderThatHasToEndLeavesTheRestOfARead) {
    ScriptedPort port;
    StoreShared(g_OutputDelayCB, EndReaderFromDelay);
    port.Send({'X', 0, 1, 'X', 0, 2});
    std::thread reader([] { ReadNotifyThread(nullptr); });
    reader.join();
    EXPECT_EQ(g_delays, 1);
}

void StopFromDelay(int /*delay*/) {
    StopOutput();
    ++g_delays;
}

TEST_F(PlayingTest, DelayCallbackMayStop) {
    g_delays = 0;
    ASSERT_TRUE(Start(nullptr, StopFromDelay));
    ReceiveFirstBuffer();
    port.Send({'X', 0, 1});
    EXPECT_TRUE(Eventually([] { return g_delays == 1; }));
    EXPECT_FALSE(OutputThreadsAreGone()); // only asked for
    EXPECT_EQ(AskWhenStopped(port), (Wire{'S', 'S'}));
    StopOutput();
    EXPECT_TRUE(OutputThreadsAreGone());
}

std::atomic<bool> g_hasSlept{false};

void SleepFromDelay(int /*delay*/) {
    std::this_thread::sleep_for(milliseconds(10500));
    g_hasSlept = true;
}

// While the host holds the reader up, or is stopped as a whole, nothing is read: what the simulator
// sends meanwhile waits to be read, and it has not fallen silent.
TEST_F(PlayingTest, TimeWithoutALookIsNoSilence) {
    ASSERT_TRUE(Start(nullptr, SleepFromDelay));
    ReceiveFirstBuffer();
    port.Send({'X', 0, 1, 'N', 0});
    ASSERT_TRUE(Eventually([] { return g_hasSlept.load(); }));
    EXPECT_EQ(port.Receive(kBuffer).size(), kBuffer);
    EXPECT_TRUE(IsOutputting());
    Stop(port);
}

void RestartFromDelay(int /*delay*/) {
    g_lastDelay = OutputWaveform(0, nullptr, nullptr);
    ++g_delays;
}

TEST_F(PlayingTest, DelayCallbackCannotStart) {
    g_delays = 0;
    g_lastDelay = -1;
    ASSERT_TRUE(Start(nullptr, RestartFromDelay));
    port.Send({'X', 0, 1});
    EXPECT_TRUE(Eventually([] { return g_delays == 1; }));
    EXPECT_EQ(g_lastDelay, 0);
    Stop(port);
}

std::atomic<bool> g_stoppedFromProgress{false};

void StopFromProgress(double /*time*/, double /*recordTime*/, double* /*leads*/, bool /*end*/) {
    if (!g_stoppedFromProgress) {
        StopOutput();
        g_stoppedFromProgress = OutputThreadsAreGone();
    }
}

TEST_F(PlayingTest, ProgressCallbackMayStop) {
    ASSERT_TRUE(Start(StopFromProgress));
    const WillingSimulator simulator(port);
    EXPECT_TRUE(Eventually([] { return g_stoppedFromProgress.load(); }));
}

// ---- Display -----------------------------------------------------------------------------------

TEST_F(PlayRawTest, PreviewShowsEverySampleInOrderAndThenTheEnd) {
    constexpr size_t kSamples = 1000;
    MakeMaterial(MATERIAL_DIRECT, 8, kSamples, 500);
    ForgetPreview();
    ScriptedPort port;
    const WillingSimulator simulator(port);
    const auto before = Clock::now();
    ASSERT_EQ(OutputWaveform(0, KeepPreview, nullptr), 1);
    ASSERT_TRUE(Eventually(PreviewHasEnded));
    // 2 s of material, shown at twice real time; the very first tick brings 20 ms more.
    EXPECT_GE(Clock::now() - before, milliseconds(980));
    EXPECT_FALSE(IsOutputting());
    StopOutput();

    ASSERT_EQ(g_preview.size(), kSamples + 1);
    for (size_t k = 0; k < kSamples; ++k) {
        const OUTPUT_SIGNAL_DATA& record = g_preview[k];
        ASSERT_EQ(record.Time, static_cast<double>(k) / 500.0);
        ASSERT_EQ(record.RecordTime, static_cast<double>(k) / 500.0);
        ASSERT_FALSE(record.End);
        ASSERT_EQ(record.Leads[0], MadeVoltage(0, k));
        ASSERT_EQ(record.Leads[1], MadeVoltage(1, k));
        ASSERT_EQ(record.Leads[2], MadeVoltage(1, k) - MadeVoltage(0, k));
        for (int v = 2; v < 8; ++v) {
            ASSERT_EQ(record.Leads[4 + v], MadeVoltage(v, k));
        }
    }
    const OUTPUT_SIGNAL_DATA& last = g_preview.back();
    EXPECT_EQ(last.Time, 2.0);
    EXPECT_EQ(last.RecordTime, 2.0);
    EXPECT_EQ(LeadsOf(last), kNoLeads);
}

// The end of the preview ends the output, long before a long record has played.
TEST_F(PlayRawTest, EndOfPreviewStopsThePlayAtTheNextRequest) {
    MakeMaterial(MATERIAL_DIRECT, 8, 800, 400); // more than two buffers
    ForgetPreview();
    ScriptedPort port;
    ASSERT_EQ(OutputWaveform(0, KeepPreview, nullptr), 1);
    ASSERT_EQ(port.Receive(4 + kBuffer).size(), 4 + kBuffer);
    ASSERT_TRUE(Eventually(PreviewHasEnded));
    ASSERT_TRUE(Eventually([] { return g_hStopPlayEvent.WaitTimeout(0) == 0; }));
    EXPECT_EQ(AskWhenStopped(port), (Wire{'S', 'S'}));
    StopOutput();
}

TEST_F(PlayRawTest, LoopedPreviewRewindsToTheStart) {
    constexpr int kRate = 100;
    constexpr int kSamples = 150;
    MakeMaterial(MATERIAL_TABLE, 8, kSamples, kRate);
    g_bPlayLoop = 1;
    ForgetPreview();
    ScriptedPort port;
    const WillingSimulator simulator(port);
    ASSERT_EQ(OutputWaveform(1, KeepPreview, nullptr), 1);
    ASSERT_TRUE(Eventually([] { return PreviewSize() >= 160; }));
    StopOutput();
    const std::lock_guard<std::mutex> lock(g_previewLock);
    for (size_t i = 0; i < 160; ++i) {
        const OUTPUT_SIGNAL_DATA& record = g_preview[i];
        const size_t position = 100 + i % 50;
        ASSERT_EQ(record.Time, static_cast<double>(i) / 100.0);
        ASSERT_EQ(record.Leads[0], MadeVoltage(0, position));
        // The first record after a rewind is shown at 0.
        const bool rewound = i > 0 && i % 50 == 0;
        ASSERT_EQ(record.RecordTime, rewound ? 0.0 : static_cast<double>(position) / 100.0);
        ASSERT_FALSE(record.End);
    }
}

TEST_F(PlayRawTest, PeriodicPreviewHasNoEnd) {
    MakeMaterial(MATERIAL_SQUARE, 8, 2, 1000);
    ForgetPreview();
    ScriptedPort port;
    const WillingSimulator simulator(port);
    ASSERT_EQ(OutputWaveform(1, KeepPreview, nullptr), 1);
    ASSERT_TRUE(Eventually([] { return PreviewSize() >= 500; }));
    EXPECT_TRUE(IsOutputting());
    StopOutput();
    const std::lock_guard<std::mutex> lock(g_previewLock);
    for (size_t i = 0; i < 500; ++i) {
        const auto position = static_cast<double>(i);
        ASSERT_EQ(g_preview[i].Time, position / 1000.0);
        ASSERT_EQ(g_preview[i].RecordTime, (1000.0 + position) / 1000.0);
        ASSERT_FALSE(g_preview[i].End);
    }
}

struct StopCase {
    int32_t type;
    uint64_t samples;
};

void PrintTo(const StopCase& stop, std::ostream* out) {
    *out << "code " << stop.type << " samples " << stop.samples;
}

class StopRecordTest : public PlayRawTest, public testing::WithParamInterface<StopCase> {};

// Without a stop of the whole output, which forgets what is queued, the preview's last
// record can be seen.
TEST_P(StopRecordTest, SaysWhereTheStopCame) {
    MakeMaterial(GetParam().type, 8, GetParam().samples, 100);
    ForgetPreview();
    g_nStartPosition = 200;
    StoreShared(g_OutputSignalCB, KeepPreview);
    g_hStopPlayEvent.ResetEvent();
    std::thread display([] { OutputSignalThread(nullptr); });
    ASSERT_TRUE(Eventually([] { return PreviewSize() >= 10; }));
    g_hStopPlayEvent.SetEvent();
    display.join();
    ASSERT_TRUE(Eventually(PreviewHasEnded));
    const std::lock_guard<std::mutex> lock(g_previewLock);
    const double emitted = static_cast<double>(g_preview.size() - 1);
    EXPECT_EQ(g_preview.back().Time, emitted / 100.0);
    // Not reduced to the record's length.
    EXPECT_EQ(g_preview.back().RecordTime, (200.0 + emitted) / 100.0);
    EXPECT_EQ(LoadShared(g_bIsOutputting), 0);
}

INSTANTIATE_TEST_SUITE_P(Codes, StopRecordTest,
                         testing::Values(StopCase{MATERIAL_DIRECT, 1000000}, StopCase{128, 2},
                                         StopCase{MATERIAL_SINE, 2}));

TEST_F(PlayRawTest, StopBeforeTheFirstRecordIsShownAtZero) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000, 100);
    ForgetPreview();
    g_nStartPosition = 0;
    StoreShared(g_OutputSignalCB, KeepPreview);
    g_hStopPlayEvent.SetEvent();
    OutputSignalThread(nullptr);
    ASSERT_TRUE(Eventually(PreviewHasEnded));
    EXPECT_EQ(g_preview[0].Time, 0.0);
    EXPECT_EQ(g_preview[0].RecordTime, 0.0);
    EXPECT_EQ(g_preview[0].Leads[0], MadeVoltage(0, 0));
}

TEST_F(PlayRawTest, StopAtTheEndOfTheRecordIsShownAtItsLength) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000, 100);
    ForgetPreview();
    g_nStartPosition = 3000;
    StoreShared(g_OutputSignalCB, KeepPreview);
    g_hStopPlayEvent.SetEvent();
    OutputSignalThread(nullptr);
    ASSERT_TRUE(Eventually(PreviewHasEnded));
    EXPECT_EQ(g_preview[0].RecordTime, 10.0);
}

// At such a rate one tick asks for millions of records.
TEST_F(PlayRawTest, AbsurdRateFillsTheQueueAndNotTheMemory) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000000, 4000000000U);
    g_bPlayLoop = 1;
    ScriptedPort port;
    const BusyHost host;
    ASSERT_EQ(OutputWaveform(0, ShowUntilAllowed, nullptr), 1);
    EXPECT_TRUE(Eventually([] { return !OutputSignalDataHasRoom(); }, 60000));
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_LE(QueuedRecords(), 100000U);
    Stop(port);
    EXPECT_TRUE(OutputThreadsAreGone());
}

std::atomic<double> g_latest{0.0};

void StopAndForgetTheRest(double time, double /*recordTime*/, double* /*leads*/, bool /*end*/) {
    g_latest = time;
    g_hStopPlayEvent.SetEvent();
    EmptyOutputSignalData();
}

// Nor is a stop to wait for them.
TEST_F(PlayRawTest, StopIsSeenWithinATickOfMillionsOfRecords) {
    constexpr uint32_t kRate = 4000000000U; // 80 million in the first tick
    MakeMaterial(MATERIAL_DIRECT, 8, 1000000, kRate);
    g_bPlayLoop = 1;
    StoreShared(g_OutputSignalCB, StopAndForgetTheRest);
    g_hStopPlayEvent.ResetEvent();
    OutputSignalThread(nullptr);
    // A full queue after the first record, and 10,000 more before the stop is looked for.
    EXPECT_LE(g_latest * kRate, 110001.0);
}

TEST_F(PlayRawTest, DisplayWithoutSamplesDoesNotDivideByThem) {
    MakeMaterial(MATERIAL_DIRECT, 8, 0, 100);
    ForgetPreview();
    g_nStartPosition = 100;
    StoreShared(g_OutputSignalCB, KeepPreview);
    g_hStopPlayEvent.SetEvent();
    OutputSignalThread(nullptr);
    ASSERT_TRUE(Eventually(PreviewHasEnded));
    EXPECT_EQ(g_preview[0].RecordTime, 1.0);
}

TEST_F(PlayRawTest, DisplayDeletesItsTimer) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000, 100);
    StoreShared(g_OutputSignalCB, nullptr);
    g_hStopPlayEvent.SetEvent();
    OutputSignalThread(nullptr);
    itimerspec schedule{};
    EXPECT_EQ(timer_gettime(g_hOutputDataTimer, &schedule), -1);
}

// The system refuses the display its timer: ticks come from the test alone.
class NoTimers {
  public:
    NoTimers() {
        getrlimit(RLIMIT_SIGPENDING, &m_usual);
        const rlimit none = {0, m_usual.rlim_max};
        setrlimit(RLIMIT_SIGPENDING, &none);
    }
    ~NoTimers() { setrlimit(RLIMIT_SIGPENDING, &m_usual); }
    NoTimers(const NoTimers&) = delete;
    NoTimers& operator=(const NoTimers&) = delete;

  private:
    rlimit m_usual{};
};

// A tick is worth 20 ms: 1.02 records at 51 samples a second, so one of them and, at the fiftieth
// tick of each second, one more.  The very first tick comes on top.
TEST_F(PlayRawTest, FiftyTicksBringASecond) {
    const NoTimers noTimers;
    MakeMaterial(MATERIAL_DIRECT, 8, 100000, 51);
    ForgetPreview();
    g_nStartPosition = 0;
    StoreShared(g_OutputSignalCB, KeepPreview);
    g_hStopPlayEvent.ResetEvent();
    std::thread display([] { OutputSignalThread(nullptr); });
    size_t expected = 0;
    for (int tick = 0; tick <= 150; ++tick) {
        g_hSigUsr2Event.SetEvent();
        expected += tick != 0 && tick % 50 == 0 ? 2U : 1U;
        ASSERT_TRUE(Eventually([expected] { return PreviewSize() >= expected; })) << tick;
        ASSERT_EQ(PreviewSize(), expected) << tick;
    }
    g_hStopPlayEvent.SetEvent();
    display.join();
    EXPECT_EQ(g_hOutputDataTimer, nullptr);
    ASSERT_TRUE(Eventually(PreviewHasEnded));
    EXPECT_EQ(PreviewSize(), 1 + 3 * 51 + 1U);
}

// A start second at or past the end, or before the beginning, is silence rather than a crash.
class OddStartTest : public PlayRawTest, public testing::WithParamInterface<int> {};

TEST_P(OddStartTest, PlaysWithoutMaterial) {
    MakeMaterial(MATERIAL_DIRECT, 8, 100, 100);
    g_bPlayLoop = 1; // or the preview may end the output before the first buffer
    ScriptedPort port;
    ASSERT_EQ(OutputWaveform(GetParam(), KeepPreview, nullptr), 1);
    Wire buffer = port.Receive(4 + kBuffer);
    ASSERT_EQ(buffer.size(), 4 + kBuffer);
    // Frames of zero codes.
    EXPECT_EQ(Wire(buffer.begin() + 8, buffer.begin() + 68), Wire(60, 0));
    Stop(port);
}

// Cut to 32 bits, the positions 4294967300 and -4294967200 would be samples 4 and 96.
INSTANTIATE_TEST_SUITE_P(Seconds, OddStartTest,
                         testing::Values(1, 2, -1, 42949673, -42949672,
                                         std::numeric_limits<int>::max(),
                                         std::numeric_limits<int>::min() + 1,
                                         std::numeric_limits<int>::min()));

TEST_F(PlayRawTest, SecondBeforeTheBeginningCountsDownFromTheLastPosition) {
    MakeMaterial(MATERIAL_DIRECT, 8, 100, 100);
    ScriptedPort port;
    ASSERT_EQ(OutputWaveform(-1, nullptr, nullptr), 1);
    EXPECT_EQ(g_nStartPosition, 4294967196U); // 2^32 - 100
    Stop(port);
}

// The preview of such a start has nothing to show either, however long it runs.
TEST_F(PlayRawTest, PreviewBeforeTheBeginningStaysEmpty) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000000, 100);
    ForgetPreview();
    ScriptedPort port;
    const WillingSimulator simulator(port);
    ASSERT_EQ(OutputWaveform(-1, KeepPreview, nullptr), 1);
    ASSERT_TRUE(Eventually([] { return PreviewSize() >= 200; }));
    StopOutput();
    const std::lock_guard<std::mutex> lock(g_previewLock);
    for (const OUTPUT_SIGNAL_DATA& record : g_preview) {
        ASSERT_EQ(LeadsOf(record), kNoLeads) << record.Time;
    }
}

// ---- Signals -----------------------------------------------------------------------------------

std::vector<unsigned long long> BlockedMasksOfThreads() {
    std::vector<unsigned long long> masks;
    DIR* tasks = opendir("/proc/self/task");
    while (const dirent* task = readdir(tasks)) {
        const std::string directory = std::string("/proc/self/task/") + task->d_name;
        std::ifstream status(task->d_name[0] == '.' ? std::string() : directory + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("SigBlk:", 0) == 0) {
                masks.push_back(std::stoull(line.substr(7), nullptr, 16));
            }
        }
    }
    closedir(tasks);
    return masks;
}

// The handlers lock an event that the output threads wait on: those must never run them.  Only the
// main thread and the callback thread keep the signals open.
TEST_F(PlayingTest, OutputThreadsBlockTheTimerSignals) {
    constexpr unsigned long long kTimerSignals = (1ULL << (SIGUSR1 - 1)) | (1ULL << (SIGUSR2 - 1));
    ASSERT_TRUE(Start());
    EXPECT_TRUE(Eventually([] {
        int blocked = 0;
        int open = 0;
        for (const unsigned long long mask : BlockedMasksOfThreads()) {
            blocked += (mask & kTimerSignals) == kTimerSignals ? 1 : 0;
            open += (mask & kTimerSignals) == 0 ? 1 : 0;
        }
        return blocked >= 3 && open <= 2;
    }));
    Stop(port);
}

TEST_F(PlayingTest, PreviewRunsInAHostThatBlocksTheTimerSignals) {
    BlockTimerSignals();
    ForgetPreview();
    const WillingSimulator simulator(port);
    ASSERT_TRUE(Start(KeepPreview));
    EXPECT_TRUE(Eventually([] { return PreviewSize() >= 200; }));
    StopOutput();
}

} // namespace
