// The readers: what they accept, exactly, and what they refuse, with the position.

#include "lab/score/Input.h"
#include "lab/common/Failure.h"
#include "lab/score/AnnotationFile.h"
#include "lab/score/Codes.h"
#include "lab/score/CsvAnnotations.h"
#include "lab/score/HeaderRate.h"
#include "lab/score/InputFile.h"
#include "lab/score/Rational.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace lab::score;

namespace {

// ---- The test's own encoder ---------------------------------------------------------------------

std::string Word(unsigned code, unsigned value) {
    const unsigned word = code << 10 | value;
    return {static_cast<char>(word & 0xFF), static_cast<char>(word >> 8)};
}

std::string Skip(std::int32_t samples) {
    const auto bits = static_cast<std::uint32_t>(samples);
    const auto byte = [&](int shift) { return static_cast<char>(bits >> shift & 0xFF); };
    return Word(59, 0) + byte(16) + byte(24) + byte(0) + byte(8);
}

std::string Text(const std::string& text) {
    return Word(63, static_cast<unsigned>(text.size())) + text +
           (text.size() % 2 == 1 ? std::string(1, '\0') : "");
}

const std::string kEnd = std::string(2, '\0');

// "time code subtype, ..."
std::string Shown(const std::vector<Annotation>& annotations) {
    std::string text;
    for (const Annotation& annotation : annotations) {
        text += (text.empty() ? "" : ", ") +
                std::to_string(static_cast<long long>(annotation.time)) + " " +
                std::to_string(annotation.code) + " " + std::to_string(annotation.subtype);
    }
    return text;
}

std::string Parsed(const std::string& bytes) {
    return Shown(ParseAnnotations(bytes, "x.atr").annotations);
}

template <class Call>
std::string FailureOf(Call&& call) {
    try {
        call();
    } catch (const lab::Failure& failure) {
        EXPECT_EQ(failure.Status(), lab::kMaterial);
        const std::string text = failure.what();
        return text.substr(0, text.find('\n'));
    }
    return "no failure";
}

std::string AnnotationFailure(const std::string& bytes) {
    return FailureOf([&] { ParseAnnotations(bytes, "x.atr"); });
}

std::string CsvFailure(const std::string& text) {
    return FailureOf([&] { ParseCsv(text, "x.csv"); });
}

class FilesTest : public testing::Test {
  protected:
    AnnotationList Read(const std::string& path, const std::string& other) {
        return ReadList({path, HeaderOf(path, "atr")}, {other, HeaderOf(other, "atr")}, m_remarks);
    }

    Scratch m_folder;
    std::vector<std::string> m_remarks;
};

} // namespace

// ---- Decimals -----------------------------------------------------------------------------------

TEST(DecimalTest, IsTakenAsWritten) {
    EXPECT_EQ(Rational(*ParseDecimal("0.1")), Rational(1, 10));
    EXPECT_EQ(Rational(*ParseDecimal("-12.50")), Rational(-25, 2));
    EXPECT_EQ(Rational(*ParseDecimal("+.5")), Rational(1, 2));
    EXPECT_EQ(Rational(*ParseDecimal("7.")), Rational(7));
    EXPECT_EQ(Rational(*ParseDecimal("1.5e3")), Rational(1500));
    EXPECT_EQ(Rational(*ParseDecimal("25E-04")), Rational(1, 400));
    EXPECT_EQ(Rational(*ParseDecimal("0000")), Rational(0));
    EXPECT_EQ(Rational(*ParseDecimal("0e999999999999")), Rational(0));
    EXPECT_EQ(Rational(*ParseDecimal("0." + std::string(30, '0') + "1")),
              Rational(1, PowerOfTen(31)));
}

TEST(DecimalTest, WhatDoesNotFitIsRefused) {
    EXPECT_THROW(ParseDecimal("100." + std::string(40, '0') + "1"), std::overflow_error);
    EXPECT_THROW(Rational(*ParseDecimal("1e38")), std::overflow_error);
    EXPECT_THROW(Rational(*ParseDecimal("1e-38")), std::overflow_error);
    EXPECT_THROW(Rational(*ParseDecimal("1e999999999999")), std::overflow_error);
}

