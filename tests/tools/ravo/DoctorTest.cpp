// The findings of `ravo doctor` about an emulated simulator, healthy and faulty.
#include "CommandLine.h"
#include "DoctorFixture.h"
#include "tests/support/HostLine.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <grp.h>
#include <regex>
#include <string>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

std::string Kernel() {
    utsname kernel{};
    ::uname(&kernel);
    return std::string(kernel.sysname) + " " + kernel.release + " " + kernel.machine;
}

} // namespace

// ---- Sound --------------------------------------------------------------------------------------

TEST_F(DoctorTest, AllIsFine) {
    emulator::Simulator simulator(Unit());
    const Result result = Doctor();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(WithoutTheMachinesOwn(result.out),
              "ravo 1.0.5.4, " + Kernel() +
                  "\n"
                  "ok       ports: /dev/ttyACM0\n"
                  "ok       lock directory: /var/lock may be written\n"
                  "ok       /dev/ttyACM0 permission: may be read and written\n"
                  "ok       /dev/ttyACM0 use: no program holds it\n"
                  "ok       /dev/ttyACM0 lock: there is no lock file\n"
                  "ok       /dev/ttyACM0 answer: RAVO 2.0, serial number TAB2105-170042, 16-bit "
                  "converters\n"
                  "ok       /dev/ttyACM0 calibration: 16-bit converters need none\n"
                  "Simulator ready on /dev/ttyACM0.\n");
    ExpectNothingLeft(simulator);
}

