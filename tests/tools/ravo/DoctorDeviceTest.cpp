#include "CommandLine.h"
#include "DoctorFixture.h"
#include "tests/support/Eventually.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

TEST_F(DoctorTest, DeviceThatAnswersWrongly) {
    emulator::Settings settings = Unit();
    settings.behaviour.identity = {'M', 'O', 'D', 'E', 'M', 7};
    emulator::Simulator simulator(settings);
    const Result result = ImpatientDoctor();
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer"),
              "failed   /dev/ttyACM0 answer: another device answers: \"MODEM?\" (4D 4F 44 45 4D "
              "07)\n           Plug in the simulator as well. If this is the simulator, switch "
              "it off and on.\n");
    ExpectNothingLeft(simulator);
}

TEST_F(DoctorTest, DeviceThatDoesNotAnswer) {
    emulator::Settings settings = Unit();
    settings.behaviour.line = emulator::Line::kMute;
    emulator::Simulator simulator(settings);
    const Result result = ImpatientDoctor();
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer"),
              "failed   /dev/ttyACM0 answer: nothing answers\n           Is it the simulator? "
              "Switch it off and on, and plug it in again.\n");
    ExpectNothingLeft(simulator);
}

// A close waits for output that is not accepted; the doctor must return nevertheless.
TEST_F(DoctorTest, DeviceThatTakesNothing) {
    if (std::getenv("RAVO_EMULATOR_PORT") != nullptr) {
        GTEST_SKIP() << "the kernel's driver takes the question itself";
    }
    emulator::Settings settings = Unit();
    settings.behaviour.line = emulator::Line::kFull;
    emulator::Simulator simulator(settings);
    const Result result = ImpatientDoctor();
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer"),
              "failed   /dev/ttyACM0 answer: takes no bytes\n           Is it the simulator? "
              "Switch it off and on, and plug it in again.\n");
    ExpectNothingLeft(simulator);
}

// The library waits for one second, the doctor for three.
TEST_F(DoctorTest, DeviceThatAnswersTooLate) {
    emulator::Settings settings = Unit();
    settings.behaviour.replies.late = 1500ms;
    emulator::Simulator simulator(settings);
    const Result result = ImpatientDoctor();
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer"),
              "failed   /dev/ttyACM0 answer: answers like the simulator, but too late or not "
              "every time\n           Plug it into the machine itself rather than a hub; reduce "
              "the load of the machine.\n");
    ExpectNothingLeft(simulator);
}

TEST_F(DoctorTest, PortThatIsTakenMeanwhile) {
    ::prctl(PR_SET_NAME, "taker");
    emulator::Settings settings = Unit();
    settings.behaviour.line = emulator::Line::kMute;
    const emulator::Simulator simulator(settings);
    Process doctor("ravo", {"doctor", "--timeout", "15"});
    ASSERT_TRUE(simulator.Seen().WaitFor(
        [](const emulator::Counters& count) { return count.hostOpenings > 0; }, kPatience));
    WriteFile("/var/lock/taker", OwnerBytes(::getpid()));
    ASSERT_TRUE(Eventually([] { return ::link("/var/lock/taker", kLock) == 0; }));
    const Result result = doctor.Wait();
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer"),
              "failed   /dev/ttyACM0 answer: taker (process " + std::to_string(::getpid()) +
                  ") took it while it was being asked\n           Look again: ravo doctor\n");
}

TEST_F(DoctorTest, DeviceThatGoes) {
    emulator::Settings settings = Unit();
    settings.behaviour.line = emulator::Line::kMute;
    emulator::Simulator simulator(settings);
    Process doctor("ravo", {"doctor", "--timeout", "5"});
    ASSERT_TRUE(simulator.Seen().WaitFor(
        [](const emulator::Counters& count) { return count.hostOpenings > 0; }, kPatience));
    simulator.Vanish();
    const Result result = doctor.Wait();
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer"),
              "failed   /dev/ttyACM0 answer: disappeared while it was being asked\n           "
              "Check cable "
              "and power; plug it into the machine itself rather than a hub.\n");
    EXPECT_TRUE(fs::is_empty("/var/lock"));
}

TEST_F(DoctorTest, CtrlCEndsTheQuestion) {
    emulator::Settings settings = Unit();
    settings.behaviour.line = emulator::Line::kMute;
    emulator::Simulator simulator(settings);
    Process doctor("ravo", {"doctor", "--timeout", "3600"});
    ASSERT_TRUE(simulator.Seen().WaitFor(
        [](const emulator::Counters& count) { return count.hostOpenings > 0; }, kPatience));
    doctor.Signal(SIGINT);
    const Result result = doctor.Wait();
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.out, "");
    ExpectNothingLeft(simulator);
}
