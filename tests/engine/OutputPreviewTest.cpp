#include "engine/Preview.h"

#include "engine/Output.h"
#include "engine/PlayRaw.h"
#include "engine/Prepare.h"
#include "engine/Settings.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "tests/engine/MadeMaterial.h"
#include "tests/engine/PlayFixture.h"
#include "tests/support/Eventually.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <mutex>
#include <ostream>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

const std::vector<double> kNoLeads(12, 0.0);

std::vector<double> LeadsOf(const OUTPUT_SIGNAL_DATA& record) {
    return std::vector<double>(record.Leads, record.Leads + 12);
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

// Without a complete stop of the output, which clears the queue, the preview's last record can be
// seen.
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

// At such a rate one tick demands millions of records.
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

// Nor must a stop wait for them.
TEST_F(PlayRawTest, StopIsSeenWithinATickOfMillionsOfRecords) {
    constexpr uint32_t kRate = 4000000000U; // 80 million in the first tick
    MakeMaterial(MATERIAL_DIRECT, 8, 1000000, kRate);
    g_bPlayLoop = 1;
    StoreShared(g_OutputSignalCB, StopAndForgetTheRest);
    g_hStopPlayEvent.ResetEvent();
    OutputSignalThread(nullptr);
    // A full queue after the first record, and 10,000 more records before the stop is checked.
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

// The system refuses the display its timer, so ticks come only from the test.
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
// tick of each second, one more.  The very first tick is extra.
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

TEST_F(PlayingTest, PreviewRunsInAHostThatBlocksTheTimerSignals) {
    BlockTimerSignals();
    ForgetPreview();
    const WillingSimulator simulator(port);
    ASSERT_TRUE(Start(KeepPreview));
    EXPECT_TRUE(Eventually([] { return PreviewSize() >= 200; }));
    StopOutput();
}

} // namespace
