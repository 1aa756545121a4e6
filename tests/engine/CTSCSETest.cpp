#include "engine/CTSCSE.h"

#include "engine/CTSCSE_Database.h"
#include "engine/CTSCSE_Noise.h"
#include "engine/Record.h"
#include "engine/Settings.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

struct ExpectedRecord {
    const char* name;
    int samples;
};

constexpr ExpectedRecord kExpected[119] = {
    {"ANE20000", 1000}, {"ANE20001", 1500}, {"ANE20002", 500},  {"CAL05000", 1000},
    {"CAL10000", 1000}, {"CAL15000", 1000}, {"CAL20000", 1000}, {"CAL20002", 500},
    {"CAL20100", 1000}, {"CAL20110", 1000}, {"CAL20160", 1000}, {"CAL20200", 1000},
    {"CAL20210", 1000}, {"CAL20260", 1000}, {"CAL20500", 1000}, {"CAL20502", 500},
    {"CAL30000", 1000}, {"CAL40000", 1000}, {"CAL50000", 1000}, {"MA1_001", 940},
    {"MA1_002", 532},   {"MA1_003", 604},   {"MA1_004", 820},   {"MA1_005", 640},
    {"MA1_007", 604},   {"MA1_008", 1004},  {"MA1_009", 864},   {"MA1_011", 740},
    {"MA1_012", 764},   {"MA1_013", 812},   {"MA1_014", 1248},  {"MA1_015", 1592},
    {"MA1_016", 640},   {"MA1_017", 980},   {"MA1_019", 800},   {"MA1_021", 1264},
    {"MA1_022", 832},   {"MA1_024", 1036},  {"MA1_025", 1120},  {"MA1_026", 820},
    {"MA1_027", 752},   {"MA1_028", 1004},  {"MA1_029", 960},   {"MA1_030", 900},
    {"MA1_031", 924},   {"MA1_032", 784},   {"MA1_033", 1004},  {"MA1_034", 884},
    {"MA1_035", 900},   {"MA1_036", 880},   {"MA1_037", 876},   {"MA1_038", 844},
    {"MA1_039", 1140},  {"MA1_040", 820},   {"MA1_041", 900},   {"MA1_042", 844},
    {"MA1_043", 1004},  {"MA1_044", 972},   {"MA1_046", 864},   {"MA1_047", 672},
    {"MA1_048", 1100},  {"MA1_049", 1004},  {"MA1_051", 524},   {"MA1_053", 604},
    {"MA1_055", 1056},  {"MA1_058", 720},   {"MA1_059", 1152},  {"MA1_060", 820},
    {"MA1_061", 784},   {"MA1_062", 960},   {"MA1_063", 1092},  {"MA1_064", 880},
    {"MA1_065", 860},   {"MA1_066", 952},   {"MA1_068", 672},   {"MA1_069", 624},
    {"MA1_071", 764},   {"MA1_072", 944},   {"MA1_073", 800},   {"MA1_074", 1004},
    {"MA1_075", 784},   {"MA1_076", 740},   {"MA1_077", 944},   {"MA1_078", 1392},
    {"MA1_079", 1044},  {"MA1_080", 1092},  {"MA1_081", 844},   {"MA1_082", 964},
    {"MA1_083", 704},   {"MA1_084", 1004},  {"MA1_085", 900},   {"MA1_086", 980},
    {"MA1_087", 880},   {"MA1_088", 820},   {"MA1_090", 1000},  {"MA1_091", 820},
    {"MA1_095", 900},   {"MA1_096", 956},   {"MA1_097", 860},   {"MA1_098", 920},
    {"MA1_099", 960},   {"MA1_101", 580},   {"MA1_102", 620},   {"MA1_103", 1000},
    {"MA1_104", 1140},  {"MA1_105", 740},   {"MA1_106", 908},   {"MA1_107", 724},
    {"MA1_108", 632},   {"MA1_110", 720},   {"MA1_112", 780},   {"MA1_113", 620},
    {"MA1_114", 940},   {"MA1_115", 520},   {"MA1_116", 800},   {"MA1_118", 912},
    {"MA1_123", 880},   {"MA1_124", 940},   {"MA1_125", 800},
};

struct HeaderDeleter {
    void operator()(ECG_HEADER* header) const { FreeECGHeader(header); }
};
using HeaderPointer = std::unique_ptr<ECG_HEADER, HeaderDeleter>;

HeaderPointer Load(int record, int noise) {
    return HeaderPointer(LoadDatabaseCTS_CSE(static_cast<CTSCSE_Database>(record),
                                             static_cast<CTSCSE_Noise>(noise)));
}

// One period of one lead, straight from the constant data.
std::vector<double> Period(int record, int lead) {
    const int samples = kExpected[record].samples;
    const double* begin = g_Database_CTSCSE[record] + lead * samples;
    return std::vector<double>(begin, begin + samples);
}

