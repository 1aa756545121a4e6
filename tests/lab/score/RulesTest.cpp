// Each rule of the comparison, on lists small enough to be worked out by hand.

#include "Lists.h"

#include "lab/score/Figures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

using namespace lab::score;

namespace {

std::string Cells(const std::string& reference, const std::string& test,
                  const Rules& rules = RulesFor()) {
    return CellsOf(CompareLists(reference, test, rules));
}

// "reference matchedReference test matchedTest"
std::string Text(const Matches& matches) {
    return std::to_string(matches.reference) + " " + std::to_string(matches.matchedReference) +
           " " + std::to_string(matches.test) + " " + std::to_string(matches.matchedTest);
}

Matches VentricularRuns(RunBin bin, const std::string& reference, const std::string& test,
                        const Rules& rules = RulesFor()) {
    return CompareLists(reference, test, rules).figures.ventricularRuns[bin];
}

Matches Fibrillation(const std::string& reference, const std::string& test,
                     const Rules& rules = RulesFor()) {
    return CompareLists(reference, test, rules).figures.fibrillation;
}

} // namespace

// ---- Classes ------------------------------------------------------------------------------------

TEST(ClassesTest, EveryCodeHasItsClassAndAllOthersAreNoBeats) {
    const std::string classes[] = {"NLRBejn", "AaJS", "VEr", "F", "/fQ?"};
    const std::string cells[] = {"Nn 1", "Ss 1", "Vv 1", "Ff 1", "Qq 1"};
    std::string beats;
    for (int i = 0; i < 5; ++i) {
        for (const char symbol : classes[i]) {
            EXPECT_EQ(Cells(std::string("1 ") + symbol, std::string("1 ") + symbol), cells[i])
                << symbol;
            beats += symbol;
        }
    }
    for (char symbol = '!'; symbol < 127; ++symbol) {
        if (beats.find(symbol) == std::string::npos && symbol != ',') {
            EXPECT_EQ(Cells(std::string("1 ") + symbol, "1 N"), symbol == '[' ? "" : "On 1")
                << symbol;
        }
    }
    EXPECT_EQ(Cells("1 NN", "1 N"), "On 1"); // longer texts are not codes
}

TEST(ClassesTest, CodesOfAnnotationFilesAreThePublishedOnes) {
    // N 1, L 2, R 3, B 25, e 34, j 11, n 35; A 8, a 4, J 7, S 9; V 5, E 10, r 41; F 6; / 12, f 38,
    // Q 13, ? 30.
    const std::vector<std::vector<int>> codes = {
        {1, 2, 3, 25, 34, 11, 35}, {8, 4, 7, 9}, {5, 10, 41}, {6}, {12, 38, 13, 30}};
    std::vector<Class> expected(256, kMissing);
    for (std::size_t type = 0; type < codes.size(); ++type) {
        for (const int code : codes[type]) {
            expected[static_cast<std::size_t>(code)] = static_cast<Class>(type);
        }
    }
    for (std::size_t code = 0; code < 256; ++code) {
        EXPECT_EQ(ClassOf(static_cast<std::uint8_t>(code)), expected[code]) << code;
    }
}

// ---- Pairs --------------------------------------------------------------------------------------

TEST(PairingTest, TheWindowItselfIsInside) {
    EXPECT_EQ(Cells("1.000 N", "1.150 V"), "Nv 1");
    EXPECT_EQ(Cells("1.150 N", "1.000 V"), "Nv 1");
    EXPECT_EQ(Cells("1.000 N", "1.1500000000000000001 V"), "No 1, Ov 1");
    EXPECT_EQ(Cells("1.1500000000000000001 N", "1.000 V"), "No 1, Ov 1");
}