TEST(DecimalTest, NothingElseIsANumber) {
    for (const char* text : {"", "-", "+", ".", "e5", "1e", "1e+", "1.2.3", "1,5", "0x10", "nan",
                             "inf", "1 2", " 1", "1 ", "--1", "1e5.0", "12a"}) {
        EXPECT_FALSE(ParseDecimal(text)) << text;
    }
}

TEST(RationalTest, IsInLowestTermsWithAPositiveDenominator) {
    EXPECT_EQ(Rational(1) / Rational(-2, 3), Rational(-3, 2));
    EXPECT_EQ(Rational(1, 6) + Rational(1, 10), Rational(4, 15)); // 5/30 + 3/30
    EXPECT_TRUE(CommonMultiple(4, 6) == 12);
    // 2 x 10^37 is below 2^125, and the product of both is not.
    EXPECT_TRUE(CommonMultiple(PowerOfTen(37), 2 * PowerOfTen(20)) == PowerOfTen(37));
}

// ---- Annotation files ---------------------------------------------------------------------------

TEST(AnnotationFileTest, IntervalsAddUpAndQualifiersConcernTheOneBefore) {
    // 18; NUM and CHN change nothing here; 18 + 1023; a noise annotation with all ten bits of its
    // subtype set, whose low byte is -1; one with 0x07F.
    EXPECT_EQ(Parsed(Word(1, 18) + Word(60, 3) + Word(62, 1) + Word(5, 1023) + Word(14, 0) +
                     Word(61, 0x3FF) + Word(14, 2) + Word(61, 0x07F) + kEnd),
              "18 1 0, 1041 5 0, 1041 14 -1, 1043 14 127");
    EXPECT_EQ(Parsed(Word(14, 1) + Word(61, 0x0FF) + Word(1, 1) + kEnd), "1 14 -1, 2 1 0");
}

TEST(AnnotationFileTest, SkipsAddToTheNextInterval) {
    EXPECT_EQ(Parsed(Word(1, 2) + Skip(65536) + Word(1, 5) + kEnd), "2 1 0, 65543 1 0");
    EXPECT_EQ(Parsed(Skip(100000) + Skip(-1) + Word(1, 0) + kEnd), "99999 1 0");
    EXPECT_EQ(
        Parsed(Word(1, 0) + Skip(0x7FFFFFFF) + Word(1, 0) + Skip(0x7FFFFFFF) + Word(1, 0) + kEnd),
        "0 1 0, 2147483647 1 0, 4294967294 1 0");
}

TEST(AnnotationFileTest, TextsArePassedOverWithTheirPadding) {
    EXPECT_EQ(Parsed(Word(28, 7) + Text("(VFL") + Word(1, 1) + Text("odd") + Word(5, 1) + kEnd),
              "7 28 0, 8 1 0, 9 5 0");
    EXPECT_EQ(Parsed(Word(1, 1) + Text("") + Word(1, 1) + kEnd), "1 1 0, 2 1 0");
    EXPECT_EQ(Parsed(Word(1, 1) + Text(std::string(1023, 'x')) + Word(1, 1) + kEnd),
              "1 1 0, 2 1 0");
}

TEST(AnnotationFileTest, CodeZeroWithAnIntervalIsAnAnnotation) {
    EXPECT_EQ(Parsed(Word(0, 5) + Word(1, 5) + kEnd), "5 0 0, 10 1 0");
}

TEST(AnnotationFileTest, TheFilesOwnTimeResolutionIsTaken) {
    const auto content = ParseAnnotations(
        Word(22, 0) + Text("## time resolution: 128.5") + Word(1, 1) + kEnd, "x.atr");
    EXPECT_EQ(content.rate, Rational(257, 2));
    EXPECT_EQ(ParseAnnotations(Word(22, 1) + Text("## time resolution: 128") + kEnd, "x").rate,
              std::nullopt);
    // Up to a blank or a zero byte, and only in a note.
    for (const std::string& end : {std::string(" and more"), std::string("\0x", 2)}) {
        EXPECT_EQ(
            ParseAnnotations(Word(22, 0) + Text("## time resolution: 128" + end) + kEnd, "x").rate,
            Rational(128));
    }
    EXPECT_EQ(ParseAnnotations(Word(28, 0) + Text("## time resolution: 128") + kEnd, "x").rate,
              std::nullopt);
    for (const std::string rate : {"x", "0", "-128", "", "1e99"}) {
        EXPECT_EQ(AnnotationFailure(Word(22, 0) + Text("## time resolution: " + rate) + kEnd),
                  "x.atr: states a time resolution at byte 2 that is not a rate.");
    }
}