double RootMeanSquare(const int32_t* values, int count) {
    double squares = 0.0;
    for (int n = 0; n < count; ++n) {
        squares += static_cast<double>(values[n]) * values[n];
    }
    return std::sqrt(squares / count);
}

// The amplitude of a sine of `hertz` hertz in ten seconds of noise.
double AmplitudeAt(int hertz, const int32_t* noise) {
    const double step = 2.0 * std::acos(-1.0) * hertz / 1000.0;
    std::complex<double> sum;
    for (int n = 0; n < 10000; ++n) {
        sum += static_cast<double>(noise[n]) * std::polar(1.0, step * n);
    }
    return 2.0 * std::abs(sum) / 10000.0;
}

double LargestStep(const std::vector<double>& values) {
    double largest = 0.0;
    for (size_t n = 1; n < values.size(); ++n) {
        largest = std::max(largest, std::fabs(values[n] - values[n - 1]));
    }
    return largest;
}

// Index of the first value from `begin` on that is not 0.
int FirstActive(const std::vector<double>& values, int begin) {
    const auto active = std::find_if(values.begin() + begin, values.end(),
                                     [](double value) { return value != 0.0; });
    return static_cast<int>(active - values.begin());
}

TEST(CTSCSE, LoadsEveryRecordWithItsNameAndLength) {
    for (int record = 0; record < 119; ++record) {
        SCOPED_TRACE(kExpected[record].name);
        const HeaderPointer header = Load(record, CTSCSE_NOISE_NONE);
        ASSERT_NE(header, nullptr);
        const int64_t samples = 10 * kExpected[record].samples;
        EXPECT_STREQ(header->RecordName, kExpected[record].name);
        EXPECT_EQ(int64_t{header->NumberOfSamples}, samples);
        EXPECT_EQ(int64_t{header->NumberOfSignals}, 8);
        EXPECT_EQ(int64_t{header->SamplingFrequency}, 1000);
        EXPECT_EQ(g_nSampleCount, static_cast<uint64_t>(samples));
        EXPECT_EQ(g_nSampleRate, 1000u);
        EXPECT_EQ(g_WaveformType, MATERIAL_DIRECT);
        EXPECT_EQ(ValidateECGData(), 1);
    }
}

TEST(CTSCSE, RepeatsThePeriodTenTimesOnEveryLead) {
    const HeaderPointer header = Load(CTSCSE_ANE20001, CTSCSE_NOISE_NONE);
    ASSERT_NE(header, nullptr);
    for (int lead = 0; lead < 8; ++lead) {
        const std::vector<double> period = Period(CTSCSE_ANE20001, lead);
        for (int n = 0; n < 15000; ++n) {
            ASSERT_EQ(g_pECGData[lead][n], period[static_cast<size_t>(n % 1500)])
                << lead << " " << n;
        }
    }
    EXPECT_EQ(g_pECGData[3][1500], g_pECGData[3][0]);
}

TEST(CTSCSE, RefusesNumbersThatNameNothing) {
    ASSERT_NE(Load(CTSCSE_CAL20000, CTSCSE_NOISE_50HZ), nullptr);
    for (const auto& [record, noise] : std::vector<std::pair<int, int>>{
             {119, 14}, {0, 15}, {-1, 14}, {0, -1}, {INT32_MAX, 14}, {0, INT32_MIN}}) {
        EXPECT_EQ(Load(record, noise), nullptr) << record << " " << noise;
    }
    EXPECT_EQ(g_nSampleCount, 10000u);
    EXPECT_EQ(g_NoiseOn, 1);
    EXPECT_TRUE(std::equal(g_NoiseData, g_NoiseData + 10000, CTSCSE_Noise_50HZ));
}

TEST(CTSCSE, SwitchesTheNoiseOnAndOff) {
    ASSERT_NE(Load(CTSCSE_CAL20000, CTSCSE_NOISE_50HZ), nullptr);
    EXPECT_EQ(g_NoiseOn, 1);
    EXPECT_TRUE(std::equal(g_NoiseData, g_NoiseData + 10000, CTSCSE_Noise_50HZ));

    ASSERT_NE(Load(CTSCSE_CAL20000, CTSCSE_NOISE_NONE), nullptr);
    EXPECT_EQ(g_NoiseOn, 0);
    EXPECT_TRUE(std::all_of(g_NoiseData, g_NoiseData + 10000, [](int32_t v) { return v == 0; }));
}

TEST(CTSCSE, LeavesTheNoisePositionWhereItIs) {
    g_nNoiseCurrent = 4321;
    ASSERT_NE(Load(CTSCSE_CAL20000, CTSCSE_NOISE_60HZ), nullptr);
    EXPECT_EQ(g_nNoiseCurrent, 4321u);
    g_nNoiseCurrent = 0;
}

