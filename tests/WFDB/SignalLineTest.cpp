#include "tests/support/DecimalComma.h"
#include "WFDB/main.h"

#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace {

WFDB_SIGNAL ParseSignal(std::string line) {
    WFDB_SIGNAL signal = {};
    ReadHeaderSignal(line.data(), &signal);
    return signal;
}

} // namespace

TEST(SignalLine, ReadsGainBaselineAndUnit) {
    const WFDB_SIGNAL signal = ParseSignal("a.dat 16 200(-5)/mV 12 1024 1 2 3 I");
    EXPECT_EQ(double{signal.ADCGain}, 200.0);
    EXPECT_EQ(int32_t{signal.ADCBaseLine}, -5);
    EXPECT_EQ(int32_t{signal.ADCZero}, 1024);
    EXPECT_EQ(signal.ADCUnit, 'm');
}

TEST(SignalLine, HasTheDecimalPointInEveryLocale) {
    const DecimalComma locale;
    if (!locale.IsThere()) {
        GTEST_SKIP() << "There is no localedef on this machine.";
    }
    EXPECT_EQ(double{ParseSignal("a.dat 16 200.5/mV").ADCGain}, 200.5);
}

TEST(SignalLine, NeedsBothParenthesesForABaseline) {
    EXPECT_EQ(int32_t{ParseSignal("a.dat 16 200(-5/mV 12 1024").ADCBaseLine}, 1024);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 16 200)5 12 1024").ADCBaseLine}, 1024);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 16 200() 12 1024").ADCBaseLine}, 0);
}

TEST(SignalLine, ReplacesAGainOfZero) {
    EXPECT_EQ(double{ParseSignal("a.dat 16 0").ADCGain}, 200.0);
    EXPECT_EQ(double{ParseSignal("a.dat 16 -0.0").ADCGain}, 200.0);
    EXPECT_EQ(double{ParseSignal("a.dat 16 gain").ADCGain}, 200.0);
    EXPECT_EQ(double{ParseSignal("a.dat 16 1e-2000").ADCGain}, 200.0);
    EXPECT_EQ(double{ParseSignal("a.dat 16 2.5e1/uV").ADCGain}, 25.0);
    EXPECT_EQ(double{ParseSignal("a.dat 16 -4").ADCGain}, -4.0);
}

TEST(SignalLine, TakesOneCharacterOfTheUnit) {
    EXPECT_EQ(ParseSignal("a.dat 16 200/uV").ADCUnit, 'u');
    EXPECT_EQ(ParseSignal("a.dat 16 200//mV").ADCUnit, '/');
    EXPECT_EQ(ParseSignal("a.dat 16 200/").ADCUnit, '\0');
    EXPECT_EQ(ParseSignal("a.dat 16 200").ADCUnit, '\0');
}

TEST(SignalLine, ReadsTheFormatMarkersInAnyOrder) {
    for (const char* line : {"a.dat 212x2:5+10", "a.dat 212+10x2:5", "a.dat 212:5+10x2"}) {
        const WFDB_SIGNAL signal = ParseSignal(line);
        EXPECT_EQ(int32_t{signal.Format}, 212) << line;
        EXPECT_EQ(int32_t{signal.SamplesPerFrame}, 2) << line;
        EXPECT_EQ(int32_t{signal.Skew}, 3) << line;
        EXPECT_EQ(int32_t{signal.ByteOffset}, 10) << line;
    }
}

TEST(SignalLine, RoundsTheSkewToFrames) {
    const WFDB_SIGNAL signal = ParseSignal("a.dat 212x4:6");
    EXPECT_EQ(int32_t{signal.SamplesPerFrame}, 4);
    EXPECT_EQ(int32_t{signal.Skew}, 2);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 212x4:5").Skew}, 1);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 212:7").Skew}, 7);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 212:99999999999").Skew},
              std::numeric_limits<int32_t>::max());
}

TEST(SignalLine, CorrectsFormatValuesBelowTheirRange) {
    const WFDB_SIGNAL signal = ParseSignal("a.dat 212x0:-3+-8");
    EXPECT_EQ(int32_t{signal.SamplesPerFrame}, 1);
    EXPECT_EQ(int32_t{signal.Skew}, 0);
    EXPECT_EQ(int32_t{signal.ByteOffset}, 0);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 212x-4").SamplesPerFrame}, 1);
}