TEST(AnnotationFileTest, WhatIsCutIsRefusedWithItsPlace) {
    const std::string beat = Word(1, 2);
    EXPECT_EQ(AnnotationFailure(beat + "\x01"),
              "x.atr: ends after 3 bytes, inside a word that begins at byte 2.");
    for (std::size_t rest = 1; rest <= 4; ++rest) {
        const std::string cut = (beat + Skip(5)).substr(0, 8 - rest);
        EXPECT_EQ(AnnotationFailure(cut), "x.atr: ends after " + std::to_string(8 - rest) +
                                              " bytes, inside a SKIP that begins at byte 2.");
    }
    EXPECT_EQ(AnnotationFailure(beat + Text("abcd").substr(0, 5)),
              "x.atr: ends after 7 bytes, inside a text that begins at byte 2.");
    EXPECT_EQ(AnnotationFailure(beat + Word(63, 3) + "abc"),
              "x.atr: ends after 7 bytes, inside a text that begins at byte 2.");
}

TEST(AnnotationFileTest, AQualifierOfNothingIsRefused) {
    for (const unsigned code : {60U, 61U, 62U}) {
        EXPECT_EQ(AnnotationFailure(Skip(1) + Word(code, 1) + kEnd),
                  "x.atr: is not an annotation file: the word at byte 6 qualifies an annotation, "
                  "and none precedes it.");
    }
}

TEST(AnnotationFileTest, AMissingEndMarkAndBytesAfterItAreRemarkedOn) {
    EXPECT_EQ(ParseAnnotations(Word(1, 2) + kEnd + kEnd, "x").remark, "");
    EXPECT_EQ(ParseAnnotations(Word(1, 2), "x").remark, "has no end mark; is it whole?");
    EXPECT_EQ(ParseAnnotations("", "x").remark, "is empty");
    EXPECT_EQ(ParseAnnotations(kEnd, "x").remark, "");
    EXPECT_EQ(ParseAnnotations(Word(1, 2) + kEnd + Word(1, 2), "x").remark,
              "has an end mark at byte 2; the 2 bytes after it are not read");
}

TEST(CodesTest, SymbolsOfCodesWithoutOneAreEmpty) {
    EXPECT_EQ(SymbolOfCode(1), "N");
    EXPECT_EQ(SymbolOfCode(14), "~");
    EXPECT_EQ(SymbolOfCode(41), "r");
    for (const int code : {0, 15, 17, 42, 255}) {
        EXPECT_EQ(SymbolOfCode(static_cast<std::uint8_t>(code)), "") << code;
    }
}

// ---- Headers ------------------------------------------------------------------------------------

TEST(HeaderRateTest, IsThatOfTheRecordLineExactly) {
    EXPECT_EQ(ParseHeaderRate("100 2 360 650000\n", "x.hea"), Rational(360));
    EXPECT_EQ(ParseHeaderRate("# a comment\n\n\tx/3  2\t128.5", "x.hea"), Rational(257, 2));
    EXPECT_EQ(ParseHeaderRate("x 2 0.0166666667 7\r\n", "x.hea"), Rational(166666667, 10000000000));
    EXPECT_EQ(ParseHeaderRate("x 2\n", "x.hea"), Rational(250)); // the default of the format
}

// What follows the slash is the frequency of a counter, such as a tape's.
TEST(HeaderRateTest, CounterFrequencyIsLeftAside) {
    EXPECT_EQ(ParseHeaderRate("x 2 360/1.5(12) 650000\n", "x.hea"), Rational(360));
}

TEST(HeaderRateTest, WhatIsNoneIsRefused) {
    const auto failure = [](const std::string& header) {
        return FailureOf([&] { ParseHeaderRate(header, "x.hea"); });
    };
    EXPECT_EQ(failure(""), "x.hea: has no record line.");
    EXPECT_EQ(failure("# only\n"), "x.hea: has no record line.");
    EXPECT_EQ(failure("\nx\n"), "x.hea: line 2: is not the record line of a header.");
    for (const std::string rate : {"fast", "0", "-250", "/250", "250x", "1e38", "1e-38"}) {
        EXPECT_EQ(failure("x 2 " + rate),
                  "x.hea: line 1: \"" + rate + "\" is not a sampling frequency.");
    }
}

