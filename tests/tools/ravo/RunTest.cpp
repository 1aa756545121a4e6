#include "CommandLine.h"

#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>

using namespace std::chrono_literals;
using json = nlohmann::ordered_json;

namespace {

constexpr int kRate = 250;
constexpr const char* kSpeed = "20";
constexpr auto kPatience = 60s;

class RunTest : public testing::Test {
  protected:
    static emulator::Settings Unit(double speed = 20.0) {
        emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kSixteenBit, 0);
        settings.behaviour.speed = speed;
        settings.bufferBytes = 16 * emulator::kBufferBytes;
        return settings;
    }

    // Leads I and II, 8 s, of one value each.
    void WriteRecord(const std::string& name = "r") const {
        std::vector<int16_t> samples;
        for (int n = 0; n < 8 * kRate; ++n) {
            samples.push_back(static_cast<int16_t>(n % kRate * 4));
            samples.push_back(static_cast<int16_t>(n % 125 * 8 - 500));
        }
        m_directory.Write(name + ".dat", Format16(samples));
        const std::string base = name.substr(name.find_last_of('/') + 1);
        m_directory.Write(name + ".hea", base + " 2 250 2000\n" + base +
                                             ".dat 16 1000/mV 16 0 0 0 0 first\n" + base +
                                             ".dat 16 1000/mV 16 0 0 0 0 II\n");
    }

    std::string WritePlan(const std::string& steps) const {
        return m_directory.Write("plan.toml", "title = \"A day\"\n" + steps);
    }

