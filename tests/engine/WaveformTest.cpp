#include "engine/Waveform.h"

#include "device/Protocol.h"
#include "engine/loaders/LoadWaveform.h"
#include "engine/Prepare.h"
#include "tests/engine/MadeMaterial.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

constexpr double kOddPeriod = 1 / 7.3;

double VoltageAt(int sample, int signal = 0) {
    return CalculatePeriodicalVoltage(sample, signal).first;
}

// ---- Shapes ------------------------------------------------------------------------------------

TEST(Sine, StartsAtZeroRisingAndSwingsHalfTheAmplitude) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SINE, 1.0, 2.0), 1);
    EXPECT_EQ(VoltageAt(0), 0.0);
    EXPECT_EQ(VoltageAt(250), 1.0);
    EXPECT_EQ(VoltageAt(750), -1.0);
    EXPECT_EQ(VoltageAt(1250), 1.0);
    EXPECT_NEAR(VoltageAt(83), 0.498, 0.001);
}

// At 7.3 Hz and 1.9 mV no value is round; the formula uses the time since the period began.
void ExpectFormula(double (*voltage)(double tau)) {
    for (int sample = 0; sample < 20000; ++sample) {
        const double t = sample / 1000.0;
        const double tau = t - static_cast<int32_t>(t / kOddPeriod) * kOddPeriod;
        ASSERT_EQ(VoltageAt(sample), voltage(tau)) << sample;
    }
}

TEST(Shapes, AreTheirFormulasToTheLastBit) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SINE, 7.3, 1.9), 1);
    ExpectFormula([](double tau) { return (1.9 * 0.5) * std::sin(tau * 6.283185307179586 * 7.3); });

    ASSERT_EQ(LoadWaveform(WAVEFORM_TRIANGLE, 7.3, 1.9), 1);
    ExpectFormula([](double tau) {
        const double k = 2 * 1.9 / kOddPeriod;
        return tau < kOddPeriod * 0.25   ? k * tau
               : tau < kOddPeriod * 0.75 ? 1.9 - tau * k
                                         : tau * k - 2 * 1.9;
    });

    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 7.3, 1.9), 1);
    ExpectFormula([](double tau) { return tau <= kOddPeriod * 0.5 ? 1.9 * 0.5 : -(1.9 * 0.5); });

    ASSERT_EQ(LoadWaveformRectanglePulse(37, 7.3, 1.9), 1);
    ExpectFormula([](double tau) { return tau <= 37 / 1000.0 ? 1.9 * 0.5 : -(1.9 * 0.5); });

    ASSERT_EQ(LoadWaveformTrianglePulse(37, 7.3, 1.9), 1);
    ExpectFormula([](double tau) {
        const double w = 37 / 2000.0;
        return tau <= w             ? (tau / w) * 1.9 - 1.9 * 0.5
               : tau <= 37 / 1000.0 ? 1.9 * 0.5 - ((tau - w) / w) * 1.9
                                    : -(1.9 * 0.5);
    });
}

TEST(Triangle, PassesItsQuarterPoints) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_TRIANGLE, 1.0, 2.0), 1);
    EXPECT_EQ(VoltageAt(0), 0.0);
    EXPECT_EQ(VoltageAt(125), 0.5);
    EXPECT_EQ(VoltageAt(250), 1.0);
    EXPECT_EQ(VoltageAt(500), 0.0);
    EXPECT_EQ(VoltageAt(625), -0.5);
    EXPECT_EQ(VoltageAt(750), -1.0);
    EXPECT_EQ(VoltageAt(875), -0.5);
    EXPECT_EQ(VoltageAt(1000), 0.0);
}

TEST(Square, IsHighUpToAndIncludingHalfThePeriod) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 1.0, 3.0), 1);
    EXPECT_EQ(VoltageAt(0), 1.5);
    EXPECT_EQ(VoltageAt(499), 1.5);
    EXPECT_EQ(VoltageAt(500), 1.5);
    EXPECT_EQ(VoltageAt(501), -1.5);
    EXPECT_EQ(VoltageAt(999), -1.5);
    EXPECT_EQ(VoltageAt(1000), 1.5);
}

TEST(RectanglePulse, IsHighForItsWidthInclusive) {
    ASSERT_EQ(LoadWaveformRectanglePulse(100, 1.0, 2.0), 1);
    for (int sample = 0; sample < 1000; ++sample) {
        ASSERT_EQ(VoltageAt(sample), sample <= 100 ? 1.0 : -1.0) << sample;
    }
    EXPECT_EQ(VoltageAt(1000), 1.0);
}

