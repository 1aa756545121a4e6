#pragma once

#include "api/ravo.h"
#include "ExpectedCodes.h"
#include "tests/support/Files.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using namespace std::chrono_literals;

using emulator::Codes;
using Voltages = std::array<double, 8>; // I, II, V1 to V6
using Samples = std::vector<int>;
using FrameAt = std::function<Codes(size_t frame)>;

inline constexpr double kRange = 5.0;

struct HeaderReleaser {
    void operator()(ECG_HEADER* header) const { RAVOFreeECGHeader(header); }
};
using Header = std::unique_ptr<ECG_HEADER, HeaderReleaser>;

// Different noise for each lead, so that a sample or a lead that is off by one shows.
inline Samples Made(size_t lead, size_t count, int amplitude) {
    Samples samples;
    std::uint32_t state = static_cast<std::uint32_t>(lead) * 7919 + 1;
    for (size_t i = 0; i < count; ++i) {
        state = state * 1664525 + 1013904223;
        samples.push_back(
            static_cast<int>((state >> 8) % static_cast<unsigned>(2 * amplitude + 1)) - amplitude);
    }
    return samples;
}

inline std::vector<Samples> MadeLeads(size_t leads, size_t count, int amplitude) {
    std::vector<Samples> made;
    for (size_t lead = 0; lead < leads; ++lead) {
        made.push_back(Made(lead, count, amplitude));
    }
    return made;
}

inline std::string NameOfUnit(const testing::TestParamInfo<emulator::Unit>& info) {
    return info.param == emulator::Unit::kSixteenBit ? "SixteenBit" : "TwelveBitCalibrated";
}

// A connected simulator that plays as fast as the host delivers; the 12-bit one is calibrated.
class LoaderPlay : public testing::TestWithParam<emulator::Unit> {
  protected:
    LoaderPlay() : m_corrected(GetParam()), m_uncorrected(GetParam()) {
        emulator::Settings settings = emulator::Settings::Of(GetParam());
        settings.behaviour.speed = 0;
        if (GetParam() == emulator::Unit::kTwelveBit) {
            const std::string path =
                emulator::CalibrationFilePath(settings.unit, settings.behaviour);
            EXPECT_TRUE(emulator::ConverterModel::Uncalibrated().WriteCalibrationFile(path));
            m_corrected.Calibrate(path);
            EXPECT_TRUE(m_corrected.IsCalibrated());
        }
        m_simulator = std::make_unique<emulator::Simulator>(settings);
    }
    ~LoaderPlay() override { RAVOFree(); }

    void SetUp() override {
        ASSERT_TRUE(RAVOConnect(0, 60000));
        RAVOEnableLoop(true);
        RAVOEnableNoise(false);
    }

    // Plays at least `count` frames of the loaded material and compares all that arrived.
    void ExpectPlays(size_t count, const FrameAt& expected) {
        const auto before = static_cast<size_t>(m_simulator->Seen().Count().frames);
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
        EXPECT_TRUE(m_simulator->Seen().WaitForFrames(before + count, 100s));
        RAVOStopOutput();
        const std::vector<Codes> frames = m_simulator->Seen().Frames();
        ASSERT_GE(frames.size(), before + count);
        for (size_t i = before; i < frames.size(); ++i) {
            ASSERT_EQ(frames[i], expected(i - before)) << "frame " << i - before;
        }
    }

    Codes DirectFrame(const Voltages& leads) const { return m_corrected.Frame(leads); }

    // Two leads, no chest signals, and never a correction.
    Codes AHAFrame(double first, double second) const {
        const double leadI = std::clamp(first, -kRange, kRange);
        const double leadII = std::clamp(second, -kRange, kRange);
        const double w = (leadI + leadII) * 0.33333333333;
        Codes codes{m_uncorrected.Code(leadI, 0), m_uncorrected.Code(leadII, 1)};
        for (size_t channel = 2; channel < 8; ++channel) {
            codes[channel] = m_uncorrected.Code(w / 1.665, channel);
        }
        return codes;
    }

    // Lead I feeds both limb outputs; the chest leads are not limited to the range before they are
    // summed, and those from `limit` on are silent.
    Codes EDFFrame(const Voltages& leads, size_t limit) const {
        const double limb = std::clamp(leads[0], -kRange, kRange);
        const double w = (limb + limb) * 0.33333333333;
        Codes codes{m_corrected.Code(limb, 0), m_corrected.Code(limb, 1)};
        for (size_t channel = 2; channel < 8; ++channel) {
            const size_t lead = 9 - channel;
            const double chest = lead < limit ? leads[lead] : 0.0;
            codes[channel] = m_corrected.Code((chest + w) / 1.665, channel);
        }
        return codes;
    }

    Scratch m_directory;

  private:
    Converter m_corrected;
    Converter m_uncorrected;
    std::unique_ptr<emulator::Simulator> m_simulator;
};
