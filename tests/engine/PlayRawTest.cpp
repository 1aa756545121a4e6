#include "engine/PlayRaw.h"

#include "device/Protocol.h"
#include "engine/Output.h"
#include "engine/PlayThread.h"
#include "engine/Prepare.h"
#include "engine/Settings.h"
#include "tests/engine/MadeMaterial.h"
#include "tests/engine/PlayFixture.h"
#include "tests/support/Eventually.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace {

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
    const BusyHost host; // clearing a full queue takes long, and the highest rate fills it
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

// The pause lets the threads start before the host continues.
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

// It would request a second buffer.
TEST_F(PlayRawTest, StartForgetsAnEarlierRequest) {
    g_hSendEvent.SetEvent();
    const NoThreads noThreads;
    EXPECT_FALSE(RunPlayThread());
    EXPECT_EQ(g_hSendEvent.WaitTimeout(0), 110);
}

// A start second at or past the end, or before the beginning, is silence rather than a crash.
class OddStartTest : public PlayRawTest, public testing::WithParamInterface<int> {};

TEST_P(OddStartTest, PlaysWithoutMaterial) {
    MakeMaterial(MATERIAL_DIRECT, 8, 100, 100);
    g_bPlayLoop = 1; // otherwise the preview may end the output before the first buffer
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
    // The first buffer is sent without a request.
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

// The handlers lock an event that the output threads wait on, so those must never run them.  Only
// the main thread and the callback thread leave the signals unblocked.
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

} // namespace