TEST(TrianglePulse, RisesAndFallsWithinItsWidth) {
    ASSERT_EQ(LoadWaveformTrianglePulse(200, 1.0, 2.0), 1);
    EXPECT_EQ(VoltageAt(0), -1.0);
    EXPECT_EQ(VoltageAt(50), 0.0);
    EXPECT_EQ(VoltageAt(100), 1.0);
    EXPECT_NEAR(VoltageAt(150), 0.0, 1e-15); // 0.15 - 0.1 is not quite 0.05
    EXPECT_NEAR(VoltageAt(200), -1.0, 1e-15);
    EXPECT_EQ(VoltageAt(201), -1.0);
    EXPECT_EQ(VoltageAt(999), -1.0);
    EXPECT_NEAR(VoltageAt(1100), 1.0, 1e-14);
}

TEST(Periodic, EachSignalHasItsOwnAmplitude) {
    double amplitudes[8] = {2.0, 4.0, -2.0, 0.0, 1.0, 0.5, 10.0, -10.0};
    ASSERT_EQ(LoadWaveformEx(WAVEFORM_SINE, 1.0, amplitudes), 1);
    for (int signal = 0; signal < 8; ++signal) {
        EXPECT_EQ(VoltageAt(250, signal), amplitudes[signal] / 2);
    }
}

TEST(Periodic, OtherMaterialHasNoVoltage) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 1.0, 2.0), 1);
    for (int32_t type :
         std::initializer_list<int32_t>{MATERIAL_NONE, MATERIAL_TABLE, 128, 134, -1}) {
        g_WaveformType = type;
        EXPECT_EQ(VoltageAt(0), 0.0) << type;
    }
}

TEST(Periodic, ASignalThatDoesNotExistHasNoVoltage) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 1.0, 2.0), 1);
    EXPECT_EQ(VoltageAt(0, -1), 0.0);
    EXPECT_EQ(VoltageAt(0, 8), 0.0);
}

// ---- Parameters without a sensible answer ------------------------------------------------------

TEST(Periodic, AFrequencyOfZeroIsOnePeriodWithoutEnd) {
    for (double zero : {0.0, -0.0}) {
        for (int sample : {0, 1, 100, 1000000, 2147483647}) {
            LoadWaveform(WAVEFORM_SINE, zero, 2.0);
            EXPECT_EQ(VoltageAt(sample), 0.0);
            LoadWaveform(WAVEFORM_TRIANGLE, zero, 2.0);
            EXPECT_EQ(VoltageAt(sample), 0.0);
            LoadWaveform(WAVEFORM_SQUARE, zero, 2.0);
            EXPECT_EQ(VoltageAt(sample), 1.0);
            LoadWaveformRectanglePulse(100, zero, 2.0);
            EXPECT_EQ(VoltageAt(sample), sample <= 100 ? 1.0 : -1.0);
            LoadWaveformTrianglePulse(200, zero, 2.0);
            EXPECT_EQ(VoltageAt(sample), sample == 100 ? 1.0 : (sample == 1 ? -0.98 : -1.0));
        }
    }
}

TEST(Periodic, APulseWithoutWidthStaysAtRest) {
    for (int width : {0, -1, -2147483647 - 1}) {
        for (int sample : {0, 1, 500, 1000}) {
            LoadWaveformRectanglePulse(width, 1.0, 2.0);
            EXPECT_EQ(VoltageAt(sample), -1.0) << width << ' ' << sample;
            LoadWaveformTrianglePulse(width, 1.0, 2.0);
            EXPECT_EQ(VoltageAt(sample), -1.0) << width << ' ' << sample;
        }
    }
}

TEST(Periodic, APulseWiderThanItsPeriodStaysHigh) {
    ASSERT_EQ(LoadWaveformRectanglePulse(2147483647, 1.0, 2.0), 1);
    EXPECT_EQ(VoltageAt(0), 1.0);
    EXPECT_EQ(VoltageAt(999), 1.0);
}

TEST(Periodic, NoParameterMakesAVoltageThatIsNoNumber) {
    const double odd[] = {0.0, -1.0, 1e-310, 1e300, kNaN, kInfinity, -kInfinity};
    for (double frequency : odd) {
        for (double amplitude : odd) {
            for (int32_t type = MATERIAL_SINE; type <= MATERIAL_TRIANGLE_PULSE; ++type) {
                for (uint32_t rate : {0u, 1000u, 4294967295u}) {
                    LoadWaveformTrianglePulse(200, frequency, amplitude);
                    g_WaveformType = type;
                    g_nSampleRate = rate;
                    for (int sample : {0, 1, 2147483647, -1, -2147483647 - 1}) {
                        const auto [voltage, phase] = CalculatePeriodicalVoltage(sample, 0);
                        EXPECT_TRUE(std::isfinite(voltage));
                        EXPECT_TRUE(std::isfinite(phase));
                    }
                }
            }
        }
    }
}

