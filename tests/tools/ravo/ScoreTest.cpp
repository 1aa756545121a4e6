#include "CommandLine.h"

#include "tests/support/PublicRecord.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace {

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

const std::string kHeader = "seconds,code\n";

class ScoreTest : public testing::Test {
  protected:
    // 301 N, 302 V, 303 V, 304 S against 301 N, 302 V, 303 N and 310 N: Nn, Vv, Vn, So and On.
    void WriteLists() {
        m_reference = m_directory.Write("r/a.csv", kHeader + "301,N\n302,V\n303,V\n304,S\n");
        m_test = m_directory.Write("t/a.csv", kHeader + "301.1,N\n302,V\n303,N\n310,N\n");
    }

    Scratch m_directory;
    std::string m_reference;
    std::string m_test;
};

} // namespace

// QRS: 3 pairs, So missed, On false: Se 3/4, +P 3/4. VEB: Vv 1, Vn 1: Se 1/2, +P 1/1; FPR 0 of Nn
// and On. SVEB: So: Se 0/1, +P 0/0, FPR 0 of Nn, Vv, Vn and On.
TEST_F(ScoreTest, JsonHasTheFiguresOfARecord) {
    WriteLists();
    const Result result = Ravo({"score", m_reference, m_test, "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out.rfind(R"({"format":1,"learning":300,"window":150,)", 0), 0U) << result.out;
    EXPECT_TRUE(Contains(result.out, R"("records":[{"record":"a","matrix":{"Nn":1,"Ns":0,)"));
    // Once for the record and once for the gross figures.
    EXPECT_EQ(Count(result.out, R"("qrs":{"tp":3,"fn":1,"fp":1,"se":0.75,"ppv":0.75})"), 2U);
    EXPECT_EQ(Count(result.out, R"("veb":{"tp":1,"fn":1,"fp":0,"tn":2,"se":0.5,"ppv":1,"fpr":0})"),
              2U);
    EXPECT_EQ(
        Count(result.out, R"("sveb":{"tp":0,"fn":1,"fp":0,"tn":4,"se":0,"ppv":null,"fpr":0})"), 2U);
    EXPECT_EQ(Count(result.out, R"("couplet":{"reference":1,"matchedReference":0,"test":0,)"
                                R"("matchedTest":0,"se":0,"ppv":null})"),
              2U);
    EXPECT_TRUE(Contains(result.out, R"("average":{"qrs":{"se":0.75,"ppv":0.75},"veb":{"se":0.5,)"
                                     R"("ppv":1,"fpr":0},"sveb":{"se":0,"ppv":null,"fpr":0},)"));
    EXPECT_EQ(Count(result.out, R"("vf":{"se":null,"ppv":null,"durationSe":null,)"
                                R"("durationPpv":null})"),
              1U);
}

TEST_F(ScoreTest, TextHasTheMatrixAndALineForEachRecord) {
    WriteLists();
    const Result result = Ravo({"score", m_reference, m_test});
    EXPECT_EQ(result.status, 0);
    const auto begin = result.out.find("Beats of record");
    ASSERT_NE(begin, std::string::npos);
    EXPECT_EQ(result.out.substr(begin, result.out.find("\nRuns") - begin),
              "Beats of record a: rows by the reference, columns by the test\n"
              "   n  s  v  f  q  o  x\n"
              "N  1  0  0  0  0  0  0\n"
              "S  0  0  0  0  0  1  0\n"
              "V  1  0  1  0  0  0  0\n"
              "F  0  0  0  0  0  0  0\n"
              "Q  0  0  0  0  0  0  0\n"
              "O  1  0  0  0  0\n"
              "X  0  0  0  0  0\n"
              "\n"
              "Beat detection, per cent\n"
              "record   QRS Se  QRS +P  VEB Se  VEB +P  VEB FPR  SVEB Se  SVEB +P  SVEB FPR\n"
              "a         75.00   75.00   50.00  100.00     0.00     0.00        -      0.00\n"
              "gross     75.00   75.00   50.00  100.00     0.00     0.00        -      0.00\n"
              "average   75.00   75.00   50.00  100.00     0.00     0.00        -      0.00\n");
}

// The second record has one pair: gross Se (3 + 1) / (4 + 1), average (3/4 + 1/1) / 2.
TEST_F(ScoreTest, FoldersAreScoredTogether) {
    WriteLists();
    m_directory.Write("r/b.csv", kHeader + "400,N\n");
    m_directory.Write("t/b.csv", kHeader + "400,N\n");
    m_directory.Write("t/c.csv", kHeader);
    const Result result = Ravo({"score", m_directory / "r", m_directory / "t", "--json",
                                "--reference-suffix", "csv", "--test-suffix", "csv"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "ravo: warning: " + m_directory / "t/c.csv" + ": has no reference and is left out\n");
    EXPECT_TRUE(Contains(result.out, R"("gross":{"matrix":{"Nn":2,)"));
    EXPECT_TRUE(Contains(result.out, R"("qrs":{"tp":4,"fn":1,"fp":1,"se":0.8,"ppv":0.8})"));
    EXPECT_TRUE(Contains(result.out, R"("average":{"qrs":{"se":0.875,"ppv":0.875})"));
}

// 301.1 is 100 ms from its beat, beyond a window of 99.9 ms; half a second later all but 310 are
// beyond any.
TEST_F(ScoreTest, OptionsAreTakenExactly) {
    WriteLists();
    const auto detected = [&](std::vector<std::string> options) {
        options.insert(options.begin(), {"score", m_reference, m_test, "--json"});
        const std::string out = Ravo(options).out;
        const auto at = out.find("\"tp\":");
        return at == std::string::npos ? "" : out.substr(at + 5, out.find(',', at) - at - 5);
    };
    EXPECT_EQ(detected({"--window", "100"}), "3");
    EXPECT_EQ(detected({"--window", "99.9"}), "2");
    EXPECT_EQ(detected({"--learning", "301"}), "2");
    EXPECT_EQ(detected({"--learning", "300.9999999"}), "3");
    EXPECT_EQ(detected({"--offset", "0.5"}), "0");
    EXPECT_EQ(detected({"--offset", "-0.25"}), "1");   // 301.1 becomes 300.85
    EXPECT_EQ(detected({"--clock-ppm", "1000"}), "0"); // 302 becomes 302.302
}

TEST_F(ScoreTest, UnusableFilesAreNamedAndEndWithStatus2) {
    WriteLists();
    const std::string cut = m_directory.Write("cut.atr", "\x12\x04\x01");
    m_directory.Write("cut.hea", "cut 1 250\n");
    const std::string bare = m_directory.Write("bare.csv", "301,N\n");
    m_directory.Write("empty/x.txt", "");
    const auto refuses = [&](const std::string& reference, const std::string& test,
                             const std::string& sentence) {
        const Result result = Ravo({"score", reference, test, "--json"});
        EXPECT_EQ(result.status, 2) << sentence;
        EXPECT_EQ(result.out.rfind("{\"error\":{\"status\":2,\"where\":\"", 0), 0U) << result.out;
        EXPECT_EQ(result.err.substr(0, result.err.find('\n')), "ravo: " + sentence);
    };
    refuses(m_reference, cut, cut + ": ends after 3 bytes, inside a word that begins at byte 2.");
    refuses(bare, m_test, bare + ": line 1: is not the header seconds,code.");
    refuses(m_directory / "empty", m_directory / "t",
            m_directory / "empty" + ": holds no file with the suffix atr.");
    refuses(m_directory / "none.atr", m_test,
            m_directory / "none.atr" + ": cannot be read: No such file or directory.");
}

// "normal" and "1" are not symbols, so that every beat counts as missed, and both outputs say so.
TEST_F(ScoreTest, UnknownCodesAreWarnedOf) {
    WriteLists();
    const std::string test = m_directory.Write("u.csv", kHeader + "301,normal\n302,1\n");
    const std::string unknown =
        test + ": none of its 2 codes is known; the first, from line 2 on: ";
    const std::string none = test + ": holds no beat, so every beat of the reference is missed";
    const Result result =
        Ravo({"score", m_reference, test, "--json", "--report", m_directory / "r.html"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "ravo: warning: " + unknown + "\"normal\", \"1\"\nravo: warning: " + none + "\n");
    EXPECT_TRUE(Contains(result.out,
                         "\"warnings\":[\"" + unknown + R"(\"normal\", \"1\"",")" + none + "\"]"))
        << result.out;
    EXPECT_TRUE(Contains(ReadFile(m_directory / "r.html"), "<p>Warning: " + none + "</p>"));
}

TEST_F(ScoreTest, AnEmptyReferenceIsRefusedAndAnEmptyTestWarnedOf) {
    WriteLists();
    const std::string empty = m_directory.Write("empty.atr", "");
    m_directory.Write("empty.hea", "empty 1 250\n");
    for (const std::string& reference : {m_directory.Write("empty.csv", ""), empty}) {
        const Result refused = Ravo({"score", reference, m_test});
        EXPECT_EQ(refused.status, 2);
        EXPECT_TRUE(Contains(refused.err, "ravo: " + reference +
                                              ": is empty, so there is nothing to compare with.\n"))
            << refused.err;
    }
    const Result result = Ravo({"score", m_reference, empty, "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "ravo: warning: " + empty + ": is empty\nravo: warning: " + empty +
                              ": holds no beat, so every beat of the reference is missed\n");
    EXPECT_TRUE(Contains(result.out, R"("qrs":{"tp":0,"fn":4,"fp":0,"se":0,"ppv":null})"));
    // A reference that contains only remarks is one without beats.
    const std::string remarks = m_directory.Write("remarks.csv", kHeader + "1,+\n");
    EXPECT_EQ(Ravo({"score", remarks, m_test}).err,
              "ravo: warning: " + remarks +
                  ": holds no beat, so every beat of the test is false\n");
}

// All four beats of the test are false: +P 0/4, and Se 0/0 is undefined.
TEST_F(ScoreTest, AReferenceWithoutAnnotationsIsScoredAndWarnedOf) {
    WriteLists();
    m_directory.Write("end.hea", "end 1 250\n");
    for (const std::string& reference : {m_directory.Write("bare.csv", kHeader),
                                         m_directory.Write("end.atr", std::string(2, '\0'))}) {
        const Result result = Ravo({"score", reference, m_test, "--json"});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "ravo: warning: " + reference +
                                  ": holds no beat, so every beat of the test is false\n");
        EXPECT_EQ(Count(result.out, R"("qrs":{"tp":0,"fn":0,"fp":4,"se":null,"ppv":0})"), 2U);
    }
}

// 100.hea is the header of 100.ref.atr, and of 100.atr on the other side too.
TEST_F(ScoreTest, SuffixesMayHaveDots) {
    m_directory.Write("r/100.hea", "100 1 250\n");
    const std::string list("\x01\x04\0", 4); // N at sample 1
    m_directory.Write("r/100.ref.atr", list);
    m_directory.Write("t/100.atr", list);
    const Result result = Ravo({"score", m_directory / "r", m_directory / "t", "--learning", "0",
                                "--reference-suffix", "ref.atr", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(Contains(result.out, R"("records":[{"record":"100","matrix":{"Nn":1,)"))
        << result.out;
    EXPECT_EQ(result.err, "ravo: warning: " + m_directory / "t/100.atr" +
                              ": has no header beside it; the sampling frequency is taken from " +
                              m_directory / "r/100.hea\n");
}

TEST_F(ScoreTest, WrongOptionsAreRefused) {
    WriteLists();
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--window", "-1"},
                                                  {"--window", "wide"},
                                                  {"--window", "1e-36"},
                                                  {"--learning", "nan"},
                                                  {"--offset", "1e99"},
                                                  {"--clock-ppm", "1000000"},
                                                  {"--align", "--offset", "1"},
                                                  {"--report", "report.txt"},
                                                  {"--report", ""},
                                                  {"--strips", ""},
                                                  {"--max-strips", "-1"}}) {
        std::vector<std::string> arguments = {"score", m_reference, m_test};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        const Result result = Ravo(arguments);
        EXPECT_EQ(result.status, 1) << wrong[0] << " " << wrong.back();
        EXPECT_EQ(result.out, "");
    }
}

// In seconds, a window has three decimals more than the given milliseconds.
TEST_F(ScoreTest, DigitsThatAreTooManyAreRefusedByTheirOption) {
    WriteLists();
    for (const auto& [option, value] : {std::pair{"--window", "1e-36"},
                                        {"--learning", "1e-38"},
                                        {"--offset", "1e-99"},
                                        {"--clock-ppm", "1e-38"}}) {
        const Result result = Ravo({"score", m_reference, m_test, option, value});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err.substr(0, result.err.find('\n')),
                  std::string("ravo: ") + option + " " + value +
                      ": has more digits than are kept exactly.");
    }
}

TEST_F(ScoreTest, OptionsThatExcludeEachOtherAreNamedOnce) {
    WriteLists();
    const std::string error = Ravo({"score", m_reference, m_test, "--align", "--offset", "1"}).err;
    EXPECT_EQ(error.substr(0, error.find('\n')),
              "ravo score: --offset: cannot be combined with --align.");
}

TEST_F(ScoreTest, ListsThatDoNotResembleEachOtherAreNotAligned) {
    WriteLists();
    const Result result = Ravo({"score", m_reference, m_test, "--align"});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(Contains(result.err, "does not resemble")) << result.err;
}

// ---- Reports ------------------------------------------------------------------------------------

TEST_F(ScoreTest, ReportsShowTheSameFigures) {
    WriteLists();
    const auto report = [&](const std::string& name) {
        EXPECT_EQ(Ravo({"score", m_reference, m_test, "--report", m_directory / name}).status, 0);
        return ReadFile(m_directory / name);
    };
    const std::string html = report("r.html");
    EXPECT_TRUE(Contains(html, "<tr><td>a</td><td>75.00</td><td>75.00</td><td>50.00</td>"));
    EXPECT_FALSE(Contains(html, "<script") || Contains(html, "http") || Contains(html, "src="));
    EXPECT_EQ(report("r.pdf").substr(0, 5), "%PDF-");
    const std::string csv = report("r.csv");
    EXPECT_EQ(csv.substr(0, 13), "record,Nn,Ns,");
    EXPECT_TRUE(Contains(csv, "\na,1,0,"));
    EXPECT_EQ(Count(csv, "\n"), 4U); // header, a, gross, average
    const auto commas = [&](std::size_t from) {
        return Count(csv.substr(from, csv.find('\n', from) - from), ",");
    };
    EXPECT_EQ(commas(0), commas(csv.find("\naverage") + 1));
}

TEST_F(ScoreTest, EveryReportStatesItsConditions) {
    WriteLists();
    const std::string version = Ravo({"--version"}).out.substr(5, 7);
    const auto score = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"score", m_reference, m_test, "--learning", "299.5", "--window",
                                   "149", "--offset", "-0.0625", "--clock-ppm", "12.5"});
        const Result result = Ravo(more);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out;
    };
    const std::vector<std::string> sentences = {
        "Reference: " + m_reference,
        "Test: " + m_test,
        "Offset -0.0625 s and clock 12.5 ppm, as given: a test time t counts as t + t x clock / "
        "10^6 "
        "+ offset.",
        "Beats up to 299.5 s are the learning period and are left out.",
        "Beats are pairs when they are at most 149 ms apart.",
        "Made by ravo " + version + ", by ANSI/AAMI EC57 and IEC 60601-2-47:2012."};
    const std::string text = score({"--report", m_directory / "r.html"});
    const std::string html = ReadFile(m_directory / "r.html");
    for (const std::string& sentence : sentences) {
        EXPECT_TRUE(Contains(text, sentence + "\n")) << text;
        EXPECT_TRUE(Contains(html, "<p>" + sentence + "</p>")) << html;
    }
    EXPECT_TRUE(Contains(score({"--json"}),
                         R"({"format":1,"learning":299.5,"window":149,"align":false,)"
                         R"("offset":-0.0625,"clockPpm":12.5,"reference":")" +
                             m_reference + R"(","test":")" + m_test +
                             R"(","referenceSuffix":"atr","testSuffix":"atr","version":")" +
                             version + R"(","warnings":[],"records":)"));
    score({"--report", m_directory / "r.csv"});
    const std::string csv = ReadFile(m_directory / "r.csv");
    EXPECT_EQ(Count(csv, "," + m_reference + "," + m_test +
                             ",atr,atr,299.5,149,false,-0.0625,12.5,,,,,,," + version + "\n"),
              3U) // a, gross, average
        << csv;
    EXPECT_TRUE(Contains(csv, ",reference,test,reference_suffix,test_suffix,learning,window,align,"
                              "offset,clock_ppm,offset_error,placing_error,clock_ppm_error,pairs,"
                              "agreement,next_best_agreement,version\n"));
}

// 200 beats at uneven intervals; the test's clock is 12.5 s behind.
TEST_F(ScoreTest, EveryReportStatesTheClockThatWasFound) {
    std::string reference = kHeader;
    std::string test = kHeader;
    int time = 20'000'000; // microseconds
    for (int i = 0; i < 200; ++i) {
        time += 800'000 + i * i * i * 37 % 211 * 2'000;
        reference += std::to_string(time) + "e-6,N\n";
        test += std::to_string(time - 12'500'000) + "e-6,N\n";
    }
    const std::string first = m_directory.Write("a.csv", reference);
    const std::string second = m_directory.Write("b.csv", test);
    const auto score = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"score", first, second, "--learning", "0", "--align"});
        const Result result = Ravo(more);
        EXPECT_EQ(result.status, 0) << result.err;
        return result;
    };
    const Result plain = score({"--report", m_directory / "r.html"});
    const std::string found =
        "ravo: a: offset 12.5000 s (standard error 0.0 ms at second 0, 0.0 ms "
        "at the beats), clock 0.00 ppm (0.00 ppm); 100 % of the beats agree ";
    EXPECT_EQ(plain.err.substr(0, found.size()), found) << plain.err;
    const std::string sentence =
        "Offset and clock of the test were found from the lists, for each record by itself.";
    EXPECT_TRUE(Contains(plain.out, sentence)) << plain.out;
    EXPECT_TRUE(Contains(plain.out, "a        12.5000       0.0       0.0       0.00       0.00    "
                                    "200    100"))
        << plain.out;
    const std::string html = ReadFile(m_directory / "r.html");
    EXPECT_TRUE(Contains(html, sentence));
    EXPECT_TRUE(Contains(html, "<tr><td>a</td><td>12.5000</td><td>0.0</td><td>0.0</td><td>0.00</td>"
                               "<td>0.00</td><td>200</td><td>100</td>"))
        << html;
    const std::string json = score({"--json"}).out;
    EXPECT_TRUE(Contains(json, R"("align":true,"offset":null,"clockPpm":null,)")) << json;
    EXPECT_TRUE(Contains(json, R"("offset":12.5,"clockPpm":0,"alignment":{"offset":12.5,)"))
        << json;
    score({"--report", m_directory / "r.csv"});
    const std::string csv = ReadFile(m_directory / "r.csv");
    EXPECT_EQ(Count(csv, ",true,12.5,0,"), 1U) << csv;  // of the record
    EXPECT_EQ(Count(csv, ",true,,,,,,,,,"), 2U) << csv; // gross and average have no clock
}

