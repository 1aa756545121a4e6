// Material that plays once: which request ends the output, what the line carries until then, and
// what the preview shows.
#include "device/Protocol.h"
#include "engine/Output.h"
#include "engine/OutputPosition.h"
#include "engine/PlayRaw.h"
#include "engine/Preview.h"
#include "engine/Settings.h"
#include "platform/SharedValue.h"
#include "ScriptedPort.h"
#include "tests/engine/MadeMaterial.h"
#include "tests/support/Eventually.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using Wire = std::vector<unsigned char>;
using Frame = Wire;

constexpr size_t kBuffer = 3200;
constexpr size_t kStartCommand = 4;

std::mutex g_shownLock;
std::vector<OUTPUT_SIGNAL_DATA> g_shown;

void Show(double time, double recordTime, double* leads, bool end) {
    OUTPUT_SIGNAL_DATA record{time, recordTime, {}, end};
    std::copy_n(leads, 12, record.Leads);
    const std::lock_guard<std::mutex> lock(g_shownLock);
    g_shown.push_back(record);
}

std::vector<OUTPUT_SIGNAL_DATA> Shown() {
    const std::lock_guard<std::mutex> lock(g_shownLock);
    return g_shown;
}

bool HasEnded() {
    const std::vector<OUTPUT_SIGNAL_DATA> shown = Shown();
    return !shown.empty() && shown.back().End;
}

// A 12-bit frame of eight codes, worked out bit by bit: byte j holds bit 11 - j of every channel.
Frame PackedFrame(const std::array<int, 8>& codes) {
    Frame frame(12);
    for (size_t j = 0; j < 12; ++j) {
        for (size_t channel = 0; channel < 8; ++channel) {
            const int bit = codes[channel] >> (11 - j) & 1;
            frame[j] = static_cast<unsigned char>(frame[j] | bit << channel);
        }
    }
    return frame;
}

// The frames of a buffer, without the headers of their packets.
std::vector<Frame> FramesOf(const Wire& buffer) {
    std::vector<Frame> frames;
    for (size_t k = 0; k < buffer.size() / 12; ++k) {
        const auto at = static_cast<std::ptrdiff_t>(64 * (k / 5) + 4 + 12 * (k % 5));
        if (static_cast<size_t>(at) + 12 <= buffer.size()) {
            frames.emplace_back(buffer.begin() + at, buffer.begin() + at + 12);
        }
    }
    return frames;
}

// The 12-bit code of a voltage, uncalibrated: 2000 steps for 5 mV.
int CodeOf(double voltage) {
    return static_cast<int>(voltage / 5.0 * 2000.0 + 2048.0);
}

// The limb leads as they are; the chest leads, from V6 down to V1, against the mean of the limbs.
Frame FrameOfSample(uint64_t sample) {
    const double one = MadeVoltage(0, sample);
    const double two = MadeVoltage(1, sample);
    const double mean = (one + two) * 0.33333333333;
    std::array<int, 8> codes = {CodeOf(one), CodeOf(two)};
    for (size_t channel = 2; channel < 8; ++channel) {
        const double chest = MadeVoltage(9 - static_cast<int>(channel), sample);
        codes[channel] = CodeOf((chest + mean) * 0.592731022038923);
    }
    return PackedFrame(codes);
}

class OutputOnceTest : public testing::Test {
  protected:
    OutputOnceTest() {
        g_fVoltageRange = 5.0;
        g_bPlayLoop = 1; // must have no effect
        g_bIsISPSupported = 1;
        g_nDACBit = 0;
        g_shown.clear();
    }

    std::vector<Frame> ReceiveFrames() {
        std::vector<Frame> frames = FramesOf(port.Receive(kBuffer));
        EXPECT_EQ(frames.size(), 250U);
        return frames;
    }
    // The start command and the first buffer, which is not requested.
    std::vector<Frame> ReceiveStart() {
        EXPECT_EQ(port.Receive(kStartCommand).size(), kStartCommand);
        return ReceiveFrames();
    }
    std::vector<Frame> Ask() {
        port.AskForBuffer();
        return ReceiveFrames();
    }
    // The request that proves the last frame is answered with the stop.
    void AskAtTheEnd() {
        port.AskForBuffer();
        EXPECT_EQ(port.Receive(1), Wire{'S'});
        port.Send({'?'}); // with input waiting, the end does not take a whole second
        EXPECT_EQ(port.Receive(1), Wire{'S'});
        EXPECT_TRUE(Eventually([] { return !IsOutputting(); }));
        EXPECT_TRUE(port.IsQuietFor(50));
    }
    static OutputPosition Position() {
        OutputPosition position;
        EXPECT_TRUE(GetOutputPosition(position));
        return position;
    }
    // Stops without waiting for requests that never arrive.
    static void Abandon() {
        g_hForceStopPlayEvent.SetEvent();
        StopOutput();
    }