// The position continues as a 32-bit index.
TEST(Periodic, TheLongestPlaysStayDefined) {
    g_nDACBit = 1;
    Frame frame;
    for (int32_t type = MATERIAL_SINE; type <= MATERIAL_TRIANGLE_PULSE; ++type) {
        ASSERT_EQ(LoadWaveformTrianglePulse(200, 0.3, 2.0), 1);
        g_WaveformType = type;
        const int lowest = type == MATERIAL_SINE ? 26368 : 768; // -1 mV and -5 mV
        for (uint64_t position : {uint64_t{1} << 31, (uint64_t{1} << 31) - 1, uint64_t{1} << 32,
                                  std::numeric_limits<uint64_t>::max()}) {
            g_nSampleCurrent = position;
            PrepareRawData(frame.data());
            for (int code : frame) {
                EXPECT_GE(code, lowest) << type << ' ' << position;
                EXPECT_LE(code, 39168) << type << ' ' << position; // +1 mV
            }
        }
    }
}

TEST(Periodic, SquareAndRectanglePulseStayHighAtNegativeTimes) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 1.0, 2.0), 1);
    for (int sample : {-1, -499, -501, -999, -2147483647 - 1}) {
        EXPECT_EQ(VoltageAt(sample), 1.0) << sample;
    }
    ASSERT_EQ(LoadWaveformRectanglePulse(100, 1.0, 2.0), 1);
    for (int sample : {-1, -500, -999, -2147483647 - 1}) {
        EXPECT_EQ(VoltageAt(sample), 1.0) << sample;
    }
}

TEST(Periodic, TheCountOfPeriodsDoesNotOverflow) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 1e9, 2.0), 1);
    EXPECT_EQ(std::fabs(VoltageAt(2147483647)), 1.0);
    EXPECT_EQ(std::fabs(VoltageAt(-2147483647 - 1)), 1.0);
}

// ---- Preparation -------------------------------------------------------------------------------

TEST(Periodic, PlaysTheDirectCombinationOfTheLeads) {
    g_nDACBit = 1;
    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 1.0, 2.0), 1);
    Frame frame;
    g_nSampleCurrent = 0;
    PrepareRawData(frame.data());
    EXPECT_EQ(frame, (Frame{39168, 39168, 39090, 39090, 39090, 39090, 39090, 39090}));
    g_nSampleCurrent = 501;
    PrepareRawData(frame.data());
    EXPECT_EQ(frame, (Frame{26368, 26368, 26445, 26445, 26445, 26445, 26445, 26445}));
}

TEST(Periodic, PreviewsTheTwelveLeads) {
    double amplitudes[8] = {2.0, 4.0, 1.0, -1.0, 0.5, 8.0, 6.0, -6.0};
    ASSERT_EQ(LoadWaveformEx(WAVEFORM_SQUARE, 1.0, amplitudes), 1);
    LeadSet leads;
    PrepareSignalData(0, leads.data());
    EXPECT_EQ(leads, (LeadSet{1.0, 2.0, 1.0, -1.5, 0.0, 1.5, 0.5, -0.5, 0.25, 4.0, 3.0, -3.0}));
    PrepareSignalData(-1, leads.data());
    EXPECT_EQ(leads, LeadSet{});
}

TEST(Periodic, TheTwoPathsHaveACellEach) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 1.0, 2.0), 1);
    Frame frame;
    LeadSet leads;
    g_nSampleCurrent = 501;
    PrepareRawData(frame.data());
    PrepareSignalData(0, leads.data());
    for (int signal = 0; signal < 8; ++signal) {
        EXPECT_EQ(g_pECGData[signal][0], 1.0);
        EXPECT_EQ(g_pECGData[signal][1], -1.0);
    }
}

TEST(Periodic, WithoutABufferNothingIsWritten) {
    ASSERT_EQ(LoadWaveform(WAVEFORM_SQUARE, 1.0, 2.0), 1);
    FreeECGDataBuffer();
    Frame frame;
    LeadSet leads;
    PrepareRawData(frame.data());
    PrepareSignalData(0, leads.data());
    // A host can declare a loaded record to be a waveform.
    LoadSignals(MATERIAL_MIT, 500, {{0.25}, {0.5}});
    g_WaveformType = MATERIAL_SQUARE;
    PrepareRawData(frame.data());
    EXPECT_EQ(g_pECGData[1][0], 0.5) << "a record of one sample has no second cell";
}

