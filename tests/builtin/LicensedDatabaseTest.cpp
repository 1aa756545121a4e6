// This program holds a database generated with a folder of made-up licensed data.
#include "engine/CTSCSE.h"
#include "engine/CTSCSE_Database.h"
#include "engine/CTSCSE_Noise.h"
#include "engine/Record.h"
#include "tests/builtin/MadeUpData.h"

#include <gtest/gtest.h>

namespace {

constexpr int kCAL20000 = 6;

TEST(LicensedDatabase, TakesTheOwnersRecord) {
    EXPECT_TRUE(g_Database_CTSCSE_Licensed[kCAL20000]);
    for (int lead = 0; lead < 8; ++lead) {
        for (int n = 0; n < madeup::kSamples; ++n) {
            ASSERT_EQ(g_Database_CTSCSE[kCAL20000][lead * madeup::kSamples + n],
                      madeup::RecordValue(lead, n) / 1000.0);
        }
    }
}

TEST(LicensedDatabase, TakesTheOwnersNoise) {
    EXPECT_TRUE(g_Database_CTSCSE_NoiseLicensed[0]);
    for (int n = 0; n < 10000; ++n) {
        ASSERT_EQ(g_Database_CTSCSE_Noise[0][n], madeup::NoiseValue(n));
    }
}

TEST(LicensedDatabase, KeepsStandInsForTheRest) {
    for (int record = 0; record < kCTSCSERecords; ++record) {
        EXPECT_EQ(g_Database_CTSCSE_Licensed[record], record == kCAL20000) << record;
    }
    for (int noise = 0; noise < kCTSCSENoises; ++noise) {
        EXPECT_EQ(g_Database_CTSCSE_NoiseLicensed[noise], noise == 0) << noise;
    }
    EXPECT_EQ(g_Database_CTSCSE[4][0], 1.0);
}

TEST(LicensedDatabase, SaysWhichDataAreTheOwners) {
    for (int number = 0; number < kCTSCSERecords; ++number) {
        RAVO_BUILTIN_RECORD record{};
        ASSERT_TRUE(DescribeBuiltinRecord(number, &record));
        EXPECT_EQ(record.Licensed, number == kCAL20000 ? 1U : 0U) << number;
    }
    for (int number = 0; number < kCTSCSENoises; ++number) {
        RAVO_BUILTIN_NOISE noise{};
        ASSERT_TRUE(DescribeBuiltinNoise(number, &noise));
        EXPECT_EQ(noise.Licensed, number == 0 ? 1U : 0U) << number;
    }
}

TEST(LicensedDatabase, LoadsTheOwnersData) {
    ECG_HEADER* header = LoadDatabaseCTS_CSE(CTSCSE_CAL20000, CTSCSE_NOISE_50HZ);
    ASSERT_NE(header, nullptr);
    FreeECGHeader(header);
    for (int lead = 0; lead < 8; ++lead) {
        for (int n = 0; n < 10 * madeup::kSamples; ++n) {
            ASSERT_EQ(g_pECGData[lead][n], madeup::RecordValue(lead, n % madeup::kSamples) / 1000.0)
                << lead << " " << n;
        }
    }
    for (int n = 0; n < 10000; ++n) {
        ASSERT_EQ(g_NoiseData[n], madeup::NoiseValue(n)) << n;
    }
}

} // namespace
