#include "engine/Preview.h"

#include "engine/Prepare.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "tests/engine/MadeMaterial.h"
#include "tests/support/Eventually.h"

#include <atomic>
#include <cmath>
#include <csignal>
#include <gtest/gtest.h>
#include <limits>
#include <mutex>
#include <pthread.h>
#include <vector>

namespace {

struct Sample {
    double time;
    std::vector<double> leads;
    bool end;
};

std::vector<Sample> g_samples;

void KeepSample(double time, double* leads, bool end) {
    g_samples.push_back({time, std::vector<double>(leads, leads + 12), end});
}

class GetWaveformSignalTest : public testing::Test {
  protected:
    void SetUp() override {
        g_samples.clear();
        g_iECGSignalNumber = 0;
    }
};

TEST_F(GetWaveformSignalTest, FailsWithoutMaterial) {
    g_WaveformType = MATERIAL_DIRECT;
    EXPECT_EQ(GetWaveformSignal(0, 1, KeepSample), 0);
    EXPECT_TRUE(g_samples.empty());
}

TEST_F(GetWaveformSignalTest, FailsWithoutCallback) {
    MakeMaterial(MATERIAL_DIRECT, 8, 10, 10);
    EXPECT_EQ(GetWaveformSignal(0, 1, nullptr), 0);
}

TEST_F(GetWaveformSignalTest, GivesOnlyTheEndWithoutARate) {
    MakeMaterial(MATERIAL_DIRECT, 8, 10, 0);
    EXPECT_EQ(GetWaveformSignal(3, 1, KeepSample), 1);
    ASSERT_EQ(g_samples.size(), 1U);
    EXPECT_TRUE(g_samples[0].end);
    EXPECT_EQ(g_samples[0].time, 0.0);
    EXPECT_EQ(g_samples[0].leads, std::vector<double>(12, 0.0));
}

TEST_F(GetWaveformSignalTest, GivesEverySampleAndThenTheEnd) {
    MakeMaterial(MATERIAL_DIRECT, 8, 500, 360);
    ASSERT_EQ(GetWaveformSignal(0, 2, KeepSample), 1);
    ASSERT_EQ(g_samples.size(), 501U);
    for (size_t k = 0; k < 500; ++k) {
        ASSERT_EQ(g_samples[k].time, static_cast<double>(k) / 360.0);
        ASSERT_FALSE(g_samples[k].end);
        ASSERT_EQ(g_samples[k].leads[0], MadeVoltage(0, k));  // I
        ASSERT_EQ(g_samples[k].leads[1], MadeVoltage(1, k));  // II
        ASSERT_EQ(g_samples[k].leads[11], MadeVoltage(7, k)); // V6
    }
    EXPECT_EQ(g_samples[500].time, 500 / 360.0);
    EXPECT_TRUE(g_samples[500].end);
    EXPECT_EQ(g_samples[500].leads, std::vector<double>(12, 0.0));
}

TEST_F(GetWaveformSignalTest, EndsAfterTheSecondsAskedFor) {
    MakeMaterial(MATERIAL_TABLE, 8, 500, 100);
    ASSERT_EQ(GetWaveformSignal(2, 1, KeepSample), 1);
    ASSERT_EQ(g_samples.size(), 101U);
    EXPECT_EQ(g_samples[0].time, 2.0);
    EXPECT_EQ(g_samples[0].leads[0], MadeVoltage(0, 200));
    EXPECT_EQ(g_samples[100].time, 3.0);
    EXPECT_TRUE(g_samples[100].end);
}

TEST_F(GetWaveformSignalTest, PeriodicMaterialIsNotBoundByItsTwoSamples) {
    for (const int32_t type : {MATERIAL_SINE, MATERIAL_SQUARE, MATERIAL_TRIANGLE_PULSE}) {
        MakeMaterial(type, 8, 2, 1000);
        g_samples.clear();
        ASSERT_EQ(GetWaveformSignal(1, 2, KeepSample), 1);
        ASSERT_EQ(g_samples.size(), 2001U) << type;
        EXPECT_EQ(g_samples[0].time, 1.0);
        EXPECT_EQ(g_samples[2000].time, 3.0);
    }
    // Material of the last kind before the periodic ones.
    MakeMaterial(128, 8, 2, 1000);
    g_samples.clear();
    ASSERT_EQ(GetWaveformSignal(0, 2, KeepSample), 1);
    EXPECT_EQ(g_samples.size(), 2U + 1U);
}

TEST_F(GetWaveformSignalTest, NegativeStartGivesZeros) {
    MakeMaterial(MATERIAL_DIRECT, 8, 100, 100);
    ASSERT_EQ(GetWaveformSignal(-1, 2, KeepSample), 1);
    ASSERT_EQ(g_samples.size(), 201U);
    EXPECT_EQ(g_samples[0].time, -1.0);
    EXPECT_EQ(g_samples[0].leads, std::vector<double>(12, 0.0));
    EXPECT_EQ(g_samples[99].leads, std::vector<double>(12, 0.0));
    EXPECT_EQ(g_samples[100].leads[0], -1.0);
}

// Cut to 32 bits, sample -4294967500 would be sample -204, and soon afterwards a sample inside the
// record.
TEST_F(GetWaveformSignalTest, StartFarBeforeTheBeginningGivesZeros) {
    MakeMaterial(MATERIAL_DIRECT, 8, 100, 500);
    ASSERT_EQ(GetWaveformSignal(-8589935, 2, KeepSample), 1);
    ASSERT_EQ(g_samples.size(), 1001U);
    EXPECT_EQ(g_samples[0].time, -8589935.0);
    for (const Sample& sample : g_samples) {
        ASSERT_EQ(sample.leads, std::vector<double>(12, 0.0)) << sample.time;
    }
}

TEST_F(GetWaveformSignalTest, StartBeyondTheEndOnlySaysSo) {
    MakeMaterial(MATERIAL_DIRECT, 8, 100, 100);
    ASSERT_EQ(GetWaveformSignal(5, 1, KeepSample), 1);
    ASSERT_EQ(g_samples.size(), 1U);
    EXPECT_EQ(g_samples[0].time, 5.0);
    EXPECT_TRUE(g_samples[0].end);
}

TEST_F(GetWaveformSignalTest, AbsurdSecondsDoNotOverflow) {
    constexpr int kLargest = std::numeric_limits<int>::max();
    MakeMaterial(MATERIAL_DIRECT, 8, 100, 100);
    ASSERT_EQ(GetWaveformSignal(kLargest, kLargest, KeepSample), 1);
    EXPECT_EQ(g_samples.size(), 1U);
    g_nSampleRate = std::numeric_limits<uint32_t>::max();
    ASSERT_EQ(GetWaveformSignal(0, kLargest, KeepSample), 1);
    EXPECT_EQ(g_samples.size(), 1U + 101U);
    ASSERT_EQ(GetWaveformSignal(0, std::numeric_limits<int>::min(), KeepSample), 1);
    EXPECT_EQ(g_samples.size(), 1U + 101U + 1U);
}

// ---- Queue and callback thread -----------------------------------------------------------------

std::mutex g_recordsLock;
std::vector<OUTPUT_SIGNAL_DATA> g_records;
std::atomic<bool> g_timerSignalsWereBlocked{true};

bool TimerSignalsAreBlocked() {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGUSR1) == 1 && sigismember(&mask, SIGUSR2) == 1;
}

