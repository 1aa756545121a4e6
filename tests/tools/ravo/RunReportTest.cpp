#include "CommandLine.h"
#include "RunFixture.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The words of a text, separated by single blanks.
std::string Words(const std::string& text) {
    std::istringstream words(text);
    std::string spaced;
    for (std::string word; words >> word;) {
        spaced += (spaced.empty() ? "" : " ") + word;
    }
    return spaced;
}

std::string WithoutTags(const std::string& html) {
    std::string text;
    bool isInside = false;
    for (const char c : html) {
        isInside = c == '<' || (isInside && c != '>');
        text += isInside || c == '>' ? ' ' : c;
    }
    return Words(text);
}

} // namespace

TEST_F(RunTest, AllReportsCarryTheSameFigures) {
    WriteRecord();
    WritePlan(std::string(kRecordStep) +
              "[[step]]\nname = \"q\"\nask = \"How <much>?\"\nunit = \"mV\"\nmin = 0.9\n"
              "[[step]]\nname = \"stand\"\nmaterial = \"builtin:CAL20000\"\nseconds = 2\n");
    m_directory.Write("answers.toml", "q = 0.8125\n");
    emulator::Simulator simulator(Unit());
    EXPECT_EQ(Run({"--answers", m_directory / "answers.toml"}).status, 5);
    const json material = Step("r");
    std::vector<std::string> figures = {"1250 of 1250 frames",
                                        "5 s;",
                                        "0.8125 mV",
                                        "at least 0.9 mV",
                                        "failed: 2 of 3 steps passed, 1 failed",
                                        material["requests"].dump() + " requests",
                                        "250 frames per second set",
                                        material["started"].get<std::string>().substr(0, 10),
                                        Sha256Of("plan.toml")};
    const std::string pdf = Out() + "/report.pdf";
    const Result text = ByShell("/usr/bin/pdftotext", {"-raw", pdf, "-"}, "");
    ASSERT_EQ(text.status, 0) << text.err;
    const std::string inPdf = Words(text.out);
    const std::string inHtml = WithoutTags(ReadFile(Out() + "/report.html"));
    const std::string inJunit =
        WithoutTags(ReadFile(Out() + "/junit.xml")) + Words(ReadFile(Out() + "/junit.xml"));
    for (const std::string& figure : figures) {
        EXPECT_NE(inPdf.find(figure), std::string::npos) << figure << " in\n" << inPdf;
        EXPECT_NE(inHtml.find(figure), std::string::npos) << figure << " in\n" << inHtml;
        EXPECT_NE(inJunit.find(figure), std::string::npos) << figure << " in\n" << inJunit;
    }
    EXPECT_NE(inPdf.find("page 1 of 2"), std::string::npos) << inPdf;
    EXPECT_EQ(ReadFile(Out() + "/report.html").find("<script"), std::string::npos);
    EXPECT_EQ(ReadFile(Out() + "/report.html").find("http"),
              ReadFile(Out() + "/report.html").find("http://www.w3.org/")); // the SVG's namespace
}

TEST_F(RunTest, StandInsAreMarkedOnEveryPage) {
    WritePlan("[[step]]\nname = \"s\"\nmaterial = \"builtin:CAL20000\"\nseconds = 1\n"
              "[[step]]\nname = \"w\"\nwait = 0\nrepeat = 90\n");
    emulator::Simulator simulator(Unit());
    ASSERT_EQ(Run().status, 0);
    const json result = ReadResult();
    if (result["standIns"] == false) {
        GTEST_SKIP() << "This library has the licensed records.";
    }
    EXPECT_EQ(result["steps"][0]["source"], "stand-in");
    const std::string text = ByShell("/usr/bin/pdftotext", {Out() + "/report.pdf", "-"}, "").out;
    const auto pages = std::count(text.begin(), text.end(), '\f');
    EXPECT_GE(pages, 3);
    int marks = 0;
    for (auto at = text.find("Contains stand-ins for licensed records"); at != std::string::npos;
         at = text.find("Contains stand-ins", at + 1)) {
        ++marks;
    }
    EXPECT_EQ(marks, pages);
}

TEST_F(RunTest, ReportMakesTheSameFilesFromTheJournalAlone) {
    WriteRecord();
    WritePlan(kRecordStep);
    {
        emulator::Simulator simulator(Unit());
        ASSERT_EQ(Run().status, 0);
    }
    const std::vector<std::string> names = {"result.json", "junit.xml", "report.html",
                                            "report.pdf"};
    std::vector<std::string> before;
    for (const std::string& name : names) {
        before.push_back(ReadFile(Out() + "/" + name));
        std::filesystem::remove(Out() + "/" + name);
    }
    std::filesystem::remove(m_directory / "r.dat");
    std::filesystem::remove(m_directory / "plan.toml");
    const Result result = Ravo({"report", Out()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, Out() + "/report.html\n" + Out() + "/report.pdf\n");
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(ReadFile(Out() + "/" + names[i]), before[i]) << names[i];
    }
    EXPECT_EQ(Ravo({"report", m_directory / "."}).status, 2);
}