// Distance of 1.00 to 1.10 is 0.10; the next reference beat, 1.16, is 0.06 from it.
TEST(PairingTest, ABeatStaysAloneWhenTheNextOfItsSideIsNearer) {
    EXPECT_EQ(Cells("1.00 V, 1.16 N", "1.10 N"), "Nn 1, Vo 1");
    EXPECT_EQ(Cells("1.10 N", "1.00 V, 1.16 N"), "Nn 1, Ov 1");
}

// 1.05 lies before 1.10, so it is the next beat and 0.05 away.
TEST(PairingTest, TheNextBeatMayLieBeforeTheOtherSides) {
    EXPECT_EQ(Cells("1.00 V, 1.05 N", "1.10 N"), "Nn 1, Vo 1");
}

// 1.00 and 1.20 are both 0.10 from 1.10: it is paired with the first.
TEST(PairingTest, EquallyNearIsNotNearer) {
    EXPECT_EQ(Cells("1.00 V, 1.20 N", "1.10 N"), "No 1, Vn 1");
    EXPECT_EQ(Cells("1.10 N", "1.00 V, 1.20 N"), "Nv 1, On 1");
}

TEST(PairingTest, BeatsAtOneTimeArePairsInTheOrderOfTheirLists) {
    EXPECT_EQ(Cells("1 N, 1 V", "1 S, 1 F"), "Ns 1, Vf 1");
    EXPECT_EQ(Cells("1 N, 1 V", "1 S"), "Ns 1, Vo 1");
}

// Lists out of order are put in order of time, equal times in the order of the file.
TEST(PairingTest, OrderIsThatOfTime) {
    EXPECT_EQ(Cells("3 V, 1 N, 1 S", "1 N, 1 S, 3 V"), "Nn 1, Ss 1, Vv 1");
}

TEST(PairingTest, EmptySidesGiveNoPairs) {
    EXPECT_EQ(Cells("", ""), "");
    EXPECT_EQ(Cells("1 N", ""), "No 1");
    EXPECT_EQ(Cells("", "1 N"), "On 1");
}

// ---- Times --------------------------------------------------------------------------------------

// 1/3 s = 120/360 is not a decimal: at 360 and at 1080 per second the beats are exactly 0.150 apart
// (162 of 1080), and one more sample is beyond.
TEST(TimesTest, RatesThatDifferAreComparedExactly) {
    AnnotationList reference{{{120, 1, 0}}, Rational(1, 360)};
    AnnotationList test{{{360 + 162, 1, 0}}, Rational(1, 1080)};
    EXPECT_EQ(CellsOf(Compare(reference, test, RulesFor())), "Nn 1");
    test.annotations[0].time = 360 + 162 + 1;
    EXPECT_EQ(CellsOf(Compare(reference, test, RulesFor())), "No 1, On 1");
}

// 1000 s x 100 ppm = 0.1 s; 1000 + 0.1 - 0.25 = 999.85, which is 0.150 before 1000.
TEST(TimesTest, TestTimesAreStretchedAndThenMoved) {
    Rules rules = RulesFor();
    rules.clockPpm = 100;
    rules.offset = Rational(-1, 4);
    EXPECT_EQ(Cells("1000 N", "1000 N", rules), "Nn 1");
    EXPECT_EQ(Cells("1000.0000001 N", "1000 N", rules), "No 1, On 1");
    EXPECT_EQ(Cells("1000 N", "1000.0000001 N", rules), "Nn 1");
}

TEST(TimesTest, MoreDigitsThanFitAreRefusedNotRounded) {
    const std::string tiny = "1.0000000000000000000000000000000001 N";
    EXPECT_THROW(CompareLists(tiny, "100000 N"), std::overflow_error);
    // 10^5 s in units of 10^-34 s are 10^39, more than 2^126: at either end of a list, of either
    // side.
    EXPECT_THROW(CompareLists(tiny, "0 N, 100000 N", RulesFor("0")), std::overflow_error);
    EXPECT_THROW(CompareLists(tiny, "-100000 N, 0 N", RulesFor("0")), std::overflow_error);
    EXPECT_THROW(CompareLists("0 N, 100000 N", tiny, RulesFor("0")), std::overflow_error);
    EXPECT_EQ(Cells(tiny, "1 N, 100 N", RulesFor("0")), "Nn 1, On 1");
}

