// Each rule of the comparison, on lists small enough to be worked out by hand.
#include "lab/score/Figures.h"
#include "Lists.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

using namespace lab::score;

namespace {

std::string Cells(const std::string& reference, const std::string& test,
                  const Rules& rules = RulesFor()) {
    return CellsOf(CompareLists(reference, test, rules));
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
