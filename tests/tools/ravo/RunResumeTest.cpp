#include "CommandLine.h"
#include "RunFixture.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

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

class RemovalTest : public RunTest {
  protected:
    // Removes it between two steps of a run, which ends by that, tells so, and can be resumed.
    void ExpectRescue(const std::string& path, const std::string& told) {
        WritePlan("[[step]]\nname = \"w\"\nwait = 4\nrepeat = 5\n");
        Process run("ravo", Arguments({}));
        AwaitEvent("end", 2);
        std::filesystem::remove_all(path);
        const Result result = run.Wait();
        EXPECT_EQ(result.status, 6);
        EXPECT_NE(result.err.find("ravo: " + path +
                                  ": was removed while the run was under way.\n      " + told),
                  std::string::npos)
            << result.err;
        EXPECT_EQ(Run({"--resume"}).status, 0);
        EXPECT_EQ(Step("w#1")["attempts"], 1);
        EXPECT_EQ(ReadResult()["outcome"], "passed");
    }
};

TEST_F(RemovalTest, AFolderThatIsRemovedIsMadeAgain) {
    ExpectRescue(Out(), "It has been created again with the whole journal: continue with "
                        "--resume.\n");
}

TEST_F(RemovalTest, AJournalThatIsRemovedIsWrittenAgain) {
    ExpectRescue(Out() + "/journal.jsonl",
                 "It has been written again as a whole: continue with --resume.\n");
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