// ---- Learning period ----------------------------------------------------------------------------

TEST(LearningTest, APairCountsByItsReferenceBeat) {
    const Rules rules = RulesFor("10");
    EXPECT_EQ(Cells("10 N", "10.1 N", rules), "");
    EXPECT_EQ(Cells("10.0001 N", "9.9 N", rules), "Nn 1");
}

TEST(LearningTest, ABeatWithoutCounterpartCountsByItself) {
    const Rules rules = RulesFor("10");
    EXPECT_EQ(Cells("10 N, 10.5 V", "", rules), "Vo 1");
    EXPECT_EQ(Cells("", "10 N, 10.5 V", rules), "Ov 1");
}

// Leaving out the learning period before pairing would leave 10.1 alone.
TEST(LearningTest, PairingComesFirst) {
    EXPECT_EQ(Cells("9.95 N, 11 N", "10.1 N, 11 N", RulesFor("10")), "Nn 1");
}

// ---- Fibrillation -------------------------------------------------------------------------------

TEST(FibrillationTest, BeatsOfEitherSideInsideAreLeftOutEndsIncluded) {
    EXPECT_EQ(Cells("1 N, 2 [, 2 V, 3 V, 4 ], 4 V, 5 N", "1 N, 2 V, 3 N, 4 V, 4.1 S, 5 N"),
              "Nn 2, Os 1");
}

TEST(FibrillationTest, TheTestsEpisodesLeaveNothingOut) {
    EXPECT_EQ(Cells("2 N", "1 [, 2 N, 3 ]"), "Nn 1");
}

// Otherwise the unpaired beat at 1.9 would be a pair with the beat at 2.
TEST(FibrillationTest, ComesBeforePairing) {
    EXPECT_EQ(Cells("2 [, 2 N, 3 ]", "1.9 N"), "On 1");
}

TEST(FibrillationTest, AnUnclosedEpisodeLastsToTheLastAnnotationOfItsList) {
    EXPECT_EQ(Cells("1 N, 2 [, 3 V, 4 +", "1 N, 4 N, 4.1 V"), "Nn 1, Ov 1");
}

TEST(FibrillationTest, ASecondBeginningInsideAndAnEndOutsideMeanNothing) {
    EXPECT_EQ(Cells("1 ], 2 [, 3 [, 4 ], 5 ], 4.5 N", "1 N, 4.5 N"), "Nn 1, On 1");
    EXPECT_EQ(Text(Fibrillation("1 ], 2 [, 3 [, 4 ], 5 ]", "")), "1 0 0 0");
}

// ---- Shutdown -----------------------------------------------------------------------------------

TEST(ShutdownTest, MarksTheOtherSidesLonelyBeats) {
    EXPECT_EQ(Cells("1 N, 2 V, 3 N", "0.5 ~-1, 2.5 ~"), "No 1, Nx 1, Vx 1");
    EXPECT_EQ(Cells("0.5 ~-1, 2.5 ~", "1 N, 2 V, 3 N"), "On 1, Xn 1, Xv 1");
}

TEST(ShutdownTest, ItsOwnSideIsNotConcerned) {
    EXPECT_EQ(Cells("0.5 ~-1, 1 N, 2.5 ~", ""), "No 1");
}

TEST(ShutdownTest, BeginsWithItsAnnotationAndEndsBeforeTheNext) {
    EXPECT_EQ(Cells("0.9999 N, 1 V, 1.9999 S, 2 F", "1 ~-1, 2 ~"), "No 1, Sx 1, Vx 1, Fo 1");
}