// ---- CSV ----------------------------------------------------------------------------------------

TEST(CsvTest, TimesAreExactWhateverTheirDecimals) {
    const auto list =
        ParseCsv("\xEF\xBB\xBFseconds,code\r\n 0.1 , N \r\n1,V\n\n2.345,~\n", "x.csv").list;
    EXPECT_EQ(list.unit, Rational(1, 1000));
    EXPECT_EQ(Shown(list.annotations), "100 1 0, 1000 5 0, 2345 14 0");
    EXPECT_EQ(Shown(ParseCsv("seconds,code,subtype\n1,~,-1\n2,N\n3,N,\n", "x").list.annotations),
              "1 14 -1, 2 1 0, 3 1 0");
    EXPECT_EQ(Shown(ParseCsv("seconds,code\n", "x").list.annotations), "");
    EXPECT_EQ(Shown(ParseCsv("seconds,code\n5,N\n-1,V\n5,S\n", "x").list.annotations),
              "-1 5 0, 5 1 0, 5 9 0");
}

TEST(CsvTest, UnknownCodesAreRemarkedOnWithTheirNumberAndTheFirst) {
    const auto remark = [](const std::string& lines) {
        return ParseCsv("seconds,code\n" + lines, "x").remark;
    };
    EXPECT_EQ(remark(""), "");
    EXPECT_EQ(remark("1,N\n2,+\n3,~\n"), "");
    EXPECT_EQ(remark("1,N\n2,odd\n3,V\n"),
              "1 of its 3 codes is unknown and counts as no beat, that in line 3: \"odd\"");
    EXPECT_EQ(remark("1,NORMAL\n2,1\n"), "none of its 2 codes is known; the first, from line 2 on: "
                                         "\"NORMAL\", \"1\"");
    // A code that occurs twice is named once; a fourth code is not named, nor is the end of a long
    // one.
    EXPECT_EQ(
        remark("1,N\n2,x1\n3,x1\n4,abcdefghijklmnopqrstuvwxyz\n5,\x1B\xE9\n6,x4\n"),
        "5 of its 6 codes are unknown and count as no beats; the first, from line 3 on: \"x1\", "
        "\"abcdefghijklmnopqrst...\", \"?\xC3\xA9\"");
    // The twentieth byte begins a two-byte character.
    EXPECT_EQ(remark("1," + std::string(19, 'x') + "\xC3\xA9y\n"),
              "its one code is unknown, that in line 2: \"" + std::string(19, 'x') +
                  "\xC3\xA9...\"");
}

TEST(CsvTest, WhatIsWrongIsRefusedWithItsLine) {
    const std::string header = "seconds,code\n";
    EXPECT_EQ(CsvFailure(""), "x.csv: line 1: is not the header seconds,code.");
    EXPECT_EQ(CsvFailure("1.0,N\n"), "x.csv: line 1: is not the header seconds,code.");
    EXPECT_EQ(CsvFailure("time,code\n1,N\n"), "x.csv: line 1: is not the header seconds,code.");
    EXPECT_EQ(CsvFailure("seconds,type\n1,N\n"), "x.csv: line 1: is not the header seconds,code.");
    EXPECT_EQ(CsvFailure("seconds,code,text\n"), "x.csv: line 1: is not the header seconds,code.");
    EXPECT_EQ(CsvFailure("seconds,code,a,b\n"), "x.csv: line 1: is not the header seconds,code.");
    EXPECT_EQ(CsvFailure(header + "1,N\nabc,N\n"),
              "x.csv: line 3: has \"abc\" where a time belongs.");
    EXPECT_EQ(CsvFailure(header + ",N\n"), "x.csv: line 2: has \"\" where a time belongs.");
    EXPECT_EQ(CsvFailure(header + "nan,N\n"), "x.csv: line 2: has \"nan\" where a time belongs.");
    EXPECT_EQ(CsvFailure(header + "1\n"), "x.csv: line 2: has no code.");
    EXPECT_EQ(CsvFailure(header + "1,5,N\n"), "x.csv: line 2: has more fields than the header.");
    EXPECT_EQ(CsvFailure("seconds,code,subtype\n1,N,x\n"),
              "x.csv: line 2: has \"x\" where a subtype from -32768 to 32767 belongs.");
    for (const std::string& time :
         std::vector<std::string>{"1e400", "1e-50", "9e37", "1." + std::string(40, '1')}) {
        EXPECT_EQ(CsvFailure(header + "1,N\n" + time + ",N\n"),
                  "x.csv: line 3: has a time with more digits than are kept exactly.");
    }
    // 10^20 in units of 10^-20 would be 10^40.
    EXPECT_EQ(CsvFailure(header + "1,N\n1e20,N\n1e-20,N\n"),
              "x.csv: line 3: has a time that is not kept exactly together with the finest one, of "
              "20 decimals.");
}