    std::vector<std::string> Arguments(const std::vector<std::string>& more) const {
        std::vector<std::string> arguments = {
            "run", m_directory / "plan.toml", "--output", Out(), "--speed-up", kSpeed, "--port",
            "0"};
        if (std::find(more.begin(), more.end(), "--timeout") == more.end()) {
            arguments.insert(arguments.end(), {"--timeout", "60"});
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    Result Run(const std::vector<std::string>& more = {}) const { return Ravo(Arguments(more)); }

    std::string Out() const { return m_directory / "out"; }

    json ReadResult() const { return json::parse(ReadFile(Out() + "/result.json")); }

    json Step(const std::string& name) const {
        const json result = ReadResult();
        for (const json& step : result["steps"]) {
            if (step["name"] == name) {
                return step;
            }
        }
        return {};
    }

    std::string Events() const {
        std::string events;
        std::istringstream lines(ReadFile(Out() + "/journal.jsonl"));
        for (std::string line; std::getline(lines, line);) {
            const json event = json::parse(line, nullptr, false);
            events += event.is_object() ? event.value("event", "") + " " : "torn ";
        }
        return events;
    }

    // Waits until the journal contains that event.
    void AwaitEvent(const std::string& event, int times = 1) const {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        const auto count = [&] {
            const std::string events = Events();
            int found = 0;
            for (auto at = events.find(event + " "); at != std::string::npos;
                 at = events.find(event + " ", at + 1)) {
                ++found;
            }
            return found;
        };
        while (count() < times && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(10ms);
        }
        ASSERT_GE(count(), times) << Events();
    }

    void WriteHook(const std::string& script) const {
        const std::string path = m_directory.Write("hook.sh", "#!/bin/sh\n" + script);
        ::chmod(path.c_str(), 0755);
    }

    // As in the same run without any trouble: times and attempts differ.
    static json WithoutTimes(json result) {
        for (const char* field : {"started", "ended"}) {
            result.erase(field);
        }
        for (json& step : result["steps"]) {
            for (const char* field : {"started", "ended", "attempts", "measuredRate", "framesSent",
                                      "requests", "delays", "largestDelay"}) {
                step.erase(field);
            }
            if (step["kind"] != "material") {
                step.erase("seconds");
            }
        }
        return result;
    }

    std::string Sha256Of(const std::string& name) const {
        const Result result = ByShell("/usr/bin/sha256sum", {m_directory / name}, "");
        return result.out.substr(0, 64);
    }

    Scratch m_directory;
};

constexpr const char* kRecordStep =
    "[[step]]\nname = \"r\"\nmaterial = \"r.hea\"\nstart = 2\nseconds = 5\n"
    "map = { first = \"I\" }\n";

} // namespace

// ---- What a run leaves --------------------------------------------------------------------------

TEST_F(RunTest, AStepOfEachKindPasses) {
    WriteRecord();
    WriteHook("cat > seen.json\n"
              "echo '{\"verdict\": \"passed\", \"values\": {\"rate\": 60.5, \"state\": \"ok\"}}'");
    WritePlan(std::string(kRecordStep) +
              "[[step]]\nname = \"q\"\nask = \"How much?\"\nunit = \"mV\"\nmin = 0.9\nmax = 1.1\n"
              "[[step]]\nname = \"w\"\nwait = 2\n"
              "[[step]]\nname = \"h\"\nhook = [\"./hook.sh\"]\n");
    m_directory.Write("answers.toml", "q = 1.1\n");
    emulator::Simulator simulator(Unit());
    const Result result =
        Run({"--answers", m_directory / "answers.toml", "--operator", "A. Muster"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "passed: 4 of 4 steps passed\n" + Out() + "/report.html\n");

    const json run = ReadResult();
    EXPECT_EQ(run["format"], 1);
    EXPECT_EQ(run["title"], "A day");
    EXPECT_EQ(run["plan"], m_directory / "plan.toml");
    EXPECT_EQ(run["planSha256"], Sha256Of("plan.toml"));
    EXPECT_EQ(run["version"], "1.0.5.4");
    EXPECT_EQ(run["operator"], "A. Muster");
    EXPECT_EQ(run["outcome"], "passed");
    EXPECT_EQ(run["standIns"], false);
    EXPECT_EQ(run["simulator"]["bits"], 16);
    EXPECT_TRUE(
        std::regex_match(run["started"].get<std::string>(),
                         std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d)")));

    const json material = Step("r");
    EXPECT_EQ(material["kind"], "material");
    EXPECT_EQ(material["outcome"], "passed");
    EXPECT_EQ(material["attempts"], 1);
    EXPECT_EQ(material["material"], "r.hea");
    EXPECT_EQ(material["source"], "file");
    EXPECT_EQ(material["files"][0], (json{{"path", "r.hea"},
                                          {"sha256", Sha256Of("r.hea")},
                                          {"bytes", ReadFile(m_directory / "r.hea").size()}}));
    EXPECT_EQ(material["files"][1],
              (json{{"path", "r.dat"}, {"sha256", Sha256Of("r.dat")}, {"bytes", 8000}}));
    EXPECT_EQ(material["options"].dump(), R"({"map":{"first":"I"},"seconds":5,"start":2})");
    EXPECT_EQ(material["framesPlayed"], 5 * kRate);
    EXPECT_GE(material["framesSent"], 5 * kRate);
    EXPECT_GE(material["requests"], 2);
    EXPECT_EQ(material["seconds"], 5);
    EXPECT_EQ(material["nominalRate"], 250);
    EXPECT_EQ(material["leads"].dump(), R"({"I":"first","II":"II"})");
    EXPECT_EQ(material["clipped"].dump(), "{}");

    const json question = Step("q");
    EXPECT_EQ(question["values"].dump(), R"({"answer":1.1})");
    EXPECT_EQ(question["min"], 0.9);
    EXPECT_EQ(question["max"], 1.1);
    EXPECT_EQ(question["unit"], "mV");
    EXPECT_EQ(Step("w")["outcome"], "passed");
    EXPECT_EQ(Step("h")["values"].dump(), R"({"rate":60.5,"state":"ok"})");
    EXPECT_EQ(json::parse(ReadFile(m_directory / "seen.json")), Step("w"));
}

// The simulator's own clock is 10 % fast, which is far more than the effect of a busy machine.
TEST_F(RunTest, TheMeasuredRateIsThatOfTheSimulatorsClock) {
    WriteRecord();
    WritePlan("[[step]]\nname = \"r\"\nmaterial = \"r.hea\"\n");
    emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kSixteenBit, 0);
    settings.behaviour.clockPpm = 100'000.0;
    emulator::Simulator simulator(settings);
    ASSERT_EQ(Run().status, 0);
    const json step = Step("r");
    EXPECT_EQ(step["framesPlayed"], 8 * kRate);
    EXPECT_EQ(step["nominalRate"], kRate);
    EXPECT_NEAR(step["measuredRate"].get<double>(), 1.1 * kRate, 0.03 * kRate);
    std::istringstream lines(ReadFile(Out() + "/journal.jsonl"));
    bool isInJournal = false;
    for (std::string line; std::getline(lines, line);) {
        isInJournal =
            isInJournal || json::parse(line).value("measuredRate", json()) == step["measuredRate"];
    }
    EXPECT_TRUE(isInJournal);
}

TEST_F(RunTest, StepsRunInTheOrderOfTheMatrix) {
    WritePlan("[[step]]\nname = \"s\"\nmaterial = \"sine\"\nseconds = 1\nrepeat = 2\n"
              "matrix = { frequency = [1, 2], amplitude = [1.0, 0.50] }\n");
    emulator::Simulator simulator(Unit());
    const Result result = Run({"--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::string names;
    const json run = json::parse(result.out);
    for (const json& step : run["steps"]) {
        names += step["name"].get<std::string>() + " ";
        EXPECT_EQ(step["source"], "waveform");
        EXPECT_EQ(step["framesPlayed"], 1000);
    }
    EXPECT_EQ(names, "s[1,1.0]#1 s[1,1.0]#2 s[1,0.50]#1 s[1,0.50]#2 s[2,1.0]#1 s[2,1.0]#2 "
                     "s[2,0.50]#1 s[2,0.50]#2 ");
    EXPECT_GE(simulator.Seen().Count().starts, 8U); // on a starved machine one may be repeated
    EXPECT_EQ(json::parse(result.out), ReadResult());
}

// A 12-bit unit plays with a file of its own, whose bytes are evidence like the material's.
TEST_F(RunTest, TheSimulatorIsDescribedWithItsCalibration) {
    WritePlan("[[step]]\nname = \"s\"\nmaterial = \"sine\"\nseconds = 1\n");
    emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kTwelveBit, 0);
    settings.behaviour.speed = 20.0;
    settings.bufferBytes = 16 * emulator::kBufferBytes;
    const std::string file = emulator::CalibrationFilePath(settings.unit, settings.behaviour);
    ASSERT_TRUE(emulator::ConverterModel::Uncalibrated().WriteCalibrationFile(file));
    const emulator::Simulator simulator(settings);
    const Result result = Run();
    EXPECT_EQ(result.status, 0) << result.err;
    const json seen = ReadResult()["simulator"];
    EXPECT_EQ(seen["serial"], "TAB2005-170042");
    EXPECT_EQ(seen["bits"], 12);
    EXPECT_EQ(seen["calibrated"], true);
    EXPECT_EQ(seen["calibrationFile"], file);
    const Result digest = ByShell("/usr/bin/sha256sum", {file}, "");
    EXPECT_EQ(seen["calibrationSha256"], digest.out.substr(0, 64));
    std::filesystem::remove(file);
}

// ---- Verdicts -----------------------------------------------------------------------------------

TEST_F(RunTest, WhatFailsFailsTheRunWhichGoesOnToItsEnd) {
    WriteHook("exit 3");
    WritePlan("[[step]]\nname = \"high\"\nask = \"?\"\nmax = 1\n"
              "[[step]]\nname = \"none\"\nask = \"?\"\n"
              "[[step]]\nname = \"hook\"\nhook = [\"./hook.sh\"]\n"
              "[[step]]\nname = \"last\"\nwait = 0.1\n");
    m_directory.Write("answers.toml", "high = 1.5\n");
    const Result result = Run({"--answers", m_directory / "answers.toml"});
    EXPECT_EQ(result.status, 5) << result.err;
    EXPECT_EQ(ReadResult()["outcome"], "failed");
    EXPECT_EQ(Step("high")["outcome"], "failed");
    EXPECT_EQ(Step("none")["outcome"], "failed");
    EXPECT_EQ(Step("none")["message"],
              "unanswered: there is no terminal, and no answer in --answers");
    EXPECT_EQ(Step("hook")["outcome"], "error");
    EXPECT_EQ(Step("hook")["message"], "ended with status 3");
    EXPECT_EQ(Step("last")["outcome"], "passed");

    const Result again = Run({"--resume", "--answers", m_directory / "answers.toml"});
    EXPECT_EQ(again.status, 5);
}

// ---- Scores -------------------------------------------------------------------------------------

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

// ---- What is refused before anything plays ------------------------------------------------------

TEST_F(RunTest, ADryRunNeedsNoSimulatorAndWritesNothing) {
    WriteRecord();
    WritePlan(std::string(kRecordStep) +
              "pause = 1\nrepeat = 3\n[[step]]\nname = \"w\"\nwait = 2\n");
    const Result result = Run({"--dry-run"});
    EXPECT_EQ(result.status, 0) << result.err;
    // (3 x (5 s + 1 s) + 2 s) / 20
    EXPECT_EQ(result.out, "A day: 4 steps, 1 material, 0:01\n");
    EXPECT_FALSE(std::filesystem::exists(Out()));
}

TEST_F(RunTest, EachMaterialThatIsUnusableIsNamed) {
    WriteRecord();
    WriteRecord("cut");
    std::filesystem::resize_file(m_directory / "cut.dat", 4);
    m_directory.Write("mute.hea", "mute 1 250 2000\nr.dat 16 1000/mV 16 0 0 0 0 Pressure\n");
    WritePlan("[[step]]\nname = \"a\"\nmaterial = \"none.hea\"\n"
              "[[step]]\nname = \"d\"\nmaterial = \"mute.hea\"\n"
              "[[step]]\nname = \"b\"\nmaterial = \"r.hea\"\nsha256 = { \"r.dat\" = \"" +
              std::string(64, '0') + "\" }\n[[step]]\nname = \"c\"\nmaterial = \"cut.hea\"\n");
    const Result result = Run();
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("step a: " + m_directory / "none.hea"), std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("step d: " + (m_directory / "mute.hea") +
                              ": has no signal whose description names a lead."),
              std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("step b: " + (m_directory / "r.dat") +
                              ": does not match the plan's sha256."),
              std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("step c: " + m_directory / "cut.hea: is incomplete"),
              std::string::npos)
        << result.err;
    EXPECT_FALSE(std::filesystem::exists(Out()));
}

TEST_F(RunTest, PublishedDigestsAreChecked) {
    WriteRecord();
    WritePlan(kRecordStep);
    m_directory.Write("SHA256SUMS.txt", std::string(64, '1') + " r.dat\n");
    EXPECT_EQ(Run({"--dry-run"}).status, 2);
    m_directory.Write("SHA256SUMS.txt", Sha256Of("r.dat") + " r.dat\n");
    emulator::Simulator simulator(Unit());
    EXPECT_EQ(Run().status, 0);
    EXPECT_EQ(Step("r")["files"][1]["published"], true);
    EXPECT_NE(ReadFile(Out() + "/report.html").find("as published beside it"), std::string::npos);
}

TEST_F(RunTest, OptionsThatDoNotFitTheMaterialAreThePlansFault) {
    WriteRecord();
    const std::string path =
        WritePlan("[[step]]\nname = \"a\"\nmaterial = \"r.hea\"\nstart = 9\n"
                  "[[step]]\nname = \"b\"\nmaterial = \"r.hea\"\nfrequency = 2\n"
                  "[[step]]\nname = \"c\"\nmaterial = \"sine\"\n");
    const Result result = Run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, path +
                              ":5:9: start: 9 is past the end: r lasts 8.000 s; it has to fit "
                              "the material of step a\n" +
                              path +
                              ":9:13: frequency: is for waveforms; it has to fit the "
                              "material of step b\n" +
                              path +
                              ":10:1: seconds: is missing: sine has no end; it has to fit "
                              "the material of step c\n" +
                              "ravo: " + path + ": has 3 errors.\n      Nothing was played.\n");
}

TEST_F(RunTest, WithoutASimulatorNothingIsLost) {
    WriteRecord();
    WritePlan(kRecordStep);
    EXPECT_EQ(Run({"--timeout", "1"}).status, 3);
    EXPECT_EQ(ReadResult()["outcome"], "incomplete");
    EXPECT_EQ(Step("r")["outcome"], "skipped");
    emulator::Simulator simulator(Unit());
    EXPECT_EQ(Run({"--resume"}).status, 0);
    EXPECT_EQ(Step("r")["attempts"], 1);
}

TEST_F(RunTest, AFolderThatIsTakenInUseOrUnwritableIsRefused) {
    WritePlan("[[step]]\nname = \"w\"\nwait = 1000\n");
    std::filesystem::create_directory(Out());
    m_directory.Write("out/x", "");
    EXPECT_EQ(Run().status, 6);
    std::filesystem::remove_all(Out());
    const Process other("ravo", Arguments({}));
    AwaitEvent("begin");
    EXPECT_EQ(Run().status, 6);
    EXPECT_NE(Run({"--resume"}).err.find("is in use by another run"), std::string::npos);
}

TEST_F(RunTest, ReadOnlyAndFullFoldersAreToldAndLeaveTheRunResumable) {
    WritePlan("[[step]]\nname = \"w\"\nwait = 4\nrepeat = 40\n");
    std::filesystem::create_directory(Out());
    ASSERT_EQ(::mount("none", Out().c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
    const Result readOnly = Run();
    EXPECT_EQ(readOnly.status, 6);
    EXPECT_NE(readOnly.err.find("cannot be written: Read-only file system."), std::string::npos)
        << readOnly.err;
    ::umount(Out().c_str());

    ASSERT_EQ(::mount("none", Out().c_str(), "tmpfs", 0, "size=100k"), 0);
    const Result small = Run();
    EXPECT_EQ(small.status, 6);
    EXPECT_NE(small.err.find(Out() + ": has too little space left: this run may need 0.5 MB."),
              std::string::npos)
        << small.err;
    EXPECT_TRUE(std::filesystem::is_empty(Out()));
    ::umount(Out().c_str());

    // Room for the beginning of the journal, but not for its end; the disk fills up only later.
    ASSERT_EQ(::mount("none", Out().c_str(), "tmpfs", 0, "size=2m"), 0);
    Process run("ravo", Arguments({}));
    AwaitEvent("end");
    m_directory.Write("out/ballast", std::string(1 << 21, 'x'));
    EXPECT_EQ(run.Wait().status, 6);
    std::filesystem::remove(Out() + "/ballast");
    EXPECT_EQ(Run({"--resume"}).status, 0);
    EXPECT_EQ(ReadResult()["outcome"], "passed");
    ::umount(Out().c_str());
}

// ---- Interrupted and resumed --------------------------------------------------------------------

TEST_F(RunTest, AKilledRunGoesOnAndComesToTheSameResult) {
    WriteRecord();
    WritePlan("[[step]]\nname = \"w\"\nwait = 2\n" + std::string(kRecordStep) +
              "repeat = 3\nloop = true\nmatrix = { seconds = [20.0] }\n");
    emulator::Simulator simulator(Unit());
    ASSERT_EQ(Run().status, 0);
    const json whole = ReadResult();
    std::filesystem::remove_all(Out());

    for (int kill = 0; kill < 2; ++kill) {
        Process run("ravo", Arguments(kill == 0 ? std::vector<std::string>{}
                                                : std::vector<std::string>{"--resume"}));
        AwaitEvent("begin", 3 + kill * 2);
        run.Signal(SIGKILL);
        EXPECT_EQ(run.Wait().status, 128 + SIGKILL);
    }
    const Result result = Run({"--resume"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(WithoutTimes(ReadResult()), WithoutTimes(whole));
    EXPECT_EQ(Step("w")["attempts"], 1);
    EXPECT_EQ(Step("r[20.0]#1")["attempts"], 1);
    EXPECT_EQ(Step("r[20.0]#2")["attempts"], 2);
}

TEST_F(RunTest, ASignalEndsItInOrder) {
    WritePlan("[[step]]\nname = \"a\"\nwait = 0.1\n[[step]]\nname = \"b\"\nwait = 1000\n");
    Process run("ravo", Arguments({}));
    AwaitEvent("begin", 2);
    run.Signal(SIGTERM);
    EXPECT_EQ(run.Wait().status, 128 + SIGTERM);
    EXPECT_EQ(ReadResult()["outcome"], "incomplete");
    EXPECT_EQ(Step("a")["outcome"], "passed");
    EXPECT_EQ(Step("b")["outcome"], "skipped");
}

TEST_F(RunTest, AResumedFinishedRunPlaysNothing) {
    WriteRecord();
    WritePlan(kRecordStep);
    emulator::Simulator simulator(Unit());
    ASSERT_EQ(Run().status, 0);
    const json before = ReadResult();
    const std::string journal = ReadFile(Out() + "/journal.jsonl");
    EXPECT_EQ(Run({"--resume"}).status, 0);
    EXPECT_EQ(simulator.Seen().Count().starts, 1U);
    EXPECT_EQ(ReadResult(), before);
    EXPECT_EQ(ReadFile(Out() + "/journal.jsonl"), journal);
}

TEST_F(RunTest, MaterialIsTreatedAsThePlanSays) {
    WriteRecord();
    WriteRecord("noise");
    WritePlan("[[step]]\nname = \"t\"\nmaterial = \"r.hea\"\nstart = 2.5\nmap = { first = \"I\" }\n"
              "gain = { I = 6 }\noffset = 0.5\nnoise = \"noise.hea\"\n");
    emulator::Simulator simulator(Unit());
    const Result result = Run();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Step("t")["framesPlayed"], (8 * kRate) - (5 * kRate / 2));
    EXPECT_EQ(
        Step("t")["options"].dump(),
        R"({"gain":{"I":6},"map":{"first":"I"},"noise":"noise.hea","offset":0.5,"start":2.5})");
    std::string files;
    const json step = Step("t");
    for (const json& file : step["files"]) {
        files += file["path"].get<std::string>() + " ";
    }
    EXPECT_EQ(files, "r.hea r.dat noise.hea noise.dat ");
    // Lead I: 0.996 mV x 6 + 0.5 mV, and at the same sample 0.996 mV of noise.
    EXPECT_EQ(step["clipped"].dump(), R"({"I":7.472})");
    std::filesystem::remove_all(Out());
    WritePlan("[[step]]\nname = \"t\"\nmaterial = \"r.hea\"\nstart = 8.5\n");
    EXPECT_EQ(Run().status, 1);
}

TEST_F(RunTest, AResumeWithOtherThingsIsRefusedByName) {
    WriteRecord();
    WritePlan(kRecordStep);
    EXPECT_EQ(Run({"--timeout", "1"}).status, 3);
    m_directory.Write("r.dat", Format16(std::vector<int16_t>(4000, 7)));
    const Result material = Run({"--resume", "--timeout", "1"});
    EXPECT_EQ(material.status, 2);
    EXPECT_NE(material.err.find("r.dat: has changed since the run began."), std::string::npos)
        << material.err;
    WritePlan(std::string(kRecordStep) + "# a word more\n");
    const Result plan = Run({"--resume", "--timeout", "1"});
    EXPECT_EQ(plan.status, 1);
    EXPECT_NE(plan.err.find("plan.toml: has changed since the run began."), std::string::npos)
        << plan.err;
}

TEST_F(RunTest, AnUnpluggedSimulatorIsWaitedForAndTheStepRepeated) {
    WriteRecord();
    WritePlan(std::string(kRecordStep) + "loop = true\nmatrix = { seconds = [60] }\n");
    emulator::Simulator simulator(Unit());
    Process run("ravo", Arguments({}));
    AwaitEvent("begin");
    ASSERT_TRUE(simulator.Seen().WaitForFrames(1000, kPatience));
    simulator.Vanish();
    AwaitEvent("lost");
    simulator.Return(0);
    const Result result = run.Wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Step("r[60]")["attempts"], 2);
    EXPECT_EQ(Step("r[60]")["framesPlayed"], 60 * kRate);
    EXPECT_NE(ReadFile(Out() + "/report.html").find("2 attempts. Cut: output ended after "),
              std::string::npos);
}

TEST_F(RunTest, ASimulatorThatIsGoneForGoodLeavesTheRunResumable) {
    WriteRecord();
    WritePlan(std::string(kRecordStep) + "loop = true\nmatrix = { seconds = [60] }\n");
    emulator::Simulator simulator(Unit());
    Process run("ravo", Arguments({"--timeout", "2"}));
    AwaitEvent("begin");
    ASSERT_TRUE(simulator.Seen().WaitForFrames(1000, kPatience));
    simulator.Vanish();
    EXPECT_EQ(run.Wait().status, 4);
    EXPECT_EQ(ReadResult()["outcome"], "incomplete");
    simulator.Return(0);
    EXPECT_EQ(Run({"--resume"}).status, 0);
    EXPECT_EQ(ReadResult()["outcome"], "passed");
    EXPECT_EQ(Step("r[60]")["attempts"], 2);
}

TEST_F(RunTest, ARunGoesOnWithItsOwnSimulatorOnly) {
    WriteRecord();
    WritePlan(std::string(kRecordStep) + "loop = true\nmatrix = { seconds = [60] }\n");
    {
        emulator::Simulator simulator(Unit());
        Process run("ravo", Arguments({}));
        AwaitEvent("begin");
        run.Signal(SIGKILL);
        EXPECT_EQ(run.Wait().status, 128 + SIGKILL);
    }
    {
        emulator::Settings other = Unit();
        other.behaviour.flash[12] = 43; // 42 is the end of the usual serial number
        emulator::Simulator simulator(other);
        const Result refused = Run({"--resume"});
        EXPECT_EQ(refused.status, 3);
        EXPECT_NE(
            refused.err.find("/dev/ttyACM0: is the simulator TAB2105-170043, but the run began on "
                             "TAB2105-170042."),
            std::string::npos)
            << refused.err;
        EXPECT_EQ(simulator.Seen().Count().starts, 0U);
        EXPECT_EQ(ReadResult()["outcome"], "incomplete");
    }
    const emulator::Simulator simulator(Unit());
    EXPECT_EQ(Run({"--resume"}).status, 0);
    EXPECT_EQ(ReadResult()["simulator"]["serial"], "TAB2105-170042");
    EXPECT_EQ(Step("r[60]")["attempts"], 2);
}

// Without the answer that identifies it, a unit would be taken for another one with 12 bits.
TEST_F(RunTest, ASimulatorThatTellsLateWhichItIsIsAskedAgain) {
    WriteRecord();
    WritePlan(std::string(kRecordStep) + "loop = true\nmatrix = { seconds = [60] }\n");
    const auto delay = [](emulator::Behaviour& behaviour) {
        behaviour.replies.replies = 3;
        behaviour.replies.late = 2500ms;
    };
    emulator::Settings settings = Unit();
    delay(settings.behaviour);
    emulator::Simulator simulator(settings);
    Process run("ravo", Arguments({}));
    AwaitEvent("begin");
    ASSERT_TRUE(simulator.Seen().WaitForFrames(1000, kPatience));
    simulator.Vanish();
    AwaitEvent("lost");
    simulator.Change(delay);
    simulator.Return(0);
    const Result result = run.Wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadResult()["simulator"]["serial"], "TAB2105-170042");
    EXPECT_EQ(ReadResult()["simulator"]["bits"], 16);
    EXPECT_EQ(Step("r[60]")["attempts"], 2);
}

TEST_F(RunTest, APlayThatIsCutTwiceIsLeftForTheResumption) {
    WriteRecord();
    WritePlan(std::string(kRecordStep) + "loop = true\nmatrix = { seconds = [600] }\n" +
              "[[step]]\nname = \"w\"\nwait = 1\n");
    emulator::Simulator simulator(Unit());
    Process run("ravo", Arguments({}));
    for (int cut = 1; cut <= 2; ++cut) {
        AwaitEvent("begin", cut);
        ASSERT_TRUE(
            simulator.Seen().WaitForFrames(simulator.Seen().Count().frames + 1000, kPatience));
        simulator.Vanish();
        AwaitEvent(cut == 1 ? "lost" : "end");
        simulator.Return(0);
    }
    EXPECT_EQ(run.Wait().status, 4);
    EXPECT_EQ(ReadResult()["outcome"], "incomplete");
    EXPECT_EQ(Step("r[600]")["outcome"], "error");
    EXPECT_EQ(Step("w")["outcome"], "passed");
    simulator.Change([](emulator::Behaviour& behaviour) { behaviour.speed = 200.0; });
    EXPECT_EQ(Run({"--resume"}).status, 0);
    EXPECT_EQ(ReadResult()["outcome"], "passed");
    EXPECT_EQ(Step("r[600]")["attempts"], 3);
    EXPECT_EQ(Step("w")["attempts"], 1);
}

TEST_F(RunTest, AProcessThatWasStoppedTakesNoSilenceForItsOwn) {
    WriteRecord();
    WritePlan(std::string(kRecordStep) + "loop = true\nmatrix = { seconds = [60] }\n");
    emulator::Simulator simulator(Unit());
    Process run("ravo", Arguments({}));
    AwaitEvent("begin");
    ASSERT_TRUE(simulator.Seen().WaitForFrames(1000, kPatience));
    run.Signal(SIGSTOP);
    std::this_thread::sleep_for(12s);
    run.Signal(SIGCONT);
    EXPECT_EQ(run.Wait().status, 0);
    EXPECT_EQ(Step("r[60]")["attempts"], 1);
}

TEST_F(RunTest, AFolderThatIsRemovedIsMadeAgain) {
    WritePlan("[[step]]\nname = \"w\"\nwait = 4\nrepeat = 5\n");
    Process run("ravo", Arguments({}));
    AwaitEvent("end", 2);
    std::filesystem::remove_all(Out());
    const Result result = run.Wait();
    EXPECT_EQ(result.status, 6);
    EXPECT_NE(result.err.find("was removed while the run was under way"), std::string::npos)
        << result.err;
    EXPECT_EQ(Run({"--resume"}).status, 0);
    EXPECT_EQ(Step("w#1")["attempts"], 1);
    EXPECT_EQ(ReadResult()["outcome"], "passed");
}

TEST_F(RunTest, AnotherTimeZoneInBetweenChangesNothing) {
    WritePlan("[[step]]\nname = \"a\"\nwait = 0.1\n[[step]]\nname = \"b\"\nwait = 30\n");
    ::setenv("TZ", "UTC-5", 1);
    Process run("ravo", Arguments({}));
    AwaitEvent("begin", 2);
    run.Signal(SIGTERM);
    run.Wait();
    ::setenv("TZ", "UTC+3", 1);
    EXPECT_EQ(Run({"--resume"}).status, 0);
    ::unsetenv("TZ");
    const json result = ReadResult();
    EXPECT_NE(result["started"].get<std::string>().find("+05:00"), std::string::npos);
    EXPECT_NE(result["ended"].get<std::string>().find("-03:00"), std::string::npos);
    EXPECT_EQ(ReadFile(Out() + "/report.html").find("clock was set back"), std::string::npos);
}

// ---- Parts of a plan ----------------------------------------------------------------------------

TEST_F(RunTest, AClockThatIsSetBackAnHourChangesNothing) {
    WriteRecord();
    WriteHook("touch back\necho '{\"verdict\": \"none\", \"values\": {}}'\n");
    WritePlan("[[step]]\nname = \"w\"\nwait = 1\n[[step]]\nname = \"h\"\n"
              "hook = [\"./hook.sh\"]\n" +
              std::string(kRecordStep) + "pause = 1.0\n");
    emulator::Simulator simulator(Unit());
    ::setenv("LD_PRELOAD", RAVO_SET_BACK_CLOCK, 1);
    ::setenv("RAVO_TEST_CLOCK", (m_directory / "back").c_str(), 1);
    const Result result = Run();
    const Result resumed = Run({"--resume"});
    ::unsetenv("LD_PRELOAD");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(resumed.status, 0) << resumed.err;
    EXPECT_EQ(ReadResult()["outcome"], "passed");
    for (const char* name : {"w", "h", "r"}) {
        EXPECT_EQ(Step(name)["attempts"], 1) << name;
        EXPECT_GE(Step(name)["seconds"], 0.0) << name;
        EXPECT_LT(Step(name)["seconds"], 1800.0) << name;
    }
    EXPECT_EQ(Step("r")["framesPlayed"], 5 * kRate);
    EXPECT_LT(Step("r")["ended"], Step("w")["started"]); // as the clock showed
}

TEST_F(RunTest, OnlyAndFromTakeStepsOfThePlan) {
    WritePlan("[[step]]\nname = \"a\"\nmaterial = \"missing.hea\"\n"
              "[[step]]\nname = \"b\"\nwait = 0.1\nrepeat = 2\n"
              "[[step]]\nname = \"c\"\nwait = 0.1\n");
    EXPECT_EQ(Run({"--only", "b"}).status, 0);
    EXPECT_EQ(ReadResult()["outcome"], "passed");
    EXPECT_EQ(Step("a")["outcome"], "skipped");
    EXPECT_EQ(Step("a")["message"], "left out by --only or --from");
    EXPECT_EQ(Step("a")["attempts"], 0);
    EXPECT_EQ(Step("b#2")["outcome"], "passed");
    EXPECT_EQ(Step("c")["outcome"], "skipped");
    std::filesystem::remove_all(Out());
    EXPECT_EQ(Run({"--from", "c"}).status, 0);
    EXPECT_EQ(Step("b#1")["outcome"], "skipped");
    EXPECT_EQ(Step("c")["outcome"], "passed");
    std::filesystem::remove_all(Out());
    EXPECT_EQ(Run({"--only", "b#1"}).status, 1);
}

// ---- Questions on a terminal
// ---------------------------------------------------------------------

TEST_F(RunTest, AnOperatorIsToldWhatIsAllowedAndMayCorrect) {
    WritePlan("[[step]]\nname = \"q\"\nask = \"How much?\"\nunit = \"mV\"\nmin = 0.9\nmax = 1.1\n");
    const std::string typed = m_directory.Write("typed", "two\n1.5\n1.0\n\n");
    const Result result = ByShell("/usr/bin/script",
                                  {"-qec",
                                   std::string(RAVO_PROGRAM_DIRECTORY) + "/ravo run '" +
                                       (m_directory / "plan.toml") + "' --output '" + Out() + "'",
                                   "/dev/null"},
                                  "< '" + typed + "'");
    EXPECT_EQ(result.status, 0) << result.out;
    for (const char* said :
         {"q: How much?", "(a number in mV; 0.9 to 1.1 passes)",
          "This answer is not allowed. Allowed: a number in mV",
          "1.5 mV: failed. Enter goes on, another answer corrects it.", "1 mV: passed."}) {
        EXPECT_NE(result.out.find(said), std::string::npos) << said << " in\n" << result.out;
    }
    EXPECT_EQ(Step("q")["values"].dump(), R"({"answer":1.0})");
}

// ---- The plans that are shipped
// ------------------------------------------------------------------

class ShippedPlanTest : public RunTest {
  protected:
    // The plan beside the test's files. Takes this many lines of a list of records, because a whole
    // day is too long for a test suite.
    std::string CopyShipped(const std::string& name, int lines = 1000) const {
        std::istringstream text(ReadFile(std::string(RAVO_EXAMPLE_PLANS) + "/" + name));
        std::string copy;
        for (std::string line; std::getline(text, line);) {
            const bool isOfList = line.rfind("    \"", 0) == 0;
            copy += isOfList && lines-- <= 0 ? "" : line + "\n";
        }
        return m_directory.Write(name, copy);
    }

    Result RunShipped(const std::string& plan, const std::vector<std::string>& more) const {
        std::vector<std::string> arguments = {"run",        plan,  "--output",  Out(),
                                              "--speed-up", "100", "--timeout", "60"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Ravo(arguments);
    }
};

TEST_F(ShippedPlanTest, TheSessionOfQuestions) {
    m_directory.Write("answers.toml", "amplitude-10hz = 0.98\nrate = 75\nasystole = \"yes\"\n"
                                      "remark = \"none\"\n");
    emulator::Simulator simulator(Unit(100.0));
    const Result result = RunShipped(CopyShipped("question-session.toml"),
                                     {"--answers", m_directory / "answers.toml"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadResult()["steps"].size(), 7U);
}

TEST_F(ShippedPlanTest, TheHolterBatch) {
    std::filesystem::create_directory(m_directory / "mitdb");
    std::istringstream plan(ReadFile(std::string(RAVO_EXAMPLE_PLANS) + "/holter-batch.toml"));
    for (std::string line; std::getline(plan, line);) {
        const std::regex record("mitdb/(\\d+)\\.hea");
        for (std::sregex_iterator it(line.begin(), line.end(), record), end; it != end; ++it) {
            WriteRecord("mitdb/" + (*it)[1].str());
        }
    }
    m_directory.Write("answers.toml", "recording = \"yes\"\n");
    const Result check = RunShipped(CopyShipped("holter-batch.toml"), {"--dry-run"});
    EXPECT_EQ(check.out.rfind("Holter batch: 50 steps, 48 materials, ", 0), 0U) << check.out;
    emulator::Simulator simulator(Unit(100.0));
    const Result result = RunShipped(CopyShipped("holter-batch.toml", 1),
                                     {"--answers", m_directory / "answers.toml"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadResult()["outcome"], "passed");
    EXPECT_EQ(Step("record[mitdb/101.hea]")["framesPlayed"], 2000);
}

TEST_F(ShippedPlanTest, TheBuiltInDatabase) {
    const Result check = RunShipped(CopyShipped("builtin-database.toml"), {"--dry-run"});
    EXPECT_EQ(check.out.rfind("CTS/CSE database with and without noise: 238 steps, ", 0), 0U)
        << check.out << check.err;
    emulator::Simulator simulator(Unit(100.0));
    const Result result = RunShipped(CopyShipped("builtin-database.toml", 1), {});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadResult()["steps"].size(), 2U * 4U);
    EXPECT_EQ(Step("record[BL_HF,builtin:ANE20002]")["seconds"], 10);
}

// ---- Reports ------------------------------------------------------------------------------------

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
