#include "lab/score/Figures.h"
#include "Lists.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

using namespace lab::score;

// Every cell holds a different power of two, so that each sum shows which cells it takes:
// row r, column c has 2^(7 r + c).
class CellSumsTest : public testing::Test {
  protected:
    CellSumsTest() {
        for (std::size_t row = 0; row < kLabels; ++row) {
            for (std::size_t column = 0; column < kLabels; ++column) {
                if (row < kBeatClasses || column < kBeatClasses) {
                    m_figures.matrix[row][column] = std::int64_t{1} << (7 * row + column);
                }
            }
        }
    }

    static std::int64_t Sum(const std::string& cells) {
        const std::string rows = "NSVFQOX";
        const std::string columns = "nsvfqox";
        std::int64_t sum = 0;
        for (std::size_t i = 0; i < cells.size(); i += 3) {
            sum += std::int64_t{1} << (7 * rows.find(cells[i]) + columns.find(cells[i + 1]));
        }
        return sum;
    }

    Figures m_figures;
};

TEST_F(CellSumsTest, Qrs) {
    const Detection qrs = m_figures.Qrs();
    EXPECT_EQ(qrs.truePositives,
              Sum("Nn Ns Nv Nf Nq Sn Ss Sv Sf Sq Vn Vs Vv Vf Vq Fn Fs Fv Ff Fq Qn Qs Qv Qf Qq "));
    EXPECT_EQ(qrs.falseNegatives, Sum("No Nx So Sx Vo Vx Fo Fx Qo Qx "));
    EXPECT_EQ(qrs.falsePositives, Sum("On Os Ov Of Oq "));
}

TEST_F(CellSumsTest, Ventricular) {
    const Detection veb = m_figures.Ventricular();
    EXPECT_EQ(veb.truePositives, Sum("Vv "));
    EXPECT_EQ(veb.falseNegatives, Sum("Vn Vs Vf Vq Vo Vx "));
    EXPECT_EQ(veb.falsePositives, Sum("Nv Sv Ov "));
    EXPECT_EQ(veb.trueNegatives,
              Sum("Nn Ns Nf Nq Sn Ss Sf Sq Fn Fs Ff Fq Qn Qs Qf Qq On Os Of Oq "));
}

TEST_F(CellSumsTest, Supraventricular) {
    const Detection sveb = m_figures.Supraventricular();
    EXPECT_EQ(sveb.truePositives, Sum("Ss "));
    EXPECT_EQ(sveb.falseNegatives, Sum("Sn Sv Sf Sq So Sx "));
    EXPECT_EQ(sveb.falsePositives, Sum("Ns Vs Fs Os "));
    EXPECT_EQ(sveb.trueNegatives,
              Sum("Nn Nv Nf Nq Vn Vv Vf Vq Fn Fv Ff Fq Qn Qv Qf Qq On Ov Of Oq "));
}

TEST(FractionsTest, AreOfTheWholeAndUndefinedWithoutOne) {
    const Detection detection{3, 1, 2, 6};
    EXPECT_EQ(detection.Sensitivity(), 0.75);       // 3 / (3 + 1)
    EXPECT_EQ(detection.Predictivity(), 0.6);       // 3 / (3 + 2)
    EXPECT_EQ(detection.FalsePositiveRate(), 0.25); // 2 / (2 + 6)
    EXPECT_EQ(Detection{}.Sensitivity(), std::nullopt);
    EXPECT_EQ(Detection{}.Predictivity(), std::nullopt);
    EXPECT_EQ(Detection{}.FalsePositiveRate(), std::nullopt);
    EXPECT_EQ((Matches{4, 1, 5, 2}.Sensitivity()), 0.25);
    EXPECT_EQ((Matches{4, 1, 5, 2}.Predictivity()), 0.4);
    EXPECT_EQ(Matches{}.Sensitivity(), std::nullopt);
}

TEST(FractionsTest, SidesSwappedSwapSensitivityAndPredictivityOfQrs) {
    const std::string one = "1 N, 2 V, 3 S, 4 N, 5 F";
    const std::string other = "1.1 N, 2.2 V, 3 V, 5 Q, 6 N, 7 N";
    // Pairs 1, 3 and 5 of 5 and of 6.
    const Detection forth = CompareLists(one, other).figures.Qrs();
    const Detection back = CompareLists(other, one).figures.Qrs();
    EXPECT_EQ(forth.Sensitivity(), 0.6);
    EXPECT_EQ(forth.Predictivity(), 0.5);
    EXPECT_EQ(back.Sensitivity(), forth.Predictivity());
    EXPECT_EQ(back.Predictivity(), forth.Sensitivity());
}

// Gross: (1 + 0) / (1 + 1 + 2); average: the mean of 1/2 and 0/2, the third record has no V.
TEST(FractionsTest, GrossSumsCountsAndAverageIsOverRecordsWhereDefined) {
    Figures records[3];
    records[0].matrix[kVentricular][kVentricular] = 1;
    records[0].matrix[kVentricular][kNormal] = 1;
    records[1].matrix[kVentricular][kMissing] = 2;
    Figures gross;
    std::vector<Fractions> fractions;
    for (const Figures& record : records) {
        gross += record;
        fractions.push_back(FractionsOf(record));
    }
    EXPECT_EQ(Find(FractionsOf(gross), "veb_se")->value, 0.25);
    const Fractions average = AverageOf(fractions);
    EXPECT_EQ(Find(average, "veb_se")->value, 0.25);
    EXPECT_EQ(Find(average, "veb_ppv")->value, 1.0); // of the first record alone: 1 / (1 + 0)
    EXPECT_EQ(Find(average, "sveb_se")->value, std::nullopt);
    EXPECT_EQ(Find(average, "veb_sensitivity"), nullptr);
}

