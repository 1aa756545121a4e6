#include "CommandLine.h"
#include "ScoreFixture.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

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
