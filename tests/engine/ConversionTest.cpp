#include "engine/Conversion.h"
#include "device/Calibration.h"
#include "device/Protocol.h"
#include "engine/Record.h"
#include "engine/Settings.h"

#include <array>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

void Correct(int channel, unsigned int code, double error) {
    g_bDACAvailable = 1;
    g_DACError[static_cast<unsigned int>(channel) * 4096 + code] = error;
}

TEST(DAC, TwelveBitsSpan48To4048) {
    EXPECT_EQ(DAC(5.0, 0), 4048u);
    EXPECT_EQ(DAC(-5.0, 0), 48u);
    EXPECT_EQ(DAC(0.0, 0), 2048u);
    EXPECT_EQ(DAC(1.0, 7), 2448u);
}

TEST(DAC, SixteenBitsSpan768To64768) {
    g_nDACBit = 1;
    EXPECT_EQ(DAC(5.0, 0), 64768u);
    EXPECT_EQ(DAC(-5.0, 0), 768u);
    EXPECT_EQ(DAC(0.0, 0), 32768u);
    EXPECT_EQ(DAC(1.0, 7), 39168u);
}

TEST(DAC, FollowsTheVoltageRange) {
    g_fVoltageRange = 2.5;
    EXPECT_EQ(DAC(2.5, 0), 4048u);
    EXPECT_EQ(DAC(-2.5, 0), 48u);
    EXPECT_EQ(DAC(1.25, 0), 3048u);
}

TEST(DAC, HoldsVoltagesToTheRange) {
    EXPECT_EQ(DAC(5.1, 0), 4048u);
    EXPECT_EQ(DAC(1e300, 0), 4048u);
    EXPECT_EQ(DAC(kInfinity, 0), 4048u);
    EXPECT_EQ(DAC(-5.1, 0), 48u);
    EXPECT_EQ(DAC(-kInfinity, 0), 48u);
}

TEST(DAC, TruncatesTowardZero) {
    EXPECT_EQ(DAC(0.001, 0), 2048u);  // 2048.4
    EXPECT_EQ(DAC(-0.001, 0), 2047u); // 2047.6
    g_nDACBit = 1;
    EXPECT_EQ(DAC(0.0001, 0), 32768u);  // 32768.64
    EXPECT_EQ(DAC(-0.0001, 0), 32767u); // 32767.36
}

TEST(DAC, DividesByTheRange) {
    // A product with the reciprocal of the range would give 52 and 832.
    g_fVoltageRange = 3.0;
    EXPECT_EQ(DAC(-2.994, 0), 51u);
    g_nDACBit = 1;
    EXPECT_EQ(DAC(-2.994, 0), 831u);
}

// ---- Calibration -------------------------------------------------------------------------------

TEST(DAC, CorrectsByTheErrorOfTheUncorrectedCode) {
    Correct(3, 2048, 2040.5);
    EXPECT_EQ(DAC(0.0, 3), 2055u);   // 2 x 2048 - 2040.5
    EXPECT_EQ(DAC(0.001, 3), 2056u); // 2 x 2048.4 - 2040.5: the code itself is not rounded
    EXPECT_EQ(DAC(0.0, 2), 4096u);   // a row of zeros
}

TEST(DAC, EachChannelHasItsOwnRow) {
    for (int channel = 0; channel < 8; ++channel) {
        Correct(channel, 4048, 4048.0 + channel);
        Correct(channel, 48, 48.0 - channel);
    }
    for (int channel = 0; channel < 8; ++channel) {
        EXPECT_EQ(DAC(5.0, channel), 4048u - static_cast<unsigned int>(channel));
        EXPECT_EQ(DAC(-5.0, channel), 48u + static_cast<unsigned int>(channel));
    }
}

TEST(DAC, IsNotCorrectedWithoutACalibration) {
    Correct(0, 2048, 2000.0);
    EXPECT_EQ(IsDACFileLoaded(), 1);
    g_bDACAvailable = 0;
    EXPECT_EQ(IsDACFileLoaded(), 0);
    EXPECT_EQ(DAC(0.0, 0), 2048u);
}

TEST(DAC, AHAMaterialIsNeverCorrected) {
    Correct(0, 2048, 2000.0);
    g_WaveformType = MATERIAL_AHA;
    EXPECT_EQ(DAC(0.0, 0), 2048u);
}

TEST(DAC, SixteenBitsAreNeverCorrected) {
    Correct(0, 2048, 2000.0);
    g_nDACBit = 1;
    EXPECT_EQ(DAC(0.0, 0), 32768u);
}

TEST(DAC, ACodeCorrectedBelowZeroIsZero) {
    Correct(0, 2048, 5000.0);
    EXPECT_EQ(DAC(0.0, 0), 0u);
    Correct(0, 2048, 1e300);
    EXPECT_EQ(DAC(0.0, 0), 0u);
    Correct(0, 2048, 4096.5); // -0.5
    EXPECT_EQ(DAC(0.0, 0), 0u);
}

TEST(DAC, ACalibrationOfAnySizeGivesACode) {
    Correct(0, 2048, -1000.0);
    EXPECT_EQ(DAC(0.0, 0), 5096u) << "codes above the converter's are not held back";
    Correct(0, 2048, -1e300);
    EXPECT_EQ(DAC(0.0, 0), 4294967295u);
    Correct(0, 2048, kNaN);
    EXPECT_EQ(DAC(0.0, 0), 0u);
}

TEST(DAC, AChannelThatDoesNotExistIsNotCorrected) {
    Correct(0, 2048, 2000.0);
    EXPECT_EQ(DAC(0.0, -1), 2048u);
    EXPECT_EQ(DAC(0.0, 8), 2048u);
}