void KeepRecord(double time, double recordTime, double* leads, bool end) {
    {
        // Would block for ever if the callback thread held the queue's lock.
        const CAutoCriticalSection lock(g_OutputCriticalSection);
    }
    g_timerSignalsWereBlocked = g_timerSignalsWereBlocked && TimerSignalsAreBlocked();
    OUTPUT_SIGNAL_DATA record{time, recordTime, {}, end};
    std::copy_n(leads, 12, record.Leads);
    const std::lock_guard<std::mutex> lock(g_recordsLock);
    g_records.push_back(record);
}

size_t KeptRecords() {
    const std::lock_guard<std::mutex> lock(g_recordsLock);
    return g_records.size();
}

bool QueueIsEmpty() {
    const CAutoCriticalSection lock(g_OutputCriticalSection);
    return g_vecOutputSignalData.empty();
}

TEST(CallbackThreadTest, DeliversInOrderOutsideTheLockWithTimerSignalsBlocked) {
    StoreShared(g_OutputSignalCB, KeepRecord);
    for (int i = 0; i < 1000; ++i) {
        double leads[12];
        std::fill_n(leads, 12, i * 0.5);
        AppendOutputSignalData(i, i + 0.25, leads, i == 999);
    }
    ASSERT_TRUE(Eventually([] { return KeptRecords() == 1000; }));
    const std::lock_guard<std::mutex> lock(g_recordsLock);
    for (size_t i = 0; i < 1000; ++i) {
        const auto number = static_cast<double>(i);
        ASSERT_EQ(g_records[i].Time, number);
        ASSERT_EQ(g_records[i].RecordTime, number + 0.25);
        ASSERT_EQ(g_records[i].Leads[0], number * 0.5);
        ASSERT_EQ(g_records[i].Leads[11], number * 0.5);
        ASSERT_EQ(g_records[i].End, i == 999);
    }
    EXPECT_TRUE(g_timerSignalsWereBlocked);
}

TEST(CallbackThreadTest, ForgetsRecordsThatNobodyWants) {
    StoreShared(g_OutputSignalCB, nullptr);
    double leads[12] = {};
    AppendOutputSignalData(0.0, 0.0, leads, false);
    AppendOutputSignalData(0.0, 0.0, leads, true);
    EXPECT_TRUE(Eventually(QueueIsEmpty));
}

// A host that keeps the timer signals out of all its threads must still get timer ticks.
TEST(CallbackThreadTest, TakesTimerSignalsThatNoOtherThreadTakes) {
    BlockTimerSignals();
    unsigned int signal = SIGUSR2;
    void* timer = CreateNewTimer(10, signal);
    EXPECT_TRUE(Eventually([] { return g_hSigUsr2Event.WaitTimeout(0) == 0; }));
    EXPECT_TRUE(Eventually([] { return g_hSigUsr2Event.WaitTimeout(0) == 0; }));
    DeleteTimer(0, timer);
}

} // namespace
