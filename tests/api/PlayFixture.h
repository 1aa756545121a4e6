#pragma once

#include "api/ravo.h"
#include "engine/Record.h"
#include "engine/Settings.h"
#include "ExpectedCodes.h"
#include "Listener.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

using emulator::Codes;
using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

using Voltages = std::array<double, 8>;

// ---- Units -------------------------------------------------------------------------------------

struct UnitCase {
    const char* name;
    Unit unit;
    bool calibrated;
};

constexpr UnitCase kUnits[] = {{"TwelveBitCalibrated", Unit::kTwelveBit, true},
                               {"TwelveBit", Unit::kTwelveBit, false},
                               {"SixteenBit", Unit::kSixteenBit, false},
                               {"Legacy", Unit::kLegacy, false}};

inline void PrintTo(const UnitCase& unit, std::ostream* out) {
    *out << unit.name;
}

inline seconds Patience() {
    return seconds(std::getenv("RAVO_TEST_SOAK") == nullptr ? 100 : 1000);
}

// A connected simulator that plays as fast as the host delivers, unless told otherwise.
class Bench {
  public:
    explicit Bench(const UnitCase& unit, double speed = 0.0)
        : m_converter(unit.unit), m_settings(SettingsOf(unit, speed)) {
        const std::string path = emulator::CalibrationFilePath(unit.unit, m_settings.behaviour);
        std::filesystem::remove(path);
        if (unit.calibrated) {
            EXPECT_TRUE(emulator::ConverterModel::Uncalibrated().WriteCalibrationFile(path));
            m_converter.Calibrate(path);
            EXPECT_TRUE(m_converter.IsCalibrated());
        }
        m_simulator = std::make_unique<Simulator>(m_settings);
        Listener::Forget();
        EXPECT_TRUE(RAVOInit(Listener::Hear));
        EXPECT_TRUE(Listener::WaitForCalls(1));
    }
    ~Bench() { RAVOFree(); }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    Simulator& Device() { return *m_simulator; }
    const Converter& Expected() const { return m_converter; }
    size_t FramesPerPacket() const { return m_settings.unit == Unit::kSixteenBit ? 3 : 5; }

    std::vector<Codes> FramesWhen(std::uint64_t count) {
        EXPECT_TRUE(m_simulator->Seen().WaitForFrames(count, Patience()));
        return m_simulator->Seen().Frames();
    }
    std::vector<Codes> FramesAtTheEnd() {
        EXPECT_TRUE(m_simulator->Seen().WaitForStops(1, Patience()));
        return m_simulator->Seen().Frames();
    }

  private:
    static Settings SettingsOf(const UnitCase& unit, double speed) {
        Settings settings = Settings::Of(unit.unit);
        settings.behaviour.speed = speed;
        return settings;
    }

    Converter m_converter;
    Settings m_settings;
    std::unique_ptr<Simulator> m_simulator;
};

// ---- Made material -----------------------------------------------------------------------------

// Lead `lead` at sample `k`; it exceeds the range of the outputs now and then.
inline double Made(size_t lead, std::uint64_t k) {
    const auto time = static_cast<double>(k);
    return 5.2 * std::sin(time * (0.011 + 0.003 * static_cast<double>(lead))) +
           0.1 * static_cast<double>(lead);
}

inline void Make(int32_t type, size_t signals, std::uint64_t samples, std::uint32_t rate) {
    g_WaveformType = type;
    g_nSampleCount = samples;
    g_nSampleRate = rate;
    ASSERT_EQ(ReallocateECGDataBuffer(static_cast<int>(signals)), 1);
    for (size_t lead = 0; lead < signals; ++lead) {
        for (std::uint64_t k = 0; k < samples; ++k) {
            g_pECGData[lead][k] = Made(lead, k);
        }
    }
}

inline Voltages Direct(std::uint64_t k) {
    Voltages voltages{};
    for (size_t lead = 0; lead < 8; ++lead) {
        voltages[lead] = Made(lead, k);
    }
    return voltages;
}

// ---- Expectations ------------------------------------------------------------------------------

// The content of the wire for an unlooped record: its frames, zeros to the end of the packet in
// which it ended, then its last frame to the end of the buffer.
inline std::vector<Codes> WithTail(std::vector<Codes> frames, size_t framesPerPacket) {
    const Codes last = frames.back();
    while (frames.size() % framesPerPacket != 0) {
        frames.push_back(Codes{});
    }
    while (frames.size() % (framesPerPacket * emulator::kBufferPackets) != 0) {
        frames.push_back(last);
    }
    return frames;
}

inline void ExpectFrames(const std::vector<Codes>& seen, const std::vector<Codes>& expected) {
    ASSERT_EQ(seen.size(), expected.size());
    for (size_t i = 0; i < seen.size(); ++i) {
        ASSERT_EQ(seen[i], expected[i]) << "frame " << i;
    }
}

class UnitTest : public testing::TestWithParam<UnitCase> {
  protected:
    void SetUp() override {
        g_bPlayLoop = 0;
        g_NoiseOn = 0;
    }
};

inline std::string NameOfUnit(const testing::TestParamInfo<UnitCase>& info) {
    return info.param.name;
}

inline std::vector<Codes> FramesOf(const Bench& bench, std::uint64_t first, std::uint64_t end,
                                   const std::function<Voltages(std::uint64_t)>& voltages) {
    std::vector<Codes> frames;
    for (std::uint64_t k = first; k < end; ++k) {
        frames.push_back(bench.Expected().Frame(voltages(k)));
    }
    return frames;
}