// ---- Noise -------------------------------------------------------------------------------------

TEST(DAC, AddsNoiseToDirectMaterialOnly) {
    g_fVoltageRange = 4.0;
    g_NoiseData[5] = -1000;
    g_nNoiseCurrent = 5;
    g_NoiseOn = 1;
    g_WaveformType = MATERIAL_DIRECT;
    EXPECT_EQ(DAC(0.0, 0), 1548u);
    EXPECT_EQ(DAC(1.0, 0), 2048u);
    EXPECT_EQ(DAC(4.5, 0), 3798u) << "noise comes before the range is applied";
    for (int32_t type : {MATERIAL_NONE, MATERIAL_AHA, MATERIAL_MIT, MATERIAL_TARNWICK,
                         MATERIAL_TABLE, MATERIAL_EDF_FOUR_CHEST, MATERIAL_EDF, MATERIAL_SINE}) {
        g_WaveformType = type;
        EXPECT_EQ(DAC(0.0, 0), 2048u) << type;
    }
    g_WaveformType = MATERIAL_DIRECT;
    g_NoiseOn = 0;
    EXPECT_EQ(DAC(0.0, 0), 2048u);
}

TEST(DAC, AVoltageThatIsNoNumberCountsAsZero) {
    EXPECT_EQ(DAC(kNaN, 0), 2048u);
    g_fVoltageRange = 4.0;
    g_NoiseData[0] = 1000;
    g_NoiseOn = 1;
    g_WaveformType = MATERIAL_DIRECT;
    EXPECT_EQ(DAC(kNaN, 0), 2548u);
}

TEST(DAC, ANoisePositionOutsideTheRecordIsSilent) {
    g_NoiseOn = 1;
    g_WaveformType = MATERIAL_DIRECT;
    g_nNoiseCurrent = 10000;
    EXPECT_EQ(DAC(0.0, 0), 2048u);
}

// ---- Ranges that are none ----------------------------------------------------------------------

TEST(DAC, ARangeOfZeroOrNoNumberGivesTheMiddle) {
    for (double range : {0.0, -0.0, kNaN}) {
        g_fVoltageRange = range;
        for (double voltage : {0.0, 1.0, -1.0, kInfinity, -kInfinity, kNaN}) {
            g_nDACBit = 0;
            EXPECT_EQ(DAC(voltage, 0), 2048u) << range << ' ' << voltage;
            g_nDACBit = 1;
            EXPECT_EQ(DAC(voltage, 0), 32768u) << range << ' ' << voltage;
        }
    }
}

TEST(DAC, EveryRangeGivesCodesWithinTheScale) {
    for (double range : {-5.0, 5e-324, 1e-300, 1e300, kInfinity, -kInfinity}) {
        g_fVoltageRange = range;
        for (double voltage : {0.0, 1.0, -1.0, 1e300, -1e300, kInfinity, -kInfinity, kNaN}) {
            g_bDACAvailable = 0;
            const unsigned int code = DAC(voltage, 0);
            EXPECT_GE(code, 48u) << range << ' ' << voltage;
            EXPECT_LE(code, 4048u) << range << ' ' << voltage;
            g_bDACAvailable = 1;
            DAC(voltage, 7);
        }
    }
}

// ---- Frames ------------------------------------------------------------------------------------

// The conversion exactly as the formula states it, one value at a time.
unsigned int Formula(double v, int channel) {
    if (g_NoiseOn != 0 && g_WaveformType == MATERIAL_DIRECT) {
        v += g_NoiseData[g_nNoiseCurrent] / 1000.0;
    }
    const double range = g_fVoltageRange;
    const double held = v > range ? range : (v < -range ? -range : v);
    const double x = held / range;
    if (g_nDACBit != 0) {
        return static_cast<unsigned int>(x * 32000.0 + 32768.0);
    }
    const double y = x * 2000.0 + 2048.0;
    const auto q = static_cast<unsigned int>(y);
    if (g_WaveformType == MATERIAL_AHA || g_bDACAvailable == 0) {
        return q;
    }
    return static_cast<unsigned int>(2.0 * y -
                                     g_DACError[static_cast<unsigned int>(channel) * 4096 + q]);
}

TEST(ConvertFrame, EqualsTheFormulaForEverySetting) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> voltage(-6.0, 6.0);
    std::uniform_real_distribution<double> error(-20.0, 20.0);
    for (unsigned int i = 0; i < 8 * 4096; ++i) {
        g_DACError[i] = i % 4096 + error(random) * (i % 4096 > 40);
    }
    std::uniform_int_distribution<int> noise(-1000, 1000);
    for (int32_t& value : g_NoiseData) {
        value = noise(random);
    }
    constexpr std::array<int32_t, 3> kinds = {MATERIAL_DIRECT, MATERIAL_AHA, MATERIAL_MIT};
    for (int round = 0; round < 20000; ++round) {
        g_nDACBit = round & 1;
        g_bDACAvailable = round >> 1 & 1;
        g_NoiseOn = round >> 2 & 1;
        g_WaveformType = kinds[static_cast<size_t>(round >> 3) % kinds.size()];
        g_fVoltageRange = round % 5 == 0 ? 2.5 : 5.0;
        g_nNoiseCurrent = static_cast<uint64_t>(round % 10000);
        double voltages[8];
        for (double& value : voltages) {
            value = voltage(random);
        }
        int frame[8];
        ConvertFrame(voltages, frame);
        for (int channel = 0; channel < 8; ++channel) {
            ASSERT_EQ(static_cast<unsigned int>(frame[channel]),
                      Formula(voltages[channel], channel));
            ASSERT_EQ(DAC(voltages[channel], channel), Formula(voltages[channel], channel));
        }
    }
}

} // namespace
