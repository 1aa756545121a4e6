// End to end: what the simulator's outputs carry is, sample by sample, what was loaded.
#include "api/ravo.h"
#include "engine/Output.h"
#include "engine/PlayRaw.h"
#include "engine/Record.h"
#include "PlayFixture.h"
#include "tests/support/Eventually.h"
#include "tests/support/Files.h"
#include "tests/support/PublicRecord.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

namespace {

INSTANTIATE_TEST_SUITE_P(Units, UnitTest, testing::ValuesIn(kUnits), NameOfUnit);

// Three signals feed II, V2 and V6.
constexpr int32_t kMapping[8] = {-1, 0, -1, 2, -1, -1, -1, 1};

Voltages Mapped(std::uint64_t k) {
    Voltages voltages{};
    for (size_t lead = 0; lead < 8; ++lead) {
        voltages[lead] = kMapping[lead] == -1 ? 0.0 : Made(static_cast<size_t>(kMapping[lead]), k);
    }
    return voltages;
}

// Native text material: k is in milliseconds, and the samples lie between them.
Voltages Resampled(std::uint64_t k, std::uint64_t samples, std::uint32_t rate) {
    const double position = static_cast<double>(k) / 1000.0 * rate;
    const auto whole = static_cast<std::uint64_t>(position);
    const double part = position - static_cast<double>(whole);
    const std::uint64_t j = whole % samples;
    Voltages voltages{};
    for (size_t lead = 0; lead < 8; ++lead) {
        const double a = Made(lead, j);
        const double step = j + 1 == samples ? a - Made(lead, j - 1) : Made(lead, j + 1) - a;
        voltages[lead] = a + step * part;
    }
    return voltages;
}

// ---- Codes -------------------------------------------------------------------------------------

TEST_P(UnitTest, OutputInformationDescribesTheUnit) {
    const Bench bench(GetParam());
    RAVO_OUTPUT_INFORMATION information;
    ASSERT_TRUE(RAVOGetOutputInformation(&information));
    EXPECT_EQ(information.DACBits, GetParam().unit == Unit::kSixteenBit ? 16U : 12U);
    EXPECT_EQ(information.CalibrationLoaded, GetParam().calibrated ? 1U : 0U);
    EXPECT_STREQ(information.DevicePath, "/dev/ttyACM0");
    const Settings settings = Settings::Of(GetParam().unit);
    EXPECT_EQ(information.CalibrationFile,
              emulator::CalibrationFilePath(settings.unit, settings.behaviour));
}

TEST_P(UnitTest, DirectMaterial) {
    for (const int32_t type : {MATERIAL_DIRECT, MATERIAL_TABLE}) {
        Bench bench(GetParam());
        Make(type, 8, 4321, 250);
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
        ExpectFrames(bench.FramesAtTheEnd(),
                     WithTail(FramesOf(bench, 0, 4321, Direct), bench.FramesPerPacket()));
    }
}

TEST_P(UnitTest, MappedMaterial) {
    Bench bench(GetParam());
    Make(MATERIAL_MIT, 3, 4000, 250);
    std::copy(std::begin(kMapping), std::end(kMapping), g_ECGMappingLead);
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    ExpectFrames(bench.FramesAtTheEnd(),
                 WithTail(FramesOf(bench, 0, 4000, Mapped), bench.FramesPerPacket()));
}

TEST_P(UnitTest, NativeTextMaterial) {
    constexpr std::uint64_t kSamples = 2500;
    constexpr std::uint32_t kRate = 240;
    Bench bench(GetParam());
    Make(MATERIAL_TARNWICK, 8, kSamples, kRate);
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    // Ends at the first millisecond at or past 2500 / 240 s = 10416.67 ms.
    ExpectFrames(bench.FramesAtTheEnd(),
                 WithTail(FramesOf(bench, 0, 10417,
                                   [](std::uint64_t k) { return Resampled(k, kSamples, kRate); }),
                          bench.FramesPerPacket()));
}

TEST_P(UnitTest, LoopedMaterialFromAStartSecond) {
    Bench bench(GetParam());
    Make(MATERIAL_DIRECT, 8, 777, 100);
    RAVOEnableLoop(true);
    ASSERT_TRUE(RAVOOutputWaveform(2, nullptr, nullptr));
    const std::vector<Codes> seen = bench.FramesWhen(5000);
    RAVOStopOutput();
    const std::vector<Codes> cycle = FramesOf(bench, 200, 777, Direct);
    for (size_t i = 0; i < 5000; ++i) {
        ASSERT_EQ(seen[i], cycle[i % cycle.size()]) << "frame " << i;
    }
}

TEST_P(UnitTest, UnloopedMaterialFromAStartSecond) {
    Bench bench(GetParam());
    Make(MATERIAL_DIRECT, 8, 3000, 250);
    ASSERT_TRUE(RAVOOutputWaveform(3, nullptr, nullptr));
    ExpectFrames(bench.FramesAtTheEnd(),
                 WithTail(FramesOf(bench, 750, 3000, Direct), bench.FramesPerPacket()));
}

// ---- Once --------------------------------------------------------------------------------------

// The frames due, followed by the last one repeated to the end of the buffer after the one that
// holds it.
std::vector<Codes> Held(std::vector<Codes> frames, size_t framesPerPacket) {
    const size_t buffer = framesPerPacket * emulator::kBufferPackets;
    const Codes last = frames.back();
    frames.resize(((frames.size() + buffer - 1) / buffer + 1) * buffer, last);
    return frames;
}

TEST_P(UnitTest, OncePlaysTheWholeRecordAndNothingBeyond) {
    Bench bench(GetParam());
    Make(MATERIAL_DIRECT, 8, 4321, 250);
    RAVOEnableLoop(true);
    ASSERT_TRUE(RAVOOutputOnce(0, 0.0, nullptr, nullptr));
    ExpectFrames(bench.FramesAtTheEnd(),
                 Held(FramesOf(bench, 0, 4321, Direct), bench.FramesPerPacket()));
    EXPECT_TRUE(Eventually([] { return !RAVOIsOutputting(); }));
    RAVO_OUTPUT_POSITION at;
    ASSERT_TRUE(RAVOGetOutputPosition(&at));
    EXPECT_GE(at.FramesPlayed, 4321U);
    EXPECT_LT(at.FramesPlayed, 4321U + at.FramesPerRequest);
}

TEST_P(UnitTest, OnceEndsAfterItsSeconds) {
    Bench bench(GetParam());
    Make(MATERIAL_DIRECT, 8, 4000, 250);
    RAVOEnableLoop(false);
    ASSERT_TRUE(RAVOOutputOnce(2, 3.5, nullptr, nullptr));
    ExpectFrames(bench.FramesAtTheEnd(),
                 Held(FramesOf(bench, 500, 1375, Direct), bench.FramesPerPacket()));
}

TEST(OutputOnceTest, NeedsADevice) {
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    EXPECT_FALSE(RAVOOutputOnce(0, 1.0, nullptr, nullptr));
}

// ---- Periodic waveforms, by their definitions --------------------------------------------------

struct PeriodicCase {
    const char* name;
    std::function<bool()> load;
    std::function<double(double)> voltage; // seconds since the beginning of the period
};

constexpr double kFrequency = 3.25;
constexpr double kAmplitude = 4.5;
constexpr double kPeriod = 1.0 / kFrequency;
constexpr int kWidth = 80;

double TriangleAt(double time) {
    const double slope = 2 * kAmplitude / kPeriod;
    if (time < kPeriod * 0.25) {
        return slope * time;
    }
    return time < kPeriod * 0.75 ? kAmplitude - time * slope : time * slope - 2 * kAmplitude;
}

double TrianglePulseAt(double time) {
    const double half = kWidth / 2000.0;
    if (time <= half) {
        return (time / half) * kAmplitude - kAmplitude * 0.5;
    }
    return time <= kWidth / 1000.0 ? kAmplitude * 0.5 - ((time - half) / half) * kAmplitude
                                   : -(kAmplitude * 0.5);
}

const PeriodicCase kPeriodic[] = {
    {"Sine", [] { return RAVOLoadWaveform(WAVEFORM_SINE, kFrequency, kAmplitude); },
     [](double time) {
         return (kAmplitude * 0.5) * std::sin(time * 6.283185307179586 * kFrequency);
     }},
    {"Triangle", [] { return RAVOLoadWaveform(WAVEFORM_TRIANGLE, kFrequency, kAmplitude); },
     TriangleAt},
    {"Square", [] { return RAVOLoadWaveform(WAVEFORM_SQUARE, kFrequency, kAmplitude); },
     [](double time) { return time <= kPeriod * 0.5 ? kAmplitude * 0.5 : -(kAmplitude * 0.5); }},
    {"RectanglePulse",
     [] { return RAVOLoadWaveformRectanglePulse(kWidth, kFrequency, kAmplitude); },
     [](double time) { return time <= kWidth / 1000.0 ? kAmplitude * 0.5 : -(kAmplitude * 0.5); }},
    {"TrianglePulse", [] { return RAVOLoadWaveformTrianglePulse(kWidth, kFrequency, kAmplitude); },
     TrianglePulseAt},
};

TEST_P(UnitTest, PeriodicWaveforms) {
    for (const PeriodicCase& waveform : kPeriodic) {
        SCOPED_TRACE(waveform.name);
        Bench bench(GetParam());
        ASSERT_TRUE(waveform.load());
        ASSERT_TRUE(RAVOOutputWaveform(1, nullptr, nullptr));
        // Unlooped, and yet endless.
        const std::vector<Codes> seen = bench.FramesWhen(6000);
        RAVOStopOutput();
        for (std::uint64_t k = 0; k < 6000; ++k) {
            const double time = static_cast<double>(1000 + k) / 1000.0;
            const double inPeriod = time - std::trunc(time / kPeriod) * kPeriod;
            Voltages voltages{};
            voltages.fill(waveform.voltage(inPeriod));
            ASSERT_EQ(seen[k], bench.Expected().Frame(voltages)) << "frame " << k;
        }
    }
}

// ---- A public record ---------------------------------------------------------------------------

// Two signals in 12-bit two's complement, three bytes per frame.
std::vector<std::array<double, 2>> ReadPairs(const std::string& path, double gain, double zero) {
    const std::string content = ReadFile(path);
    const std::vector<unsigned char> bytes(content.begin(), content.end());
    const auto extend = [](int value) { return value >= 2048 ? value - 4096 : value; };
    std::vector<std::array<double, 2>> pairs;
    for (size_t i = 0; i + 2 < bytes.size(); i += 3) {
        const int first = extend(bytes[i] | (bytes[i + 1] & 0x0F) << 8);
        const int second = extend(bytes[i + 2] | (bytes[i + 1] & 0xF0) << 4);
        pairs.push_back({(first - zero) / gain, (second - zero) / gain});
    }
    return pairs;
}

class RecordTest : public UnitTest {
  protected:
    // Plays record 100 from `startSecond` to its end.
    void PlayRecordOneHundred(int startSecond) {
        const std::string path = PublicRecord("100.hea");
        if (path.empty()) {
            GTEST_SKIP() << "The public records are missing (RAVO_TEST_DATA names their "
                            "directory).";
        }
        const auto pairs = ReadPairs(PublicRecord("100.dat"), 200.0, 1024.0);
        ASSERT_EQ(pairs.size(), 650000U);

        Bench bench(GetParam());
        ECG_HEADER* header = RAVOLoadMITHeader(path.c_str());
        ASSERT_NE(header, nullptr);
        ASSERT_TRUE(RAVOLoadMITDatabase(header));
        RAVOFreeECGHeader(header);
        ASSERT_TRUE(RAVOOutputWaveform(startSecond, nullptr, nullptr));
        // MLII feeds II, V5 feeds V5.
        const auto voltages = [&pairs](std::uint64_t k) {
            return Voltages{0.0, pairs[k][0], 0.0, 0.0, 0.0, 0.0, pairs[k][1], 0.0};
        };
        const auto first = static_cast<std::uint64_t>(startSecond) * 360;
        ExpectFrames(
            bench.FramesAtTheEnd(),
            WithTail(FramesOf(bench, first, pairs.size(), voltages), bench.FramesPerPacket()));
        const emulator::Counters seen = bench.Device().Seen().Count();
        EXPECT_EQ(seen.sequenceGaps, 0U);
        EXPECT_EQ(seen.unknownBytes, 0U);
        EXPECT_EQ(seen.markers * emulator::kBufferPackets, seen.packets);
    }
};

INSTANTIATE_TEST_SUITE_P(Units, RecordTest, testing::ValuesIn(kUnits), NameOfUnit);

TEST_P(RecordTest, LastMinuteOfRecordOneHundred) {
    PlayRecordOneHundred(1740);
}

// Half an hour of material; too long for every run of the suite, even at full speed.
TEST_P(RecordTest, WholeRecordOneHundred) {
    if (std::getenv("RAVO_TEST_SOAK") == nullptr) {
        GTEST_SKIP() << "RAVO_TEST_SOAK is not set.";
    }
    PlayRecordOneHundred(0);
}

// ---- Pace --------------------------------------------------------------------------------------

std::mutex g_previewLock;
struct Shown {
    double time;
    double recordTime;
    double leadII;
    bool end;
};
std::vector<Shown> g_shown;

void Show(double time, double recordTime, double* leads, bool end) {
    const std::lock_guard<std::mutex> lock(g_previewLock);
    g_shown.push_back({time, recordTime, leads[1], end});
}

bool PreviewHasEnded() {
    const std::lock_guard<std::mutex> lock(g_previewLock);
    return !g_shown.empty() && g_shown.back().end;
}

// At real time the end of the preview, which runs at twice that, ends the output.
TEST_P(UnitTest, RealTimeEndsWithThePreview) {
    constexpr std::uint64_t kSamples = 4000;
    Bench bench(GetParam(), 1.0);
    Make(MATERIAL_DIRECT, 8, kSamples, 1000);
    const auto before = Clock::now();
    ASSERT_TRUE(RAVOOutputWaveform(0, Show, nullptr));
    const std::vector<Codes> seen = bench.FramesAtTheEnd();
    EXPECT_GE(Clock::now() - before, milliseconds(1900));
    EXPECT_TRUE(Eventually([] { return !RAVOIsOutputting() && PreviewHasEnded(); }));

    ASSERT_EQ(g_shown.size(), kSamples + 1);
    for (std::uint64_t k = 0; k < kSamples; ++k) {
        ASSERT_EQ(g_shown[k].time, static_cast<double>(k) / 1000.0);
        ASSERT_EQ(g_shown[k].recordTime, static_cast<double>(k) / 1000.0);
        ASSERT_EQ(g_shown[k].leadII, Made(1, k));
        ASSERT_FALSE(g_shown[k].end);
    }
    EXPECT_EQ(g_shown.back().time, 4.0);

    const std::vector<Codes> expected =
        WithTail(FramesOf(bench, 0, kSamples, Direct), bench.FramesPerPacket());
    ASSERT_GE(seen.size(), 300U);
    ASSERT_LE(seen.size(), expected.size());
    for (size_t i = 0; i < seen.size(); ++i) {
        ASSERT_EQ(seen[i], expected[i]) << "frame " << i;
    }
    RAVOStopOutput();
}

TEST_P(UnitTest, StartCommandGivesTheClockTheRate) {
    Bench bench(GetParam());
    Make(MATERIAL_DIRECT, 8, 2000, 500);
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    ASSERT_TRUE(bench.Device().Seen().WaitForStarts(1, seconds(60)));
    const emulator::SeenStart start = bench.Device().Seen().Starts()[0];
    EXPECT_EQ(start.reload, GetParam().unit == Unit::kLegacy ? 53548 : 53615);
    EXPECT_EQ(start.range, 5);
    RAVOStopOutput();
}

} // namespace