TEST_F(DoctorTest, JsonIsStable) {
    emulator::Simulator simulator(Unit(emulator::Unit::kSixteenBit, 7));
    const Result result = Doctor({"--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    const std::regex modem(
        R"re(\{"port":"/dev/ttyACM7","check":"modem probing","state":"(ok|warning)",)re"
        R"re("code":"[a-z]+",)re"
        R"re("found":"[^"]*","cure":(null|"[^"]*")\},)re");
    const std::regex unseen("; [0-9]+ processes of other users could not be inspected");
    EXPECT_EQ(std::regex_replace(std::regex_replace(result.out, modem, ""), unseen, ""),
              R"({"format":1,"version":"1.0.5.4","kernel":")" + Kernel() +
                  R"(","plays":true,"device":"/dev/ttyACM7","findings":[)"
                  R"({"port":null,"check":"ports","state":"ok","code":"present",)"
                  R"("found":"/dev/ttyACM7","cure":null},)"
                  R"({"port":null,"check":"lock directory","state":"ok","code":"writable",)"
                  R"("found":"/var/lock may be written","cure":null},)"
                  R"({"port":"/dev/ttyACM7","check":"permission","state":"ok","code":"granted",)"
                  R"("found":"may be read and written","cure":null},)"
                  R"({"port":"/dev/ttyACM7","check":"use","state":"ok","code":"free",)"
                  R"("found":"no program holds it","cure":null},)"
                  R"({"port":"/dev/ttyACM7","check":"lock","state":"ok","code":"free",)"
                  R"("found":"there is no lock file","cure":null},)"
                  R"({"port":"/dev/ttyACM7","check":"answer","state":"ok","code":"simulator",)"
                  R"("found":"RAVO 2.0, serial number TAB2105-170042, 16-bit converters",)"
                  R"("cure":null},)"
                  R"({"port":"/dev/ttyACM7","check":"calibration","state":"ok",)"
                  R"("code":"not-needed","found":"16-bit converters need none","cure":null}]})"
                  "\n");
}

TEST_F(DoctorTest, JsonOfAFailureHasNoDevice) {
    const Result result = Doctor({"--port", "9", "--json"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out.find(R"("plays":false,"device":null,"findings":[{"port":null,)"
                              R"("check":"ports","state":"failed","code":"no-device",)"
                              R"("found":"there is no /dev/ttyACM9","cure":"Plug)"),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find(R"(],"error":{"status":3,"where":"ports",)"
                              R"("problem":"there is no /dev/ttyACM9.","cure":"Plug)"),
              std::string::npos)
        << result.out;
}

// The search ends at the first simulator, and no further port is examined.
TEST_F(DoctorTest, AsksUpToTheFirstSimulator) {
    emulator::Settings other = Unit();
    other.behaviour.identity = {'M', 'O', 'D', 'E', 'M'};
    emulator::Simulator modem(other);
    emulator::Simulator first(Unit(emulator::Unit::kSixteenBit, 2));
    emulator::Simulator second(Unit(emulator::Unit::kSixteenBit, 10));
    const Result result = Ravo({"doctor", "--timeout", "10"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Lines(result, "ports"), "ok       ports: /dev/ttyACM0 /dev/ttyACM2 /dev/ttyACM10\n");
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer").rfind("failed   ", 0), 0U) << result.out;
    EXPECT_EQ(Lines(result, "/dev/ttyACM2 answer").rfind("ok       ", 0), 0U) << result.out;
    EXPECT_EQ(Lines(result, "/dev/ttyACM10 answer"),
              "ok       /dev/ttyACM10 answer: not asked: the simulator is found\n");
    EXPECT_NE(result.out.find("\nSimulator ready on /dev/ttyACM2.\n"), std::string::npos)
        << result.out;
    EXPECT_EQ(second.Seen().Count().hostOpenings, 0U);
    ExpectNothingLeft(modem);
}

TEST_F(DoctorTest, PortIsTheOnlyOneLookedAt) {
    emulator::Simulator zero(Unit());
    emulator::Simulator four(Unit(emulator::Unit::kSixteenBit, 4));
    const Result result = Doctor({"--port", "4"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.find("/dev/ttyACM0"), std::string::npos) << result.out;
    EXPECT_EQ(zero.Seen().Count().hostOpenings, 0U);
}

// ---- The node -----------------------------------------------------------------------------------

TEST_F(DoctorTest, NoDevice) {
    const Result result = Doctor();
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out.rfind("ravo 1.0.5.4, " + Kernel() +
                                   "\n"
                                   "failed   ports: there is no /dev/ttyACM*\n"
                                   "           Plug the simulator in and switch it on.\n"
                                   "           If it is plugged in, ",
                               0),
              0U)
        << result.out;
    EXPECT_NE(result.out.find("           Without a simulator, run ravo under ravo-emulator.\n"
                              "ok       lock directory: /var/lock may be written\n"
                              "No usable simulator found.\n"),
              std::string::npos)
        << result.out;
}

TEST_F(DoctorTest, DeviceOnAnotherPort) {
    emulator::Simulator simulator(Unit());
    const Result result = Doctor({"--port", "3"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(
        Lines(result, "ports")
            .rfind("failed   ports: there is no /dev/ttyACM3, but there is /dev/ttyACM0\n", 0),
        0U)
        << result.out;
    EXPECT_EQ(simulator.Seen().Count().hostOpenings, 0U);
}

TEST_F(DoctorTest, PermissionComesFromAGroup) {
    const group* some = ::getgrgid(1);
    emulator::Simulator simulator(Unit());
    if (::geteuid() != 0 || some == nullptr) {
        GTEST_SKIP() << "only root can give a port to a group that is not his";
    }
    ASSERT_EQ(::chown("/dev/ttyACM0", 0, 1), 0);
    ASSERT_EQ(::chmod("/dev/ttyACM0", 0660), 0);
    const Result result = RavoAsOrdinaryUser({"doctor"});
    if (result.status == 126) {
        GTEST_SKIP() << "other users may not run what was built here";
    }
    const std::string name = some->gr_name;
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 permission")
                  .rfind("failed   /dev/ttyACM0 permission: nobody may not use it: it is for root "
                         "and the group " +
                             name +
                             ", mode 0660\n"
                             "           Join the group and log in again: sudo usermod -aG " +
                             name + " nobody\n           Or: ",
                         0),
              0U)
        << result.out;
    EXPECT_NE(Lines(result, "/dev/ttyACM0 permission").find("70-ravo.rules"), std::string::npos);
    EXPECT_EQ(simulator.Seen().Count().hostOpenings, 0U);
}

TEST_F(DoctorTest, PermissionThatNoGroupGives) {
    emulator::Simulator simulator(Unit());
    ASSERT_EQ(::chmod("/dev/ttyACM0", 0), 0);
    const Result result = RavoAsOrdinaryUser({"doctor"});
    if (result.status == 126) {
        GTEST_SKIP() << "other users may not run what was built here";
    }
    EXPECT_EQ(result.status, 3) << result.err;
    const std::string lines = Lines(result, "/dev/ttyACM0 permission");
    EXPECT_NE(lines.find(", mode 0000\n"), std::string::npos) << lines;
    EXPECT_NE(lines.find("70-ravo.rules"), std::string::npos) << lines;
    EXPECT_EQ(lines.find("usermod"), std::string::npos) << lines;
    EXPECT_NE(result.out.find("\nNo usable simulator found.\n"), std::string::npos);
}

// ---- Other programs -----------------------------------------------------------------------------

TEST_F(DoctorTest, PortHeldByAnotherProgram) {
    emulator::Simulator simulator(Unit());
    ::prctl(PR_SET_NAME, "holder");
    const HostLine holder("/dev/ttyACM0");
    ASSERT_TRUE(holder.IsOpen());
    ASSERT_TRUE(simulator.Seen().WaitFor(
        [](const emulator::Counters& count) { return count.hostOpenings == 1; }, kPatience));
    const Result result = Doctor();
    const std::string id = std::to_string(::getpid());
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 use"),
              "failed   /dev/ttyACM0 use: held by holder (process " + id +
                  ")\n           End it, or make it release the port: kill " + id + "\n");
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer"),
              "warning  /dev/ttyACM0 answer: not asked, because of the finding above\n");
    EXPECT_EQ(simulator.Seen().Count().bytes, 0U);
    EXPECT_EQ(simulator.Seen().Count().hostOpenings, 1U);
}

// Root may open ports that others have opened exclusively, and sees who they are.
TEST_F(DoctorTest, PortOpenedForOneProgramAlone) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "the holder must be somebody whose files may not be looked at";
    }
    emulator::Simulator simulator(Unit());
    const HostLine holder("/dev/ttyACM0");
    ASSERT_EQ(::ioctl(holder.Handle(), TIOCEXCL), 0);
    ASSERT_EQ(::chmod("/dev/ttyACM0", 0666), 0);
    const Result result = RavoAsOrdinaryUser({"doctor"});
    if (result.status == 126) {
        GTEST_SKIP() << "other users may not run what was built here";
    }
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_TRUE(std::regex_search(
        result.out,
        std::regex("use: no program holds it; [0-9]+ processes of other users could not be "
                   "inspected\n")))
        << result.out;
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer"),
              "failed   /dev/ttyACM0 answer: a program that cannot be inspected has opened it "
              "exclusively\n           See which one: sudo ravo doctor\n");
    EXPECT_EQ(simulator.Seen().Count().bytes, 0U);
}