TEST_F(ScoreTest, FoldersStateTheirSuffixes) {
    WriteLists();
    const Result result = Ravo({"score", m_directory / "r", m_directory / "t", "--reference-suffix",
                                "csv", "--test-suffix", "csv"});
    EXPECT_TRUE(Contains(result.out, "Reference: " + m_directory / "r" +
                                         " (files with the suffix csv)\n"
                                         "Test: " +
                                         m_directory / "t" + " (files with the suffix csv)\n"))
        << result.out;
}

// A page is 297 mm wide, which are 841.89 points, with margins of 15 mm: nothing may extend beyond
// 799.4 points. The name is wider than the page; a table shows its two ends.
TEST_F(ScoreTest, LongNamesStayOnThePage) {
    if (!std::filesystem::exists("/usr/bin/pdftotext")) {
        GTEST_SKIP() << "pdftotext is not installed";
    }
    const std::string list = kHeader + "301,N\n";
    const std::string name = "first" + std::string(200, 'w') + "last";
    const std::string reference = m_directory.Write(name + ".csv", list);
    const std::string pdf = m_directory / "r.pdf";
    ASSERT_EQ(Ravo({"score", reference, m_directory.Write("t.csv", list), "--report", pdf}).status,
              0);
    const std::string text = ByShell("/usr/bin/pdftotext", {"-bbox", pdf, "-"}, "").out;
    std::size_t words = 0;
    for (auto at = text.find("xMax=\""); at != std::string::npos;
         at = text.find("xMax=\"", at + 1)) {
        EXPECT_LE(std::stod(text.substr(at + 6)), 799.5);
        ++words;
    }
    EXPECT_GT(words, 200U);
    EXPECT_EQ(Count(text, "...w"), 4U); // of each table
    EXPECT_EQ(Count(text, "wlast</word>"), 4U) << text;
}