// ---- Loading -----------------------------------------------------------------------------------

void ExpectPeriodicMaterial(int32_t type) {
    EXPECT_EQ(g_WaveformType, type);
    EXPECT_EQ(g_nSampleCount, 2u);
    EXPECT_EQ(g_nSampleRate, 1000u);
    EXPECT_EQ(g_iECGSignalNumber, 8);
    EXPECT_EQ(ValidateECGData(), 1);
}

TEST(LoadWaveform, StoresItsParameters) {
    g_nPeriodPulseWidth = 77;
    EXPECT_EQ(LoadWaveform(WAVEFORM_SINE, 10.0, 1.5), 1);
    ExpectPeriodicMaterial(MATERIAL_SINE);
    EXPECT_EQ(g_fPeriodFrequency, 10.0);
    EXPECT_EQ(g_nPeriodPulseWidth, 0);
    for (double amplitude : g_fPeriodAmplitude) {
        EXPECT_EQ(amplitude, 1.5);
    }
    EXPECT_EQ(LoadWaveform(WAVEFORM_TRIANGLE, 10.0, 1.5), 1);
    ExpectPeriodicMaterial(MATERIAL_TRIANGLE);
    EXPECT_EQ(LoadWaveform(WAVEFORM_SQUARE, 10.0, 1.5), 1);
    ExpectPeriodicMaterial(MATERIAL_SQUARE);
}

TEST(LoadWaveform, AnUnknownShapeChangesNothing) {
    LoadSignals(MATERIAL_DIRECT, 500, {{1.0}, {2.0}});
    for (int shape : {3, 7, -1, 129}) {
        EXPECT_EQ(LoadWaveform(static_cast<WAVEFORM_TYPE>(shape), 10.0, 1.5), 0) << shape;
        EXPECT_EQ(g_WaveformType, MATERIAL_DIRECT);
        EXPECT_EQ(g_nSampleRate, 500u);
        EXPECT_EQ(g_nSampleCount, 1u);
        EXPECT_EQ(g_pECGData[1][0], 2.0);
        EXPECT_EQ(g_fPeriodFrequency, 0.0);
    }
}

TEST(LoadWaveformEx, AnUnknownShapeKeepsTheKindOfMaterial) {
    double amplitudes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (int32_t type : {MATERIAL_NONE, MATERIAL_DIRECT, MATERIAL_MIT, MATERIAL_RECTANGLE_PULSE}) {
        LoadSignals(type, 500, {{1.0}, {2.0}});
        EXPECT_EQ(LoadWaveformEx(static_cast<WAVEFORM_TYPE>(7), 10.0, amplitudes), 1);
        EXPECT_EQ(g_WaveformType, type);
        EXPECT_EQ(g_nSampleCount, 2u);
        EXPECT_EQ(g_nSampleRate, 1000u);
        EXPECT_EQ(g_iECGSignalNumber, 8);
        EXPECT_EQ(g_fPeriodFrequency, 10.0);
        EXPECT_EQ(g_fPeriodAmplitude[7], 8.0);
    }
}

TEST(LoadWaveformEx, AnUnknownShapeOverMappedMaterialIsSafeToPlay) {
    double amplitudes[8] = {};
    LoadSignals(MATERIAL_MIT, 500, std::vector<std::vector<double>>(12, {1.0}));
    MapLeads({11, 10, 9, 8, -1, -1, -1, -1});
    EXPECT_EQ(LoadWaveformEx(static_cast<WAVEFORM_TYPE>(7), 10.0, amplitudes), 1);
    EXPECT_EQ(ValidateECGData(), 0) << "no lead is fed by one of the eight arrays";
    Frame frame;
    PrepareRawData(frame.data());
    EXPECT_EQ(frame, (Frame{2048, 2048, 2048, 2048, 2048, 2048, 2048, 2048}));
}

TEST(LoadWaveformEx, WithoutAmplitudesItFails) {
    LoadSignals(MATERIAL_DIRECT, 500, {{1.0}, {2.0}});
    EXPECT_EQ(LoadWaveformEx(WAVEFORM_SINE, 10.0, nullptr), 0);
    EXPECT_EQ(g_WaveformType, MATERIAL_DIRECT);
}