TEST_F(DoctorTest, DoesNotDisturbAPlay) {
    emulator::Settings settings = Unit();
    settings.bufferBytes = 16 * emulator::kBufferBytes;
    emulator::Simulator simulator(settings);
    Process play("ravo", {"play", "sine", "--seconds", "600"});
    ASSERT_TRUE(simulator.Seen().WaitForFrames(300, kPatience));
    const auto before = simulator.Seen().Count();
    const Result result = Doctor();
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 use")
                  .rfind("failed   /dev/ttyACM0 use: held by ravo (process ", 0),
              0U)
        << result.out;
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 lock")
                  .rfind(std::string("failed   /dev/ttyACM0 lock: ") + kLock +
                             " belongs to ravo (process ",
                         0),
              0U)
        << result.out;
    ASSERT_TRUE(simulator.Seen().WaitForFrames(before.frames + 300, kPatience));
    EXPECT_EQ(simulator.Seen().Count().hostOpenings, before.hostOpenings);
    EXPECT_EQ(simulator.Seen().Count().unknownBytes, before.unknownBytes);
    play.Signal(SIGINT);
    EXPECT_EQ(play.Wait().status, 130);
}

// ---- Calibration --------------------------------------------------------------------------------

TEST_F(DoctorTest, CalibrationThatIsMissing) {
    emulator::Simulator simulator(Unit(emulator::Unit::kTwelveBit));
    const Result result = Doctor();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 calibration"),
              "warning  /dev/ttyACM0 calibration: /usr/local/tarnwick/ravo/RAVO_DAC05-170042.txt "
              "is missing: voltages stay uncorrected\n           Install the file that came with "
              "the simulator.\n");
    EXPECT_NE(result.out.find("\nSimulator ready on /dev/ttyACM0.\n"), std::string::npos);
}

TEST_F(DoctorTest, CalibrationOfALegacyUnit) {
    emulator::Simulator simulator(Unit(emulator::Unit::kLegacy));
    const Result result = Doctor();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 calibration")
                  .rfind("warning  /dev/ttyACM0 calibration: "
                         "/usr/local/tarnwick/ravo/RAVO_DAC1603042.txt is missing: ",
                         0),
              0U)
        << result.out;
}

TEST_F(DoctorTest, CalibrationThatIsRight) {
    const std::string path = "/usr/local/tarnwick/ravo/RAVO_DAC05-170042.txt";
    ASSERT_TRUE(emulator::ConverterModel::Uncalibrated().WriteCalibrationFile(path));
    emulator::Simulator simulator(Unit(emulator::Unit::kTwelveBit));
    const Result result = Doctor();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 calibration"),
              "ok       /dev/ttyACM0 calibration: " + path + "\n");
}

TEST_F(DoctorTest, CalibrationOfTheWrongShape) {
    const std::string path = "/usr/local/tarnwick/ravo/RAVO_DAC05-170042.txt";
    std::string content;
    for (int line = 1; line <= 4096; ++line) {
        content += line == 17 ? "0,0,0,0,0,0,0\n" : "0,0,0,0,0,0,0,0\n";
    }
    WriteFile(path, content);
    emulator::Simulator simulator(Unit(emulator::Unit::kTwelveBit));
    const Result result = Doctor();
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(Lines(result, "/dev/ttyACM0 calibration"),
              "failed   /dev/ttyACM0 calibration: " + path +
                  " line 17 holds 7 numbers; expected: 4096 lines of 8 numbers, separated by "
                  "commas or blanks\n           Install the file that came with the simulator.\n");
    EXPECT_NE(result.out.find(
                  "\nSimulator ready on /dev/ttyACM0, but its calibration file is unusable.\n"),
              std::string::npos)
        << result.out;
}

TEST_F(DoctorTest, CalibrationThatIsNoFile) {
    const std::string path = "/usr/local/tarnwick/ravo/RAVO_DAC05-170042.txt";
    fs::create_directory(path);
    emulator::Simulator simulator(Unit(emulator::Unit::kTwelveBit));
    const Result result = Doctor();
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(
        Lines(result, "/dev/ttyACM0 calibration"),
        "failed   /dev/ttyACM0 calibration: " + path +
            " cannot be read: not an ordinary file\n           Install the file that came with "
            "the simulator.\n");
}