    ScriptedPort port;
};

void ExpectSamples(const std::vector<Frame>& frames, size_t from, uint64_t first, size_t count) {
    for (size_t k = 0; k < count; ++k) {
        ASSERT_EQ(frames[from + k], FrameOfSample(first + k)) << "frame " << from + k;
    }
}

void ExpectHeld(const std::vector<Frame>& frames, size_t from, uint64_t sample) {
    for (size_t k = from; k < frames.size(); ++k) {
        ASSERT_EQ(frames[k], FrameOfSample(sample)) << "frame " << k;
    }
}

// 300 frames: two buffers, and the third request proves 500.
TEST_F(OutputOnceTest, EndsAtTheRequestThatProvesTheLastFrame) {
    MakeMaterial(MATERIAL_DIRECT, 8, 300, 500);
    ASSERT_EQ(OutputOnce(0, 0.0, nullptr, nullptr), 1);
    ExpectSamples(ReceiveStart(), 0, 0, 250);
    const std::vector<Frame> second = Ask();
    ExpectSamples(second, 0, 250, 50);
    ExpectHeld(second, 50, 299);
    EXPECT_TRUE(IsOutputting());
    ExpectHeld(Ask(), 0, 299);
    EXPECT_TRUE(IsOutputting());
    AskAtTheEnd();
    EXPECT_EQ(Position().FramesPlayed, 500U);
    EXPECT_EQ(Position().FramesSent, 750U);
    EXPECT_EQ(Position().Requests, 3U);
    StopOutput();
}

// The material fills its buffer exactly: one buffer beyond it, and no more.
TEST_F(OutputOnceTest, WholeBuffersEndOneBufferLater) {
    MakeMaterial(MATERIAL_DIRECT, 8, 250, 500);
    ASSERT_EQ(OutputOnce(0, 0.0, nullptr, nullptr), 1);
    ExpectSamples(ReceiveStart(), 0, 0, 250);
    ExpectHeld(Ask(), 0, 249);
    AskAtTheEnd();
    EXPECT_EQ(Position().FramesPlayed, 250U);
    StopOutput();
}

// 0.2 s from second 1 on: samples 500 to 599, however long the material is.
TEST_F(OutputOnceTest, PlaysSoManySecondsFromAStart) {
    MakeMaterial(MATERIAL_DIRECT, 8, 5000, 500);
    ASSERT_EQ(OutputOnce(1, 0.2, nullptr, nullptr), 1);
    const std::vector<Frame> frames = ReceiveStart();
    ExpectSamples(frames, 0, 500, 100);
    ExpectHeld(frames, 100, 599);
    ExpectHeld(Ask(), 0, 599);
    AskAtTheEnd();
    StopOutput();
}

// The third value of the noise alone is not 0: it appears in the third frame of each play.
TEST_F(OutputOnceTest, NoiseBeginsWithEachPlay) {
    MakeMaterial(MATERIAL_DIRECT, 8, 250, 500);
    g_NoiseOn = 1;
    g_NoiseData[2] = 500;
    for (int play = 0; play < 2; ++play) {
        ASSERT_EQ(OutputOnce(0, 0.0, nullptr, nullptr), 1);
        const std::vector<Frame> frames = ReceiveStart();
        ExpectSamples(frames, 0, 0, 2);
        EXPECT_NE(frames[2], FrameOfSample(2));
        ExpectSamples(frames, 3, 3, 247);
        ExpectHeld(Ask(), 0, 249);
        AskAtTheEnd();
    }
    StopOutput();
    g_NoiseOn = 0;
    g_NoiseData[2] = 0;
}

TEST_F(OutputOnceTest, TimeBeyondTheEndDoesNotRepeatIt) {
    MakeMaterial(MATERIAL_DIRECT, 8, 600, 500);
    for (const double seconds : {10.0, 1e300, std::numeric_limits<double>::infinity()}) {
        ASSERT_EQ(OutputOnce(1, seconds, nullptr, nullptr), 1);
        const std::vector<Frame> frames = ReceiveStart();
        ExpectSamples(frames, 0, 500, 100);
        ExpectHeld(frames, 100, 599);
        ExpectHeld(Ask(), 0, 599);
        AskAtTheEnd();
    }
    StopOutput();
}