// Subtypes are of 16 bits, of which the low byte counts, as a signed number.
TEST(CsvTest, SubtypesBeyondSixteenBitsAreRefused) {
    const auto csv = [](const std::string& subtype) {
        return "seconds,code,subtype\n1,~," + subtype + "\n";
    };
    EXPECT_EQ(Shown(ParseCsv(csv("-32768"), "x").list.annotations), "1 14 0");
    EXPECT_EQ(Shown(ParseCsv(csv("32767"), "x").list.annotations), "1 14 -1");
    EXPECT_EQ(Shown(ParseCsv(csv("128"), "x").list.annotations), "1 14 -128");
    for (const std::string subtype : {"32768", "-32769", "99999999999999999999", "1.5", "+1"}) {
        EXPECT_EQ(CsvFailure(csv(subtype)), "x.csv: line 2: has \"" + subtype +
                                                "\" where a subtype from -32768 to 32767 belongs.");
    }
}

// ---- Files and folders --------------------------------------------------------------------------

TEST_F(FilesTest, RateIsThatOfTheHeaderBesideTheFileElseOfTheOtherSides) {
    const std::string reference = m_folder.Write("r/100.atr", Word(1, 250) + kEnd);
    const std::string test = m_folder.Write("t/100.det", Word(1, 250) + kEnd);
    const std::string stranger = m_folder.Write("t/200.det", Word(1, 250) + kEnd);
    m_folder.Write("r/100.hea", "100 2 250\n");
    EXPECT_EQ(Read(test, reference).unit, Rational(1, 250));
    EXPECT_EQ(m_remarks.size(), 1U);
    EXPECT_EQ(FailureOf([&] { Read(stranger, reference); }),
              stranger + ": has no header beside it, so its sampling frequency is not known.");
    m_folder.Write("t/100.hea", "100 2 500\n");
    EXPECT_EQ(Read(test, reference).unit, Rational(1, 500));
    EXPECT_EQ(m_remarks.size(), 1U);
    // A rate that the file itself states takes precedence.
    m_folder.Write("t/100.det", Word(22, 0) + Text("## time resolution: 1000") + kEnd);
    EXPECT_EQ(Read(test, reference).unit, Rational(1, 1000));
}

TEST_F(FilesTest, AnnotationsOutOfOrderArePutInOrder) {
    const std::string path = m_folder.Write("x.atr", Word(1, 9) + Skip(-5) + Word(5, 0) + kEnd);
    m_folder.Write("x.hea", "x 1 1\n");
    EXPECT_EQ(Shown(Read(path, path).annotations), "4 5 0, 9 1 0");
}

TEST_F(FilesTest, TextIsKnownByItsSuffix) {
    for (const char* name : {"x.csv", "x.CSV", "x.Csv"}) {
        const std::string path = m_folder.Write(name, "seconds,code\n7,N\n");
        EXPECT_EQ(Shown(Read(path, path).annotations), "7 1 0") << name;
    }
}

// A list's suffix may have dots of its own.
TEST_F(FilesTest, TheHeaderIsThatOfTheNameWithoutTheSuffix) {
    EXPECT_EQ(HeaderOf("r.x/100.ref.atr", "ref.atr"), "r.x/100.hea");
    EXPECT_EQ(HeaderOf("r.x/100.ref.atr", ".ref.atr"), "r.x/100.hea");
    EXPECT_EQ(HeaderOf("r.x/100.ref.atr", "atr"), "r.x/100.ref.hea");
    EXPECT_EQ(HeaderOf("r.x/100.det", "ref.atr"), "r.x/100.hea");
    EXPECT_EQ(HeaderOf("r.x/100", ""), "r.x/100.hea");
    EXPECT_EQ(HeaderOf("r.x/.atr", "atr"), "r.x/.atr.hea");
    EXPECT_EQ(FindInputs({"", "r/100.ref.atr", "t/100.atr"}, "ref.atr", "atr", m_remarks)[0].record,
              "100");
}

