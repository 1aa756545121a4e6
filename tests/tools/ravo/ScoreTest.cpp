#include "CommandLine.h"

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

    Directory m_directory;
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
    EXPECT_EQ(
        result.out.rfind(R"({"format":1,"learning":300,"window":150,"records":[{"record":"a",)"
                         R"("matrix":{"Nn":1,"Ns":0,)",
                         0),
        0U)
        << result.out;
    // Once of the record and once gross.
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
    EXPECT_EQ(result.out.substr(0, result.out.find("\nRuns")),
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

TEST_F(ScoreTest, WrongOptionsAreRefused) {
    WriteLists();
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--window", "-1"},
                                                  {"--window", "wide"},
                                                  {"--learning", "nan"},
                                                  {"--offset", "1e99"},
                                                  {"--clock-ppm", "1000000"},
                                                  {"--align", "--offset", "1"},
                                                  {"--report", "report.txt"},
                                                  {"--max-strips", "-1"}}) {
        std::vector<std::string> arguments = {"score", m_reference, m_test};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        const Result result = Ravo(arguments);
        EXPECT_EQ(result.status, 1) << wrong[0] << " " << wrong.back();
        EXPECT_EQ(result.out, "");
    }
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

TEST_F(ScoreTest, AReportThatCannotBeWrittenEndsWithStatus6) {
    WriteLists();
    for (const char* name : {"none/r.html", "none/r.pdf", "none/r.csv"}) {
        EXPECT_EQ(Ravo({"score", m_reference, m_test, "--report", m_directory / name}).status, 6);
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
    const std::string annotations = TestData("100.atr");
    if (annotations.empty()) {
        GTEST_SKIP() << "record 100 is not there";
    }
    const Result result = Ravo({"score", annotations, annotations, "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Count(result.out, R"("qrs":{"tp":1902,"fn":0,"fp":0,"se":1,"ppv":1})"), 2U);
    EXPECT_EQ(Count(result.out, R"("sveb":{"tp":29,"fn":0,"fp":0,"tn":1873,)"), 2U);
    const Result aligned = Ravo({"score", annotations, annotations, "--align"});
    EXPECT_EQ(aligned.status, 0);
    EXPECT_TRUE(Contains(aligned.err, "100: offset 0.0000 s")) << aligned.err;
}