TEST(ShutdownTest, OfNoisesAtOneTimeTheLastOfTheFileHolds) {
    EXPECT_EQ(Cells("1 N, 1.5 V, 2 S", "1 ~-1, 1 ~, 2 ~, 2 ~-1, 3 ~"), "No 1, Sx 1, Vo 1");
}

TEST(ShutdownTest, LastsWithoutEndWhenNoNoiseFollows) {
    EXPECT_EQ(Cells("1 N, 9 N", "0.5 ~-1, 2 N"), "Nx 2, On 1");
}

TEST(ShutdownTest, OtherSubtypesAndPairsAreNoShutdown) {
    EXPECT_EQ(Cells("1 N", "0.5 ~"), "No 1");
    for (const int subtype : {-128, -2, 1, 127}) {
        const AnnotationList test{{{0, 14, static_cast<std::int16_t>(subtype)}}, 1};
        EXPECT_EQ(CellsOf(Compare(ListOf("1 N"), test, RulesFor())), "No 1") << subtype;
    }
    EXPECT_EQ(Cells("1 N", "0.5 ~-1, 1 N, 2 ~"), "Nn 1");
}

// ---- Figures of beats ---------------------------------------------------------------------------

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

// ---- Runs ---------------------------------------------------------------------------------------

TEST(RunsTest, BinsBeginAtTwoThreeAndSix) {
    std::string beats;
    for (int length = 1; length <= 7; ++length) {
        beats += (beats.empty() ? "" : ", ") + std::to_string(length) + " V";
        const auto runs = CompareLists(beats, beats).figures.ventricularRuns;
        EXPECT_EQ(Text(runs[kCouplet]), length == 2 ? "1 1 1 1" : "0 0 0 0") << length;
        EXPECT_EQ(Text(runs[kShort]), length >= 3 && length <= 5 ? "1 1 1 1" : "0 0 0 0");
        EXPECT_EQ(Text(runs[kLong]), length >= 6 ? "1 1 1 1" : "0 0 0 0") << length;
    }
}

// Three are enough for a run of five, which is in the bin for three and more; in the other
// direction, the test's run of three has five beats around it.
TEST(RunsTest, TheBinsLowerLimitIsEnough) {
    const auto runs = VentricularRuns(kShort, "1 V, 2 V, 3 V, 4 V, 5 V", "1 V, 2 V, 3 V, 4 N, 5 V");
    EXPECT_EQ(Text(runs), "1 1 1 1");
    EXPECT_EQ(Text(VentricularRuns(kShort, "1 V, 2 V, 3 V, 4 V", "1 V, 2 V, 3 N, 4 V")), "1 0 0 0");
}

// The reference's span is 2 to 3, widened 1.85 to 3.15.
TEST(RunsTest, OnlyTheWidenedSpanCountsItsEndsIncluded) {
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "2 V, 3 V", "1.85 V, 3.15 V")), "1 1 1 1");
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "2 V, 3 V", "1.8499 V, 3.15 V")), "1 0 1 1");
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "2 V, 3 V", "1.85 V, 3.1501 V")), "1 0 1 1");
}

// Two of the test's beats lie in the span, with one of another class between them.
TEST(RunsTest, CounterpartsAreConsecutiveInTheirOwnList) {
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "2 V, 3 V", "2 V, 2.5 N, 3 V")), "1 0 0 0");
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "2 V, 3 V", "2 V, 2.5 +, 3 V")), "1 1 1 1");
}