TEST(SignalLine, IgnoresMarkersThatNothingFollows) {
    for (const char* line : {"a.dat 212x", "a.dat 212:", "a.dat 212+", "a.dat x2", "a.dat +"}) {
        const WFDB_SIGNAL signal = ParseSignal(line);
        EXPECT_EQ(int32_t{signal.SamplesPerFrame}, 1) << line;
        EXPECT_EQ(int32_t{signal.Skew}, 0) << line;
        EXPECT_EQ(int32_t{signal.ByteOffset}, 0) << line;
    }
    EXPECT_EQ(int32_t{ParseSignal("a.dat x2").Format}, 0);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 212x4x").SamplesPerFrame}, 4);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 212:3:").Skew}, 3);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 212+8+").ByteOffset}, 8);
}

TEST(SignalLine, StopsWhereTheLineEnds) {
    const WFDB_SIGNAL nothing = ParseSignal(" \t\r\n");
    EXPECT_STREQ(nothing.FileName, "");
    EXPECT_EQ(double{nothing.ADCGain}, 200.0);
    EXPECT_EQ(int32_t{nothing.SamplesPerFrame}, 1);

    const WFDB_SIGNAL nameOnly = ParseSignal("a.dat");
    EXPECT_STREQ(nameOnly.FileName, "a.dat");
    EXPECT_EQ(int32_t{nameOnly.Format}, 0);
    EXPECT_EQ(int32_t{nameOnly.SamplesPerFrame}, 1);

    const WFDB_SIGNAL noGain = ParseSignal("a.dat 212");
    EXPECT_EQ(double{noGain.ADCGain}, 200.0);
    EXPECT_EQ(int32_t{noGain.ADCResolution}, 0);

    const WFDB_SIGNAL noResolution = ParseSignal("a.dat 212 200(7)");
    EXPECT_EQ(int32_t{noResolution.ADCResolution}, 12);
    EXPECT_EQ(int32_t{noResolution.ADCZero}, 0);
    EXPECT_EQ(int32_t{noResolution.ADCBaseLine}, 7);

    const WFDB_SIGNAL noZero = ParseSignal("a.dat 212 200 11");
    EXPECT_EQ(int32_t{noZero.ADCResolution}, 11);
    EXPECT_EQ(int32_t{noZero.ADCBaseLine}, 0);

    const WFDB_SIGNAL noChecksum = ParseSignal("a.dat 212 200 11 1024 995");
    EXPECT_EQ(int32_t{noChecksum.ADCBaseLine}, 1024);
    EXPECT_EQ(int32_t{noChecksum.InitialValue}, 995);
    EXPECT_EQ(int32_t{noChecksum.Checksum}, 0);
}

TEST(SignalLine, DerivesTheResolutionFromTheFormat) {
    EXPECT_EQ(int32_t{ParseSignal("a.dat 80 200").ADCResolution}, 8);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 160 200").ADCResolution}, 16);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 212 200").ADCResolution}, 12);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 310 200").ADCResolution}, 10);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 311 200").ADCResolution}, 10);
    EXPECT_EQ(int32_t{ParseSignal("a.dat 16 200").ADCResolution}, 0);
}

TEST(SignalLine, KeepsTheBlanksInsideADescription) {
    EXPECT_STREQ(ParseSignal("a.dat 16 200 12 0 0 0 0 ECG lead I \r\n").Description, "ECG lead I");
    EXPECT_STREQ(ParseSignal("a.dat 16 200 12 0 0 0 0\tX\t1\n").Description, "X\t1");
    EXPECT_STREQ(ParseSignal("a.dat 16 200 12 0 0 0 0\r\n").Description, "");
    EXPECT_STREQ(ParseSignal("a.dat 16 200 12 0 0 0 0 \n").Description, "");
}

TEST(SignalLine, TrimsTheRightEndOfADescriptionOnly) {
    EXPECT_STREQ(ParseSignal("a.dat 16 200 12 0 0 0 0  V1 \n").Description, " V1");
}

TEST(SignalLine, CutsTheDescriptionBeforeItTrims) {
    EXPECT_STREQ(ParseSignal("a.dat 16 1 1 1 1 1 1 0123456789ABCDEFGH").Description,
                 "0123456789ABCDE");
    EXPECT_STREQ(ParseSignal("a.dat 16 1 1 1 1 1 1 0123456789     FGH").Description, "0123456789");
}

TEST(SignalLine, CutsALongFileName) {
    const WFDB_SIGNAL signal = ParseSignal(std::string(300, 'a') + ".dat 16");
    EXPECT_EQ(std::string(signal.FileName), std::string(255, 'a'));
    EXPECT_EQ(int32_t{signal.Format}, 16);
}

TEST(SignalLine, IgnoresNull) {
    WFDB_SIGNAL signal = {};
    ReadHeaderSignal(nullptr, &signal);
    char line[] = "a.dat 16";
    ReadHeaderSignal(line, nullptr);
    EXPECT_STREQ(line, "a.dat 16");
}