// Every count of both records differs, so that each sum shows its terms.
TEST(FractionsTest, GrossSumsEveryCount) {
    Figures one;
    Figures other;
    for (std::size_t i = 0; i < kLabels * kLabels; ++i) {
        one.matrix[i / kLabels][i % kLabels] = static_cast<std::int64_t>(i);
        other.matrix[i / kLabels][i % kLabels] = static_cast<std::int64_t>(1000 * i);
    }
    for (std::size_t bin = 0; bin < kRunBins; ++bin) {
        const auto first = static_cast<std::int64_t>(10 * bin);
        one.ventricularRuns[bin] = {first + 1, first + 2, first + 3, first + 4};
        other.ventricularRuns[bin] = {100, 200, 300, 400};
        one.supraventricularRuns[bin] = {first + 5, first + 6, first + 7, first + 8};
        other.supraventricularRuns[bin] = {500, 600, 700, 800};
    }
    one.fibrillation = {1, 2, 3, 4};
    other.fibrillation = {10, 20, 30, 40};
    one.fibrillationSeconds = {0.5, 1.5, 2.5, 3.5};
    other.fibrillationSeconds = {10.0, 20.0, 30.0, 40.0};
    one += other;
    for (std::size_t i = 0; i < kLabels * kLabels; ++i) {
        EXPECT_EQ(one.matrix[i / kLabels][i % kLabels], static_cast<std::int64_t>(1001 * i));
    }
    EXPECT_EQ(Text(one.ventricularRuns[kCouplet]), "101 202 303 404");
    EXPECT_EQ(Text(one.ventricularRuns[kShort]), "111 212 313 414");
    EXPECT_EQ(Text(one.ventricularRuns[kLong]), "121 222 323 424");
    EXPECT_EQ(Text(one.supraventricularRuns[kCouplet]), "505 606 707 808");
    EXPECT_EQ(Text(one.supraventricularRuns[kLong]), "525 626 727 828");
    EXPECT_EQ(Text(one.fibrillation), "11 22 33 44");
    const Durations& seconds = one.fibrillationSeconds;
    EXPECT_EQ(seconds.reference, 10.5);
    EXPECT_EQ(seconds.detected, 21.5);
    EXPECT_EQ(seconds.test, 32.5);
    EXPECT_EQ(seconds.matched, 43.5);
}

// All fractions by name, each made of counts that no other fraction has.
TEST(FractionsTest, NamesTellWhatTheyAreOf) {
    Figures figures;
    const Matches matches[] = {{2, 1, 4, 1}, {8, 1, 16, 1}, {32, 1, 64, 1}, {128, 1, 256, 1},
                               {3, 1, 5, 1}, {7, 1, 9, 1},  {11, 1, 13, 1}};
    std::copy_n(matches, kRunBins, figures.ventricularRuns.begin());
    std::copy_n(matches + kRunBins, kRunBins, figures.supraventricularRuns.begin());
    figures.fibrillation = matches[6];
    figures.fibrillationSeconds = {15.0, 1.0, 17.0, 1.0};
    figures.matrix[kVentricular] = {0, 0, 1, 18, 0, 0, 0};      // VEB Se 1/19
    figures.matrix[kSupraventricular] = {0, 1, 20, 0, 0, 0, 0}; // SVEB Se 1/21, VEB +P 1/21
    figures.matrix[kFusion] = {0, 22, 0, 0, 0, 0, 0};           // SVEB +P 1/23
    figures.matrix[kMissing] = {0, 0, 0, 0, 0, 0, 0};
    const std::map<std::string, double> expected = {{"qrs_se", 1.0},
                                                    {"qrs_ppv", 1.0},
                                                    {"veb_se", 1.0 / 19.0},
                                                    {"veb_ppv", 1.0 / 21.0},
                                                    {"veb_fpr", 20.0 / 43.0}, // Sv of Sv + Ss + Fs
                                                    {"sveb_se", 1.0 / 21.0},
                                                    {"sveb_ppv", 1.0 / 23.0},
                                                    {"sveb_fpr", 22.0 / 41.0}, // Fs of Fs + Vv + Vf
                                                    {"v_couplet_se", 1.0 / 2.0},
                                                    {"v_couplet_ppv", 1.0 / 4.0},
                                                    {"v_short_se", 1.0 / 8.0},
                                                    {"v_short_ppv", 1.0 / 16.0},
                                                    {"v_long_se", 1.0 / 32.0},
                                                    {"v_long_ppv", 1.0 / 64.0},
                                                    {"s_couplet_se", 1.0 / 128.0},
                                                    {"s_couplet_ppv", 1.0 / 256.0},
                                                    {"s_short_se", 1.0 / 3.0},
                                                    {"s_short_ppv", 1.0 / 5.0},
                                                    {"s_long_se", 1.0 / 7.0},
                                                    {"s_long_ppv", 1.0 / 9.0},
                                                    {"vf_se", 1.0 / 11.0},
                                                    {"vf_ppv", 1.0 / 13.0},
                                                    {"vf_duration_se", 1.0 / 15.0},
                                                    {"vf_duration_ppv", 1.0 / 17.0}};
    const Fractions fractions = FractionsOf(figures);
    EXPECT_EQ(fractions.size(), expected.size());
    for (const auto& [name, value] : expected) {
        ASSERT_NE(Find(fractions, name), nullptr) << name;
        EXPECT_EQ(Find(fractions, name)->value, value) << name;
    }
}
