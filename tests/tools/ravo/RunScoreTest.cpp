#include "CommandLine.h"
#include "RunFixture.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <string>

namespace {

// 301 N, 302 V, 303 V, 304 S against 301.1 N, 302 V, 303 N and 310 N: Nn, Vv, Vn, So and On. QRS
// Se 3/4, +P 3/4; VEB Se 1/2, +P 1/1.
constexpr const char* kReferenceBeats = "seconds,code\n301,N\n302,V\n303,V\n304,S\n";
constexpr const char* kTestBeats = "seconds,code\n301.1,N\n302,V\n303,N\n310,N\n";

} // namespace

TEST_F(RunTest, AScoreIsAStepWithLimits) {
    m_directory.Write("a.csv", kReferenceBeats);
    WriteHook(
        "cat > seen.json; printf 'seconds,code\\n301.1,N\\n302,V\\n303,N\\n310,N\\n' > b.csv\n"
        "echo '{\"verdict\": \"passed\", \"values\": {\"n\": 4}, \"score\": {\"reference\": "
        "\"a.csv\", \"test\": \"b.csv\", \"veb_ppv_min\": 1}}'");
    WritePlan("[[step]]\nname = \"hook\"\nhook = [\"./hook.sh\"]\n"
              "[[step]]\nname = \"good\"\nscore = { reference = \"a.csv\", test = \"b.csv\", "
              "qrs_se_min = 0.75, veb_fpr_max = 0 }\n"
              "[[step]]\nname = \"bad\"\nscore = { reference = \"a.csv\", test = \"b.csv\", "
              "qrs_se_min = 0.76, sveb_ppv_min = 0.1 }\n"
              "[[step]]\nname = \"none\"\nscore = { reference = \"a.csv\", test = \"c.csv\" }\n");
    const Result result = Run();
    EXPECT_EQ(result.status, 5) << result.err;
    const json hook = Step("hook");
    EXPECT_EQ(hook["outcome"], "passed") << hook["message"];
    EXPECT_EQ(hook["values"].dump(), R"({"n":4,"veb_ppv":1.0})");
    EXPECT_EQ(hook["limits"].dump(), R"({"veb_ppv_min":1.0})");

    const json good = Step("good");
    EXPECT_EQ(good["kind"], "score");
    EXPECT_EQ(good["outcome"], "passed") << good["message"];
    EXPECT_EQ(good["values"]["qrs_se"], 0.75);
    EXPECT_EQ(good["values"]["veb_se"], 0.5);
    EXPECT_EQ(good["values"]["sveb_ppv"], nullptr);
    EXPECT_EQ(good["score"]["gross"]["matrix"]["Nn"], 1);
    EXPECT_EQ(good["files"][1], (json{{"path", "b.csv"},
                                      {"sha256", Sha256Of("b.csv")},
                                      {"bytes", std::string(kTestBeats).size()}}));

    EXPECT_EQ(Step("bad")["outcome"], "failed");
    EXPECT_EQ(Step("bad")["message"], "qrs_se is 0.75, below 0.76; sveb_ppv is undefined: there is "
                                      "nothing to count");
    EXPECT_EQ(Step("none")["outcome"], "error");
    EXPECT_EQ(Step("none")["message"].get<std::string>().rfind(m_directory / "c.csv", 0), 0U)
        << Step("none")["message"];

    const std::string html = ReadFile(Out() + "/report.html");
    EXPECT_NE(html.find("<caption>good: beats, in percent</caption>"), std::string::npos);
    EXPECT_NE(html.find("<tr><th scope=\"row\">a</th><td>75.00</td><td>75.00</td><td>50.00</td>"),
              std::string::npos);
    EXPECT_NE(html.find("qrs_se at least 0.75, veb_fpr at most 0"), std::string::npos);
    EXPECT_NE(ReadFile(Out() + "/junit.xml").find("good: beats, in percent"), std::string::npos);
}