TEST(CTSCSE, LastRecordLoadsWithoutNoise) {
    const HeaderPointer header = Load(118, 14);
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "MA1_125");
    EXPECT_EQ(g_nSampleCount, 8000u);
}

TEST(CTSCSE, TablesPointAtTheNamedArrays) {
    EXPECT_EQ(g_Database_CTSCSE[0], CTSCSE_Database_ANE20000);
    EXPECT_EQ(g_Database_CTSCSE[19], CTSCSE_Database_PCTH001);
    EXPECT_EQ(g_Database_CTSCSE[118], CTSCSE_Database_PCTH125);
    EXPECT_EQ(g_Database_CTSCSE_Noise[3], CTSCSE_Noise_BL_HF);
    EXPECT_EQ(g_Database_CTSCSE_Noise[13], CTSCSE_Noise_HF_50);
    EXPECT_EQ(sizeof CTSCSE_Database_PCTH015, 64u * 1592u);
    EXPECT_EQ(sizeof CTSCSE_Noise_50HZ, 40000u);
}

// Properties of the generated signals; a library built from the owner's data holds other signals.
class CTSCSEStandIns : public testing::Test {
  protected:
    void SetUp() override {
        if (HoldsTrue(g_Database_CTSCSE_Licensed) || HoldsTrue(g_Database_CTSCSE_NoiseLicensed)) {
            GTEST_SKIP() << "this library was built with licensed data";
        }
    }

  private:
    template <size_t Count>
    static bool HoldsTrue(const bool (&flags)[Count]) {
        return std::find(std::begin(flags), std::end(flags), true) != std::end(flags);
    }
};

TEST_F(CTSCSEStandIns, CalibrationIsASquareWaveOfTheAmplitudeInItsName) {
    const struct {
        int record;
        double peak;
    } cases[] = {{CTSCSE_CAL05000, 0.5}, {CTSCSE_CAL10000, 1.0}, {CTSCSE_CAL15000, 1.5},
                 {CTSCSE_CAL20002, 2.0}, {CTSCSE_CAL20502, 2.0}, {CTSCSE_CAL50000, 5.0}};
    for (const auto& expected : cases) {
        const int samples = kExpected[expected.record].samples;
        for (int lead = 0; lead < 8; ++lead) {
            const std::vector<double> period = Period(expected.record, lead);
            for (int n = 0; n < samples; ++n) {
                const double value = n < samples / 2 ? expected.peak : -expected.peak;
                ASSERT_EQ(period[static_cast<size_t>(n)], value) << expected.record << " " << n;
            }
        }
    }
}

TEST_F(CTSCSEStandIns, AnalyticalBeatsBeginTheirQrsWhereTheStandardPlacesIt) {
    const struct {
        int record;
        int onset;
    } cases[] = {{CTSCSE_ANE20000, 180}, {CTSCSE_ANE20001, 224}, {CTSCSE_ANE20002, 134}};
    for (const auto& expected : cases) {
        const std::vector<double> leadI = Period(expected.record, 0);
        const int afterP = expected.onset - 20;
        EXPECT_EQ(FirstActive(leadI, afterP), expected.onset + 1) << expected.record;
        EXPECT_EQ(leadI[static_cast<size_t>(expected.onset + 94)], 0.0) << expected.record;
        EXPECT_NE(leadI[static_cast<size_t>(expected.onset + 93)], 0.0) << expected.record;
        const std::vector<double> v2 = Period(expected.record, 3);
        EXPECT_EQ(*std::min_element(v2.begin(), v2.end()), -2.0) << expected.record;
    }
}

TEST_F(CTSCSEStandIns, MultileadBeatsDifferAndRunOnWithoutAStep) {
    std::set<std::vector<double>> seen;
    for (int record = CTSCSE_PCTH001; record <= CTSCSE_PCTH125; ++record) {
        for (int lead = 0; lead < 8; ++lead) {
            const std::vector<double> period = Period(record, lead);
            EXPECT_TRUE(seen.insert(period).second) << kExpected[record].name << " " << lead;
            EXPECT_LE(std::fabs(period.front() - period.back()), 0.002) << kExpected[record].name;
            EXPECT_GT(LargestStep(period), 0.004) << kExpected[record].name << " " << lead;
            const auto [low, high] = std::minmax_element(period.begin(), period.end());
            EXPECT_GT(*high - *low, 0.1) << kExpected[record].name << " " << lead;
            EXPECT_LT(*high - *low, 5.0) << kExpected[record].name << " " << lead;
        }
    }
}