TEST(LoadPulse, StoresItsParameters) {
    EXPECT_EQ(LoadWaveformRectanglePulse(40, 2.0, -1.5), 1);
    ExpectPeriodicMaterial(MATERIAL_RECTANGLE_PULSE);
    EXPECT_EQ(g_nPeriodPulseWidth, 40);
    EXPECT_EQ(g_fPeriodFrequency, 2.0);
    EXPECT_EQ(g_fPeriodAmplitude[0], -1.5);
    EXPECT_EQ(g_fPeriodAmplitude[7], -1.5);
    EXPECT_EQ(LoadWaveformTrianglePulse(60, 3.0, 2.5), 1);
    ExpectPeriodicMaterial(MATERIAL_TRIANGLE_PULSE);
    EXPECT_EQ(g_nPeriodPulseWidth, 60);
    EXPECT_EQ(g_fPeriodFrequency, 3.0);
    EXPECT_EQ(g_fPeriodAmplitude[3], 2.5);
}

void ExpectTable(uint64_t samples, uint32_t rate) {
    EXPECT_EQ(g_WaveformType, MATERIAL_TABLE);
    EXPECT_EQ(g_nSampleCount, samples);
    EXPECT_EQ(g_nSampleRate, rate);
    EXPECT_EQ(g_iECGSignalNumber, 8);
    for (int signal = 1; signal < 8; ++signal) {
        EXPECT_TRUE(std::equal(g_pECGData[0], g_pECGData[0] + samples, g_pECGData[signal]));
    }
}

TEST(CalibrationWave, RestsForTheFirstHalfOfEachPeriod) {
    ASSERT_EQ(LoadWaveformCalibrationMode(1.0, 1.5), 1);
    ExpectTable(3600, 360);
    for (int sample = 0; sample < 3600; ++sample) {
        ASSERT_EQ(g_pECGData[0][sample], sample % 360 <= 180 ? 0.0 : 1.5) << sample;
    }
}

TEST(CalibrationWave, IsTheFormulaAtEverySample) {
    for (double frequency : {0.07, 7.3, 99.99}) {
        ASSERT_EQ(LoadWaveformCalibrationMode(frequency, -1.9), 1);
        const double period = 1 / frequency;
        for (int sample = 0; sample < 3600; ++sample) {
            const double t = sample / 360.0;
            const double tau = t - std::trunc(t / period) * period;
            ASSERT_EQ(g_pECGData[0][sample], tau > period * 0.5 ? -1.9 : 0.0) << sample;
        }
    }
}

TEST(CalibrationWave, AFrequencyOfZeroRestsForEver) {
    for (double frequency : {0.0, -0.0, kNaN, 1e-310}) {
        ASSERT_EQ(LoadWaveformCalibrationMode(frequency, 1.5), 1);
        for (int sample = 0; sample < 3600; ++sample) {
            ASSERT_EQ(g_pECGData[0][sample], 0.0) << sample;
        }
    }
}

TEST(CalibrationStaircase, HoldsEachLevelForFiveSeconds) {
    ASSERT_EQ(LoadWaveformAutoCalibrationMode(), 1);
    ExpectTable(45000, 1000);
    const double levels[] = {0.0, 0.2, 1.0, 2.0, 5.0, -0.2, -1.0, -2.0, -5.0};
    for (int sample = 0; sample < 45000; ++sample) {
        ASSERT_EQ(g_pECGData[0][sample], levels[sample / 5000]) << sample;
    }
}

TEST(FixedVoltage, FillsOneSecond) {
    ASSERT_EQ(LoadWaveformFixedVoltage(-2.25), 1);
    ExpectTable(1000, 1000);
    for (int sample = 0; sample < 1000; ++sample) {
        ASSERT_EQ(g_pECGData[0][sample], -2.25);
    }
}

TEST(FixedVoltage, PlaysTheDirectCombinationOfTheLeads) {
    g_nDACBit = 1;
    ASSERT_EQ(LoadWaveformFixedVoltage(1.0), 1);
    Frame frame;
    PrepareRawData(frame.data());
    EXPECT_EQ(frame, (Frame{39168, 39168, 39090, 39090, 39090, 39090, 39090, 39090}));
}

TEST(LoadWaveform, HoldsTheEngineLockOnlyWhileItRuns) {
    LoadWaveform(WAVEFORM_SINE, 1.0, 1.0);
    LoadWaveform(static_cast<WAVEFORM_TYPE>(7), 1.0, 1.0);
    double amplitudes[8] = {};
    LoadWaveformEx(WAVEFORM_SINE, 1.0, amplitudes);
    LoadWaveformEx(WAVEFORM_SINE, 1.0, nullptr);
    LoadWaveformCalibrationMode(1.0, 1.0);
    LoadWaveformAutoCalibrationMode();
    LoadWaveformFixedVoltage(1.0);
    EXPECT_EQ(g_CriticalSection.Lock(), 0);
    EXPECT_EQ(g_CriticalSection.Unlock(), 0);
}

} // namespace