TEST(RunsTest, FibrillationPartsTheRunsOfBothSides) {
    const std::string reference = "1 V, 2 V, 3 [, 4 ], 5 V, 6 V, 7 V";
    const auto runs = CompareLists(reference, "1 V, 2 V, 5 V, 6 V, 7 V").figures.ventricularRuns;
    EXPECT_EQ(Text(runs[kCouplet]), "1 1 1 1");
    EXPECT_EQ(Text(runs[kShort]), "1 1 1 1");
    EXPECT_EQ(Text(runs[kLong]), "0 0 0 0");
    // A window of 3 s widens the couplet's span to 5 s: both of the test's beats lie in it, but the
    // episode is between them.
    Rules rules = RulesFor();
    rules.window = 3;
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "1 V, 2 V, 3 [, 4 ], 5 N", "2 V, 4.1 V", rules)),
              "1 0 0 0");
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "1 V, 2 V, 5 N", "2 V, 4.1 V", rules)), "1 1 1 1");
    // The test's own episodes separate no runs.
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "1 V, 2 V", "1 V, 1.2 [, 1.8 ], 2 V")), "1 1 1 1");
}

TEST(RunsTest, ShutdownsAndRemarksPartNothing) {
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "1 V, 1.2 ~-1, 1.5 +, 1.8 ~, 2 V", "1 V, 2 V")),
              "1 1 1 1");
}

TEST(RunsTest, BeginAfterTheLearningPeriodButMayBeFoundInIt) {
    const Rules rules = RulesFor("10");
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "10 V, 11 V", "10.1 V, 11 V", rules)), "0 0 1 1");
    EXPECT_EQ(Text(VentricularRuns(kCouplet, "10.1 V, 11 V", "10 V, 11 V", rules)), "1 1 0 0");
}

TEST(RunsTest, OfSupraventricularBeatsAreCountedApart) {
    const auto figures = CompareLists("1 A, 2 J, 3 V", "1 S, 2 a, 3 V").figures;
    EXPECT_EQ(Text(figures.supraventricularRuns[kCouplet]), "1 1 1 1");
    EXPECT_EQ(Text(figures.ventricularRuns[kCouplet]), "0 0 0 0");
}

// ---- Episodes -----------------------------------------------------------------------------------

TEST(EpisodesTest, AreFoundWhenMoreThanAnInstantIsShared) {
    EXPECT_EQ(Text(Fibrillation("1 [, 2 ]", "2 [, 3 ]")), "1 0 1 0");
    EXPECT_EQ(Text(Fibrillation("1 [, 2 ]", "1.9999 [, 3 ]")), "1 1 1 1");
    EXPECT_EQ(Text(Fibrillation("1 [, 2 ]", "1.5 [, 1.5 ]")), "1 0 1 0");
}

// Reference 10 to 20 and 30 to 40, test 15 to 32 and 50 to 60: shared 5 + 2 of 20 and of 27.
TEST(EpisodesTest, DurationsAreOfSharedSeconds) {
    const auto figures = CompareLists("10 [, 20 ], 30 [, 40 ]", "15 [, 32 ], 50 [, 60 ]").figures;
    EXPECT_EQ(Text(figures.fibrillation), "2 2 2 1");
    EXPECT_DOUBLE_EQ(*figures.fibrillationSeconds.Sensitivity(), 7.0 / 20.0);
    EXPECT_DOUBLE_EQ(*figures.fibrillationSeconds.Predictivity(), 7.0 / 27.0);
}

TEST(EpisodesTest, BeginAfterTheLearningPeriodButMayBeFoundInIt) {
    const auto figures =
        CompareLists("10.5 [, 12 ]", "10 [, 11 ], 20 [, 21 ]", RulesFor("10")).figures;
    EXPECT_EQ(Text(figures.fibrillation), "1 1 1 0");
    EXPECT_DOUBLE_EQ(*figures.fibrillationSeconds.Sensitivity(), 0.5 / 1.5);
    EXPECT_DOUBLE_EQ(*figures.fibrillationSeconds.Predictivity(), 0.0);
}

TEST(EpisodesTest, OfNoLengthHaveNoDurationFigure) {
    const auto figures = CompareLists("10 [, 10 ]", "").figures;
    EXPECT_EQ(Text(figures.fibrillation), "1 0 0 0");
    EXPECT_EQ(figures.fibrillationSeconds.Sensitivity(), std::nullopt);
}
