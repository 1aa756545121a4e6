#include "CommandLine.h"
#include "RunFixture.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <sys/mount.h>

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
