#include "CommandLine.h"
#include "ScoreFixture.h"
#include "tests/support/PublicRecord.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

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