TEST_F(FilesTest, OtherFilesOfARecordAreRefused) {
    const std::string header = m_folder.Write("x.hea", "x 1 250\n");
    const std::string signals = m_folder.Write("x.DAT", Word(1, 9) + kEnd);
    EXPECT_EQ(FailureOf([&] { Read(header, header); }),
              header + ": is a record's header and holds no annotations.");
    EXPECT_EQ(FailureOf([&] { Read(signals, signals); }),
              signals + ": holds a record's signals and no annotations.");
}

TEST_F(FilesTest, FilesFarLargerThanAnyListAreRefused) {
    const std::string path = m_folder.Write("x.csv", "seconds,code\n");
    std::filesystem::resize_file(path, 268'435'457);
    EXPECT_EQ(FailureOf([&] { Read(path, path); }),
              path + ": has 268435457 bytes, and lists are read up to 268435456.");
}

// Both sides may be one file.
TEST_F(FilesTest, ARemarkIsMadeOnce) {
    const std::string path = m_folder.Write("x.csv", "seconds,code\n7,odd\n");
    Read(path, path);
    Read(path, path);
    ASSERT_EQ(m_remarks.size(), 1U);
    EXPECT_EQ(m_remarks[0], path + ": its one code is unknown, that in line 2: \"odd\"");
}

TEST_F(FilesTest, RecordsOfFoldersAreMatchedByName) {
    m_folder.Write("r/b.atr", "");
    m_folder.Write("r/a.atr", "");
    m_folder.Write("r/a.hea", "");
    m_folder.Write("r/.atr", "");
    std::filesystem::create_directories(m_folder / "r/folder.atr");
    m_folder.Write("t/a.det", "");
    m_folder.Write("t/b.det", "");
    m_folder.Write("t/c.det", "");
    const auto inputs = FindInputs({"", m_folder / "r", m_folder / "t"}, "atr", ".det", m_remarks);
    ASSERT_EQ(inputs.size(), 2U);
    EXPECT_EQ(inputs[0].record, "a");
    EXPECT_EQ(inputs[1].record, "b");
    EXPECT_EQ(inputs[1].reference, m_folder / "r/b.atr");
    EXPECT_EQ(inputs[1].test, m_folder / "t/b.det");
    ASSERT_EQ(m_remarks.size(), 1U);
    EXPECT_EQ(m_remarks[0], m_folder / "t/c.det" + ": has no reference and is left out");
}

TEST_F(FilesTest, AMissingPartnerAndAnEmptyFolderAreRefused) {
    const std::string reference = m_folder.Write("r/a.atr", "");
    m_folder.Write("t/b.atr", "");
    const auto failure = [&](const std::string& suffix) {
        return FailureOf([&] {
            FindInputs({"", m_folder / "r", m_folder / "t"}, suffix, "atr", m_remarks);
        });
    };
    EXPECT_EQ(failure("atr"), reference + ": has no counterpart in " + m_folder / "t" + ".");
    EXPECT_EQ(failure("qrs"), m_folder / "r" + ": holds no file with the suffix qrs.");
}

TEST_F(FilesTest, AFolderAndAFileAreNoPair) {
    const std::string file = m_folder.Write("a.csv", "seconds,code\n");
    const auto failure = [&](const std::string& reference, const std::string& test) {
        return FailureOf([&] { FindInputs({"", reference, test}, "atr", "atr", m_remarks); });
    };
    EXPECT_EQ(failure(m_folder.Path(), file),
              file + ": is not a folder, but " + m_folder.Path() + " is.");
    EXPECT_EQ(failure(file, m_folder.Path()),
              file + ": is not a folder, but " + m_folder.Path() + " is.");
    EXPECT_EQ(failure(m_folder.Path(), m_folder / "none"), m_folder / "none" + ": does not exist.");
    EXPECT_EQ(failure(m_folder / "none", m_folder.Path()), m_folder / "none" + ": does not exist.");
    EXPECT_EQ(FailureOf([&] { Read(m_folder.Path(), file); }),
              m_folder.Path() + ": is a directory.");
    EXPECT_EQ(FailureOf([&] { Read(m_folder / "none.csv", file); }),
              m_folder / "none.csv" + ": cannot be read: No such file or directory.");
}