// The test's clock is 12.5 s behind. What was found is stated in the result and in the reports, for
// one record beside the step, for several in a table; "1" is not a code.
TEST_F(RunTest, AScoreShowsTheClockThatWasFoundAndItsWarnings) {
    std::string reference = "seconds,code\n";
    std::string test = reference;
    int time = 20'000'000; // microseconds
    for (int i = 0; i < 200; ++i) {
        time += 800'000 + i * i * i * 37 % 211 * 2'000;
        reference += std::to_string(time) + "e-6,N\n";
        test += std::to_string(time - 12'500'000) + "e-6,N\n";
    }
    for (const char* name : {"a", "b"}) {
        m_directory.Write(std::string("r/") + name + ".csv", reference);
        m_directory.Write(std::string("t/") + name + ".csv", test + "9,1\n");
    }
    WriteHook("echo '{\"verdict\": \"passed\", \"score\": {\"reference\": \"r/a.csv\", \"test\": "
              "\"t/a.csv\", \"align\": true, \"learning\": 7}}'");
    WritePlan(
        "[[step]]\nname = \"one\"\nscore = { reference = \"r/a.csv\", test = \"t/a.csv\", "
        "align = true, learning = 0, qrs_se_min = 1 }\n"
        "[[step]]\nname = \"two\"\nscore = { reference = \"r\", test = \"t\", align = true, "
        "reference-suffix = \"csv\", test-suffix = \"csv\" }\n"
        "[[step]]\nname = \"hook\"\nhook = [\"./hook.sh\"]\n"
        "[[step]]\nname = \"none\"\nscore = { reference = \"r/a.csv\", test = \"none.csv\" }\n");
    const Result result = Run();
    EXPECT_EQ(result.status, 5) << result.err;
    const std::string warning =
        "t/a.csv: 1 of its 201 codes is unknown and counts as no beat, that in line 202: ";
    EXPECT_NE(result.err.find(warning), std::string::npos) << result.err;
    EXPECT_EQ(Step("one")["outcome"], "passed") << Step("one")["message"];
    EXPECT_EQ(Step("one")["offset"], 12.5);
    EXPECT_EQ(Step("one")["clockPpm"], 0);
    EXPECT_EQ(Step("one")["score"]["reference"], "r/a.csv");
    EXPECT_EQ(Step("one")["score"]["records"][0]["test"], "t/a.csv");
    EXPECT_EQ(Step("two")["offset"], nullptr);
    EXPECT_EQ(Step("two")["score"]["records"][1]["offset"], 12.5);
    const std::string html = ReadFile(Out() + "/report.html");
    const std::string found =
        "found from the lists: offset 12.5000 s (standard error 0.0 ms), clock "
        "0.00 ppm (0.00 ppm)";
    EXPECT_NE(html.find("beat by beat; learning 0 s, window 150 ms, " + found), std::string::npos)
        << html;
    EXPECT_NE(html.find("t/a.csv compared with r/a.csv, learning 7 s, window 150 ms, " + found),
              std::string::npos);
    EXPECT_NE(html.find("learning 300 s, window 150 ms, suffixes csv and csv, offset and clock of "
                        "each record found from the lists"),
              std::string::npos);
    EXPECT_NE(html.find("<tr><th scope=\"row\">b</th><td>12.5000</td><td>0.0</td>"),
              std::string::npos);
    EXPECT_NE(html.find(warning), std::string::npos);
    EXPECT_NE(html.find("No such file or directory.<"), std::string::npos);
    EXPECT_EQ(html.find(".. "), std::string::npos);
}

// 300,000 lines are not read in less than a hundredth of a second, and nothing else lasts as long.
TEST_F(RunTest, AScoreLastsUntilItsFiguresAreThere) {
    m_directory.Write("a.csv", kReferenceBeats);
    std::string test = "seconds,code\n";
    for (int i = 0; i < 300'000; ++i) {
        test += std::to_string(i) + ",N\n";
    }
    m_directory.Write("b.csv", test);
    WritePlan("[[step]]\nname = \"s\"\nscore = { reference = \"a.csv\", test = \"b.csv\" }\n");
    EXPECT_EQ(Run().status, 0);
    EXPECT_GE(Step("s")["seconds"].get<double>(), 0.01) << Step("s");
}

TEST_F(RunTest, AReferenceIsCheckedBeforehandAndMayNotChange) {
    WritePlan("[[step]]\nname = \"w\"\nwait = 1000\n"
              "[[step]]\nname = \"s\"\nscore = { reference = \"a.csv\", test = \"b.csv\" }\n");
    const Result missing = Run();
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("step s: " + (m_directory / "a.csv")), std::string::npos)
        << missing.err;
    m_directory.Write("a.csv", kReferenceBeats);
    Process run("ravo", Arguments({}));
    AwaitEvent("begin");
    run.Signal(SIGTERM);
    EXPECT_EQ(run.Wait().status, 128 + SIGTERM);
    m_directory.Write("a.csv", kTestBeats);
    const Result changed = Run({"--resume"});
    EXPECT_EQ(changed.status, 2);
    EXPECT_NE(changed.err.find("a.csv: has changed since the run began."), std::string::npos)
        << changed.err;
}
