#include "lab/plan/Hook.h"
#include "lab/plan/Answers.h"
#include "tests/support/Files.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

using namespace lab;
using json = nlohmann::ordered_json;

namespace {

class HookTest : public testing::Test {
  protected:
    HookResult Run(const std::vector<std::string>& command, double timeout = 60.0) const {
        return RunHook(command, m_scratch / ".", timeout, "{\"name\":\"before\"}\n", m_interrupt);
    }

    HookResult RunScript(const std::string& script, double timeout = 60.0) const {
        const std::string path = m_scratch.Write("hook", "#!/bin/sh\n" + script);
        ::chmod(path.c_str(), 0755);
        return Run({"./hook", "two words"}, timeout);
    }

    Scratch m_scratch;
    Interrupt m_interrupt;
};

} // namespace

TEST_F(HookTest, GetsTheStepBeforeItAndGivesVerdictAndValues) {
    const HookResult result = RunScript(
        "read line; printf '%s' \"$line$1\" > seen\n"
        "echo '{\"verdict\": \"passed\", \"values\": {\"rate\": 60.10000000001, \"n\": 3, "
        "\"text\": \"ok\"}}'");
    EXPECT_EQ(result.outcome, "passed");
    EXPECT_EQ(result.message, "");
    EXPECT_EQ(result.values.dump(), R"({"rate":60.1,"n":3,"text":"ok"})");
    EXPECT_EQ(ReadFile(m_scratch / "seen"), "{\"name\":\"before\"}two words");
}

TEST_F(HookTest, AFileBesideThePlanNeedsNoDot) {
    const std::string path =
        m_scratch.Write("beside", "#!/bin/sh\necho '{\"verdict\": \"none\"}'\n");
    ::chmod(path.c_str(), 0755);
    EXPECT_EQ(Run({"beside"}).outcome, "passed");
}

TEST_F(HookTest, AVerdictOfFailedFails) {
    const HookResult result = RunScript("echo '{\"verdict\": \"failed\", \"values\": {}}'");
    EXPECT_EQ(result.outcome, "failed");
    EXPECT_EQ(result.message, "the hook's verdict is failed");
}

TEST_F(HookTest, WhatBreaksIsAnError) {
    EXPECT_EQ(RunScript("echo '{\"verdict\": \"passed\"}'; exit 3").message, "ended with status 3");
    EXPECT_EQ(RunScript("kill -9 $$").message, "was ended by signal 9");
    EXPECT_EQ(RunScript("true").message, "printed nothing; a JSON object is expected");
    EXPECT_EQ(RunScript("echo passed").message, "printed no JSON object");
    EXPECT_EQ(Run({"./missing"}).message, "cannot be started: No such file or directory");
    EXPECT_EQ(Run({"./missing"}).outcome, "error");
}

TEST_F(HookTest, WhatIsPrintedHasToBeAsAgreed) {
    EXPECT_EQ(JudgeHookOutput("{\"verdict\": \"good\"}").message,
              "printed no \"verdict\" of \"passed\", \"failed\" or \"none\"");
    EXPECT_EQ(JudgeHookOutput("{}").outcome, "error");
    EXPECT_EQ(JudgeHookOutput("{\"verdict\": \"passed\", \"values\": [1]}").message,
              "printed \"values\" that are not an object");
    EXPECT_EQ(JudgeHookOutput("{\"verdict\": \"passed\", \"values\": {\"x\": null}}").message,
              "printed the value \"x\", which is neither number nor text");
}

TEST_F(HookTest, MayAskForAScore) {
    const HookResult result = JudgeHookOutput(
        R"({"verdict": "none", "score": {"reference": "a.atr", "test": "b.csv", "learning": 0,)"
        R"( "window": 99.5, "align": false, "qrs_se_min": 0.5}})");
    EXPECT_EQ(result.outcome, "passed");
    ASSERT_TRUE(result.score);
    EXPECT_EQ(result.score->request.reference, "a.atr");
    EXPECT_EQ(result.score->request.test, "b.csv");
    EXPECT_EQ(result.score->request.rules.learning, score::Rational(0));
    EXPECT_EQ(result.score->request.rules.window, score::Rational(995, 10'000));
    ASSERT_EQ(result.score->limits.size(), 1U);
    EXPECT_EQ(result.score->limits[0].value, 0.5);

    const HookResult wrong = JudgeHookOutput(
        R"({"verdict": "none", "score": {"reference": "a", "test": "b", "qrs_min": 0.5}})");
    EXPECT_EQ(wrong.outcome, "error");
    EXPECT_EQ(wrong.message.rfind("printed an invalid score: score.qrs_min is not a field of a "
                                  "score; allowed are reference, test, ",
                                  0),
              0U)
        << wrong.message;
    const HookResult tiny = JudgeHookOutput(
        R"({"verdict": "none", "score": {"reference": "a", "test": "b", "window": 1e-36}})");
    EXPECT_EQ(tiny.outcome, "error");
    EXPECT_EQ(tiny.message, "printed an invalid score: score.window is the number 1e-36; it "
                            "has to be a number of fewer digits");
    EXPECT_EQ(JudgeHookOutput(R"({"verdict": "none", "score": 1})")
                  .message.rfind("printed an invalid score: score is the number 1; ", 0),
              0U);
}

TEST_F(HookTest, OneThatTakesTooLongIsEndedWithAllItsChildren) {
    const HookResult result =
        RunScript("(trap '' TERM; sleep 3; echo alive > alive) &\nsleep 60", 0.3);
    EXPECT_EQ(result.outcome, "error");
    EXPECT_EQ(result.message, "was still running after 0.3 s and has been ended");
    std::this_thread::sleep_for(std::chrono::seconds(4));
    EXPECT_EQ(ReadFile(m_scratch / "alive"), "");
}

TEST_F(HookTest, AChildThatItLeavesBehindDoesNotHoldTheRunUp) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(RunScript("sleep 300 &\necho '{\"verdict\": \"passed\"}'").outcome, "passed");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(200));
}