// The first column is as wide as its widest word, which is "average" in the four tables of records.
TEST_F(ScoreTest, NamesThatFitOnThePageAreShownWhole) {
    if (!std::filesystem::exists("/usr/bin/pdftotext")) {
        GTEST_SKIP() << "pdftotext is not installed";
    }
    WriteLists();
    const std::string pdf = m_directory / "r.pdf";
    ASSERT_EQ(Ravo({"score", m_reference, m_test, "--report", pdf}).status, 0);
    const std::string text = ByShell("/usr/bin/pdftotext", {"-bbox", pdf, "-"}, "").out;
    EXPECT_EQ(Count(text, ">average</word>"), 4U) << text;
    EXPECT_EQ(Count(text, "...ge"), 0U);
}

// Control characters and bytes that are not UTF-8 do not reach a terminal, a table or a page.
TEST_F(ScoreTest, NamesAreShownWithoutControlCharacters) {
    const std::string list = kHeader + "301,N\n";
    const std::string reference = m_directory.Write("x\x1B[31m\xE9.csv", list);
    const std::string test = m_directory.Write("t.csv", list);
    const Result result = Ravo({"score", reference, test, "--report", m_directory / "r.csv"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string csv = ReadFile(m_directory / "r.csv");
    for (const std::string& text : {result.out, csv}) {
        EXPECT_FALSE(Contains(text, "\x1B")) << text;
        EXPECT_TRUE(Contains(text, "x?[31m\xC3\xA9")) << text;
    }
    EXPECT_TRUE(Contains(Ravo({"score", reference, test, "--json"}).out, R"("record":"x\u001b[31m)"
                                                                         "\xC3\xA9\""));
}

TEST_F(ScoreTest, AReportThatCannotBeWrittenEndsWithStatus6) {
    WriteLists();
    for (const char* name : {"none/r.html", "none/r.pdf", "none/r.csv"}) {
        EXPECT_EQ(Ravo({"score", m_reference, m_test, "--report", m_directory / name}).status, 6);
    }
}

TEST_F(ScoreTest, AReportOnAFullDiskEndsWithStatus6) {
    if (!std::filesystem::exists("/dev/full")) {
        GTEST_SKIP() << "/dev/full does not exist";
    }
    WriteLists();
    for (const char* name : {"r.html", "r.pdf", "r.csv"}) {
        const std::string report = m_directory / name;
        std::filesystem::create_symlink("/dev/full", report);
        const Result result = Ravo({"score", m_reference, m_test, "--report", report});
        EXPECT_EQ(result.status, 6) << name;
        EXPECT_EQ(result.out, "") << name;
        EXPECT_EQ(result.err,
                  "ravo: " + report + ": cannot be written: No space left on device.\n");
    }
}

TEST_F(ScoreTest, AFailedReportIsTheOnlyDocument) {
    WriteLists();
    const Result result =
        Ravo({"score", m_reference, m_test, "--json", "--report", m_directory / "none/r.html"});
    EXPECT_EQ(result.status, 6);
    EXPECT_EQ(result.out.rfind("{\"error\":", 0), 0U) << result.out;
}

TEST_F(ScoreTest, AReportDoesNotTakeThePlaceOfAList) {
    WriteLists();
    const std::string before = ReadFile(m_test);
    const Result result = Ravo({"score", m_reference, m_test, "--report", m_test});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(Contains(result.err, "is one of the files that are compared")) << result.err;
    EXPECT_EQ(ReadFile(m_test), before);
}

// ---- Strips -------------------------------------------------------------------------------------

// Vn at 303, So at 304 and On at 310: the list has all three, the pictures stop at two.
TEST_F(ScoreTest, StripsShowDisagreementsAndListAllOfThem) {
    WriteLists();
    const std::string strips = m_directory / "strips";
    const Result result =
        Ravo({"score", m_reference, m_test, "--strips", strips, "--max-strips", "2"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(ReadFile(strips + "/strips.jsonl"),
              R"({"record":"a","cell":"Vn","reference":303,"test":303,"strip":"a_0001_Vn.png"})"
              "\n"
              R"({"record":"a","cell":"So","reference":304,"test":null,"strip":"a_0002_So.png"})"
              "\n"
              R"({"record":"a","cell":"On","reference":null,"test":310,"strip":null})"
              "\n");
    EXPECT_TRUE(std::filesystem::exists(strips + "/a_0002_So.png"));
    EXPECT_TRUE(Contains(result.err, "a.hea is missing, so strips show no signals"));
    EXPECT_TRUE(Contains(result.err, "1 more disagreements are listed but not drawn"));
}

// A file's name has at most 255 bytes: the list's has 251 before its suffix, of which 200 stay; the
// 200th begins a character of two, so that 199 do.
TEST_F(ScoreTest, ALongNameIsCutInThatOfAStrip) {
    const std::string begin(199, 'w');
    const std::string reference =
        m_directory.Write(begin + "\xC3\xA9" + std::string(50, 'x') + ".csv", kHeader + "301,N\n");
    const std::string strips = m_directory / "strips";
    const Result result = Ravo(
        {"score", reference, m_directory.Write("t.csv", kHeader + "301,V\n"), "--strips", strips});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(std::filesystem::exists(strips + "/" + begin + "~1_0001_Nv.png"));
    EXPECT_TRUE(
        Contains(ReadFile(strips + "/strips.jsonl"), "\"strip\":\"" + begin + "~1_0001_Nv.png\""));
}

// 6 s at 25 mm/s between margins of 16 mm, 8 dots a millimetre. The disagreement at 310 s is in the
// middle of its strip, 75 mm from the left edge; its mark is at the lower edge, in red.
TEST_F(ScoreTest, AStripHasItsDisagreementInTheMiddle) {
    WriteLists();
    const std::string strips = m_directory / "strips";
    ASSERT_EQ(Ravo({"score", m_reference, m_test, "--strips", strips}).status, 0);
    cairo_surface_t* image =
        cairo_image_surface_create_from_png((strips + "/a_0003_On.png").c_str());
    ASSERT_EQ(cairo_surface_status(image), CAIRO_STATUS_SUCCESS);
    const int width = cairo_image_surface_get_width(image);
    EXPECT_EQ(width, (150 + 2 * 16) * 8);
    const int height = cairo_image_surface_get_height(image);
    EXPECT_EQ(height, (20 + 10 + 35 + 10 + 14) * 8);
    const auto isRed = [&](double x, double y) {
        const unsigned char* dot =
            cairo_image_surface_get_data(image) +
            static_cast<std::ptrdiff_t>(y * 8) * cairo_image_surface_get_stride(image) +
            static_cast<std::ptrdiff_t>(x * 8) * 4;
        return dot[2] > 150 && dot[1] < 90 && dot[0] < 90;
    };
    EXPECT_TRUE(isRed(16 + 75, 20 + 55 - 7.5));
    EXPECT_FALSE(isRed(16 + 75 + 5, 20 + 55 - 7.5));
    EXPECT_FALSE(isRed(16 + 75, 20 + 7.5)); // the reference has nothing there
    cairo_surface_destroy(image);
}

// ---- A real record ------------------------------------------------------------------------------

// Of record 100 after its first 5 minutes: 1902 beats, 1872 N, 29 A and 1 V by its own annotations.
TEST_F(ScoreTest, ARealRecordAgreesWithItself) {
    const std::string annotations = PublicRecord("100.atr");
    if (annotations.empty()) {
        GTEST_SKIP() << "record 100 is missing";
    }
    const Result result = Ravo({"score", annotations, annotations, "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Count(result.out, R"("qrs":{"tp":1902,"fn":0,"fp":0,"se":1,"ppv":1})"), 2U);
    EXPECT_EQ(Count(result.out, R"("sveb":{"tp":29,"fn":0,"fp":0,"tn":1873,)"), 2U);
    const Result aligned = Ravo({"score", annotations, annotations, "--align"});
    EXPECT_EQ(aligned.status, 0);
    EXPECT_TRUE(Contains(aligned.err, "100: offset 0.0000 s")) << aligned.err;
}