// 2400 samples at 240 per second are 10 s or 10,000 frames of 1 ms; from second 9 on, 1000.
TEST_F(OutputOnceTest, NativeTextCountsMilliseconds) {
    MakeMaterial(MATERIAL_TARNWICK, 8, 2400, 240);
    ASSERT_EQ(OutputOnce(9, 0.0, Show, nullptr), 1);
    ReceiveStart();
    for (int i = 0; i < 4; ++i) {
        Ask();
    }
    AskAtTheEnd();
    EXPECT_EQ(Position().FramesPlayed, 1000U);
    ASSERT_TRUE(Eventually(HasEnded));
    const std::vector<OUTPUT_SIGNAL_DATA> shown = Shown();
    ASSERT_EQ(shown.size(), 241U);
    for (size_t k = 0; k < 240; ++k) {
        ASSERT_EQ(shown[k].RecordTime, static_cast<double>(2160 + k) / 240.0);
        ASSERT_EQ(shown[k].Leads[0], MadeVoltage(0, 2160 + k));
    }
    EXPECT_EQ(shown.back().Time, 1.0);
    EXPECT_EQ(shown.back().RecordTime, 10.0);
    StopOutput();
}

TEST_F(OutputOnceTest, MaterialWithoutEndEndsByItsTimeOrNever) {
    MakeMaterial(MATERIAL_SQUARE, 8, 2, 1000);
    ASSERT_EQ(OutputOnce(0, 0.25, nullptr, nullptr), 1);
    ReceiveStart();
    Ask();
    AskAtTheEnd();
    ASSERT_EQ(OutputOnce(0, 0.0, nullptr, nullptr), 1);
    ReceiveStart();
    for (int i = 0; i < 20; ++i) {
        Ask();
    }
    EXPECT_TRUE(IsOutputting());
    Abandon();
}

TEST_F(OutputOnceTest, RefusesWhatCannotBePlayed) {
    MakeMaterial(MATERIAL_DIRECT, 8, 1000, 500);
    EXPECT_EQ(OutputOnce(2, 0.0, nullptr, nullptr), 0); // the end is at second 2
    EXPECT_EQ(OutputOnce(-1, 0.0, nullptr, nullptr), 0);
    EXPECT_EQ(OutputOnce(0, -0.5, nullptr, nullptr), 0);
    EXPECT_EQ(OutputOnce(0, std::nan(""), nullptr, nullptr), 0);
    g_nSampleRate = 0;
    EXPECT_EQ(OutputOnce(0, 0.0, nullptr, nullptr), 0);
    EXPECT_FALSE(IsOutputting());
    EXPECT_TRUE(port.IsQuietFor(50));
}

// The preview shows nothing that the outputs have not carried; after the last request it has shown
// everything.
TEST_F(OutputOnceTest, PreviewFollowsTheOutputs) {
    MakeMaterial(MATERIAL_DIRECT, 8, 600, 500);
    ASSERT_EQ(OutputOnce(0, 1.0, Show, nullptr), 1);
    ReceiveStart();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(Shown().empty()); // the outputs have not started
    Ask();
    ASSERT_TRUE(Eventually([] { return Shown().size() == 250; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(Shown().size(), 250U); // the next request is late, and so are the outputs
    Ask();
    AskAtTheEnd();
    ASSERT_TRUE(Eventually(HasEnded));
    const std::vector<OUTPUT_SIGNAL_DATA> shown = Shown();
    ASSERT_EQ(shown.size(), 501U);
    for (size_t k = 0; k < 500; ++k) {
        ASSERT_EQ(shown[k].Time, static_cast<double>(k) / 500.0);
        ASSERT_EQ(shown[k].RecordTime, static_cast<double>(k) / 500.0);
        ASSERT_EQ(shown[k].Leads[0], MadeVoltage(0, k));
        ASSERT_FALSE(shown[k].End);
    }
    EXPECT_EQ(shown.back().Time, 1.0);
    EXPECT_EQ(shown.back().RecordTime, 1.0);
    EXPECT_EQ(std::vector<double>(shown.back().Leads, shown.back().Leads + 12),
              std::vector<double>(12, 0.0));
    StopOutput();
}

// An output that was lost ends its preview where it was, with the leads of that sample.
TEST_F(OutputOnceTest, LostOutputEndsItsPreview) {
    MakeMaterial(MATERIAL_DIRECT, 8, 600, 500);
    ASSERT_EQ(OutputOnce(0, 0.0, Show, nullptr), 1);
    ReceiveStart();
    Ask();
    ASSERT_TRUE(Eventually([] { return Shown().size() == 250; }));
    port.Unplug();
    ASSERT_TRUE(Eventually(HasEnded));
    EXPECT_FALSE(IsOutputting());
    EXPECT_EQ(Shown().size(), 251U);
    EXPECT_EQ(Shown().back().RecordTime, 0.5);
    EXPECT_EQ(Shown().back().Leads[0], MadeVoltage(0, 250));
    EXPECT_EQ(Position().FramesPlayed, 0U);
    StopOutput();
}

} // namespace