TEST_F(CTSCSEStandIns, MainsNoisesAreSinesOf25Microvolts) {
    // 25 sin(2 pi 50 n / 1000): 0, 7.7, 14.7, 20.2, 23.8, 25 for the first quarter.
    const int32_t quarter50[] = {0, 8, 15, 20, 24, 25};
    EXPECT_TRUE(std::equal(std::begin(quarter50), std::end(quarter50), CTSCSE_Noise_50HZ));
    EXPECT_EQ(CTSCSE_Noise_50HZ[15], -25);
    // 25 sin(2 pi 60 n / 1000): 0, 9.2, 17.1, 22.6, 25.0, 23.8.
    const int32_t begin60[] = {0, 9, 17, 23, 25, 24};
    EXPECT_TRUE(std::equal(std::begin(begin60), std::end(begin60), CTSCSE_Noise_60HZ));
}

TEST_F(CTSCSEStandIns, BaselineWanderIsHalfAMillivoltAt300Millihertz) {
    // A quarter of the 3333.3 ms period is 833.3 ms.
    EXPECT_EQ(CTSCSE_Noise_BL[0], 0);
    EXPECT_EQ(CTSCSE_Noise_BL[833], 500);
    EXPECT_EQ(CTSCSE_Noise_BL[2500], -500);
    EXPECT_EQ(CTSCSE_Noise_BL[1000], 476); // 500 sin(0.6 pi)
}

TEST_F(CTSCSEStandIns, HighFrequencyNoiseHasTheLevelInItsName) {
    for (int noise = CTSCSE_NOISE_HF_05; noise <= CTSCSE_NOISE_HF_50; ++noise) {
        const double level = 5.0 * (noise - CTSCSE_NOISE_HF_05 + 1);
        const int32_t* values = g_Database_CTSCSE_Noise[noise];
        // Rounding to whole microvolts adds a twelfth of a square microvolt.
        EXPECT_NEAR(RootMeanSquare(values, 10000), std::sqrt(level * level + 1.0 / 12.0), 0.01);
    }
    int32_t difference[10000];
    std::transform(CTSCSE_Noise_BL_HF, CTSCSE_Noise_BL_HF + 10000, CTSCSE_Noise_BL, difference,
                   [](int32_t sum, int32_t wander) { return sum - wander; });
    EXPECT_NEAR(RootMeanSquare(difference, 10000), 15.0, 0.05);
}

TEST_F(CTSCSEStandIns, HighFrequencyNoiseIsOneSequenceAtTenLevels) {
    for (int noise = CTSCSE_NOISE_HF_05; noise <= CTSCSE_NOISE_HF_50; ++noise) {
        const double factor = 10.0 / (noise - CTSCSE_NOISE_HF_05 + 1);
        for (int n = 0; n < 10000; ++n) {
            // Both are rounded to whole microvolts.
            ASSERT_NEAR(g_Database_CTSCSE_Noise[noise][n] * factor, CTSCSE_Noise_HF_50[n],
                        0.5 * factor + 0.5 + 1e-9)
                << noise << " " << n;
        }
    }
}

// 25 to 150 Hz hold 1251 harmonics of the ten seconds, and 50 uV r.m.s. are 2 uV of each.
TEST_F(CTSCSEStandIns, HighFrequencyNoiseFillsItsBandAndNothingElse) {
    for (int hertz = 0; hertz <= 500; ++hertz) {
        const double expected = hertz < 25 || hertz > 150 ? 0.0 : 50.0 * std::sqrt(2.0 / 1251.0);
        EXPECT_NEAR(AmplitudeAt(hertz, CTSCSE_Noise_HF_50), expected, 0.05) << hertz;
    }
}

TEST_F(CTSCSEStandIns, SayWhatTheyAre) {
    RAVO_BUILTIN_RECORD record{};
    ASSERT_TRUE(DescribeBuiltinRecord(CTSCSE_PCTH015, &record));
    EXPECT_STREQ(record.Name, "MA1_015");
    EXPECT_EQ(record.SamplesPerPeriod, 1592u);
    EXPECT_EQ(record.NumberOfSamples, 15920u);
    EXPECT_EQ(record.SamplingFrequency, 1000u);
    EXPECT_EQ(record.Licensed, g_Database_CTSCSE_Licensed[CTSCSE_PCTH015] ? 1u : 0u);
    EXPECT_FALSE(DescribeBuiltinRecord(119, &record));
    EXPECT_FALSE(DescribeBuiltinRecord(-1, &record));
    EXPECT_FALSE(DescribeBuiltinRecord(0, nullptr));

    RAVO_BUILTIN_NOISE noise{};
    ASSERT_TRUE(DescribeBuiltinNoise(CTSCSE_NOISE_BL_HF, &noise));
    EXPECT_STREQ(noise.Name, "BL_HF");
    EXPECT_FALSE(DescribeBuiltinNoise(CTSCSE_NOISE_NONE, &noise));
    EXPECT_FALSE(DescribeBuiltinNoise(0, nullptr));
}

} // namespace