TEST_F(HookTest, OutputBiggerThanAPipeIsTaken) {
    EXPECT_EQ(RunScript("head -c 200000 /dev/zero | tr '\\0' ' '\necho '{\"verdict\": \"none\"}'")
                  .outcome,
              "passed");
}

TEST_F(HookTest, ASignalEndsIt) {
    ::raise(SIGTERM);
    const HookResult result = RunScript("sleep 60");
    EXPECT_EQ(result.signal, SIGTERM);
}

// ---- Answers ------------------------------------------------------------------------------------

namespace {

Question Between(double min, double max) {
    Question question;
    question.unit = "mV";
    question.min = min;
    question.max = max;
    return question;
}

} // namespace

TEST(AnswersTest, LimitsCountInOnThePrintedNumber) {
    const Question question = Between(0.9, 1.1);
    for (const char* text : {"0.9", "1.1", " 1.10000000001 ", "1e0"}) {
        EXPECT_TRUE(Passes(question, ParseAnswer(question, text).value())) << text;
    }
    for (const char* text : {"0.8999999", "1.1000001", "-1"}) {
        EXPECT_FALSE(Passes(question, ParseAnswer(question, text).value())) << text;
    }
    for (const char* text : {"", "one", "1 mV", "1,0", "nan", "inf"}) {
        EXPECT_FALSE(ParseAnswer(question, text)) << text;
    }
    EXPECT_EQ(AllowedAnswers(question), "a number in mV; 0.9 to 1.1 passes");
}

TEST(AnswersTest, ChoicesAndFreeTexts) {
    Question question;
    EXPECT_EQ(AllowedAnswers(question), "any text");
    EXPECT_TRUE(Passes(question, ParseAnswer(question, "as it should").value()));
    question.choices = {"pass", "fail", "odd"};
    EXPECT_EQ(AllowedAnswers(question), "pass, fail or odd");
    EXPECT_TRUE(Passes(question, ParseAnswer(question, "pass").value()));
    EXPECT_TRUE(Passes(question, ParseAnswer(question, "odd").value()));
    EXPECT_FALSE(Passes(question, ParseAnswer(question, "fail").value()));
    EXPECT_FALSE(ParseAnswer(question, "Pass "));
}

TEST(AnswersTest, AFileOfAnswers) {
    const Scratch scratch;
    const Plan plan = ReadPlan(scratch.Write(
        "p.toml", "title = \"t\"\n[[step]]\nname = \"a\"\nask = \"?\"\nmin = 1\nrepeat = 2\n"
                  "[[step]]\nname = \"b\"\nask = \"?\"\nchoices = [\"yes\", \"no\"]\n"));
    const auto answers =
        ReadAnswers(scratch.Write("good.toml", "a = 1\n\"a#2\" = 2.5\nb = \"no\"\n"), plan);
    EXPECT_EQ(std::get<double>(answers.at("a")), 1.0);
    EXPECT_EQ(std::get<double>(answers.at("a#2")), 2.5);
    EXPECT_EQ(std::get<std::string>(answers.at("b")), "no");

    const std::string bad = scratch.Write("bad.toml", "c = 1\na = \"1\"\nb = \"maybe\"\n");
    testing::internal::CaptureStderr();
    EXPECT_THROW(ReadAnswers(bad, plan), Failure);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              bad + ":1:1: c: is not a question of the plan; the name of a step that asks\n" + bad +
                  ":2:5: a: is not an answer; allowed is a number; at least 1 passes\n" + bad +
                  ":3:5: b: is not an answer; allowed is yes or no\n");
}
