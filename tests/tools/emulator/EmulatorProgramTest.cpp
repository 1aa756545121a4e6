// ravo-emulator as its users meet it: exit status, lines, files.
#include "tests/support/Files.h"
#include "tests/support/RecordFile.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Outcome {
    int status = -1;
    std::string output; // of both streams
};

Outcome Shell(const std::string& command) {
    Outcome outcome;
    std::FILE* pipe = popen(("{ " + command + " ; } 2>&1").c_str(), "r");
    std::array<char, 4096> piece{};
    for (std::size_t count = 1; count > 0;) {
        count = std::fread(piece.data(), 1, piece.size(), pipe);
        outcome.output.append(piece.data(), count);
    }
    const int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

class EmulatorProgram : public testing::Test {
  protected:
    Outcome Run(const std::string& arguments) const {
        return Shell("cd " + m_directory.Path() + " && " RAVO_EMULATOR_PROGRAM " " + arguments);
    }

    // A start command, one buffer of twelve-bit frames with code 2148 in every channel, a stop.
    void WritePlay(const std::string& name) const {
        std::ofstream file(m_directory / name, std::ios::binary);
        file << std::string("\x00\xD1\x6F\x05", 4);
        for (int packet = 0; packet < 50; ++packet) {
            std::string bytes(64, '\0');
            bytes[0] = 1;
            bytes[1] = static_cast<char>(packet);
            bytes[2] = packet == 5 ? 'E' : '\0';
            for (std::size_t frame = 0; frame < 5; ++frame) {
                // 2148 = 0b100001100100
                for (const std::size_t plane : {0U, 5U, 6U, 9U}) {
                    bytes[4 + frame * 12 + plane] = '\xFF';
                }
            }
            file << bytes;
        }
        file << 'S';
    }

    Scratch m_directory;
};

TEST_F(EmulatorProgram, GivesTheCommandADeviceAndPassesItsStatusOn) {
    const Outcome outcome = Run("--port 7 -- sh -c 'test -e /dev/ttyACM7 && exit 42'");
    EXPECT_EQ(outcome.status, 42);
    EXPECT_EQ(outcome.output, "");
    EXPECT_FALSE(std::filesystem::exists("/dev/ttyACM7"));
}

TEST_F(EmulatorProgram, HidesTheLocksAndCalibrationsOutside) {
    std::ofstream("/var/lock/outside") << "x";
    EXPECT_EQ(Run("-- sh -c 'ls /var/lock /usr/local/tarnwick'").output,
              "/usr/local/tarnwick:\nravo\n\n/var/lock:\n");
    std::filesystem::remove("/var/lock/outside");
}

TEST_F(EmulatorProgram, StatusesOfTheirOwn) {
    EXPECT_EQ(Run("-- ./nonesuch").status, 127);
    EXPECT_EQ(Run("-- /").status, 126);
    EXPECT_EQ(Run("-- sh -c 'kill -9 $$'").status, 137);
    EXPECT_EQ(Run("--port 999 -- true").status, 125);
    EXPECT_EQ(Run("--nonesuch -- true").status, 125);
    EXPECT_EQ(Run("--flash 64=0 -- true").status, 125);
    EXPECT_EQ(Run("--flash 8=21x -- true").status, 125);
    EXPECT_EQ(Run("--identity 5 -- true").status, 125);
    EXPECT_EQ(Run("--fault nonesuch -- true").status, 125);
    EXPECT_EQ(Run("--fault '@x vanish' -- true").status, 125);
    EXPECT_EQ(Run("--fault '@99 nonesuch' -- true").status, 125);
    EXPECT_EQ(Run("--fault '@0.1 truncate x' -- sleep 60").status, 125);
    EXPECT_EQ(Run("--help").status, 0);
    EXPECT_EQ(Run("--version").status, 0);
}

TEST_F(EmulatorProgram, AFailureIsOneSentence) {
    EXPECT_EQ(Run("--flash 64=0 -- true").output,
              "ravo-emulator: --flash '64=0': POSITION=VALUE is expected, 0 to 63 and 0 to 255\n");
}

TEST_F(EmulatorProgram, ANumberThatIsNoneIsRefusedReadably) {
    const std::string more = "\nRun with --help for more information.\n";
    for (const char* number : {"-1", "nan", "inf", "x"}) {
        const Outcome speed = Run("--speed " + std::string(number) + " -- true");
        EXPECT_EQ(speed.status, 125);
        EXPECT_EQ(speed.output,
                  "--speed: \"" + std::string(number) + "\" is not a number of 0 or more" + more);
        const Outcome range = Run("--range " + std::string(number) + " -- true");
        EXPECT_EQ(range.status, 125);
        EXPECT_EQ(range.output,
                  "--range: \"" + std::string(number) + "\" is not a number above 0" + more);
    }
    EXPECT_EQ(Run("--range 0 -- true").status, 125);
    EXPECT_EQ(Run("--speed 0 --range 0.5 -- true").status, 0);
}

TEST_F(EmulatorProgram, WritesTheOutputsAsARecord) {
    WritePlay("play");
    const Outcome outcome =
        Run("--unit 12 --speed 0 -o out --summary -- sh -c 'cat play > /dev/ttyACM0'");
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("250 in 50 packets, 0 sequence gaps, 1 marker bytes"),
              std::string::npos)
        << outcome.output;
    const RecordFile record = ReadRecordFile(m_directory / "out.hea");
    EXPECT_EQ(record.rate, 500.0);
    EXPECT_EQ(record.frames, 250U);
    for (const RecordFile::Signal& signal : record.signals) {
        EXPECT_EQ(signal.samples, std::vector<std::int16_t>(250, 1600));
    }
}

TEST_F(EmulatorProgram, WritesTheFiguresAsJson) {
    WritePlay("play");
    const Outcome outcome = Run("--unit 12 --speed 0 --json - -- sh -c 'cat play > /dev/ttyACM0'");
    EXPECT_EQ(outcome.status, 0);
    for (const char* figure :
         {"\"frames\": 250", "\"packets\": 50", "\"sequenceGaps\": 0", "\"markers\": 1",
          "\"underruns\": 0", "\"stops\": 1", "\"framesPerSecond\": 500", "\"unknownBytes\": 0"}) {
        EXPECT_NE(outcome.output.find(figure), std::string::npos) << figure << outcome.output;
    }
    ASSERT_EQ(Run("--json figures -- true").status, 0);
    const std::string text = ReadFile(m_directory / "figures");
    EXPECT_EQ(text.rfind("{\"starts\": 0,", 0), 0U);
}

TEST_F(EmulatorProgram, AnOutputThatCannotBeWrittenIsAFailure) {
    WritePlay("play");
    std::filesystem::create_symlink("/dev/full", m_directory / "out.dat");
    const Outcome outcome = Run("--unit 12 --speed 0 -o out -- sh -c 'cat play > /dev/ttyACM0'");
    EXPECT_EQ(outcome.status, 125);
    EXPECT_EQ(outcome.output, "ravo-emulator: cannot write out.dat: No space left on device\n");
    EXPECT_EQ(Run("--json none/figures -- true").status, 125);
}

TEST_F(EmulatorProgram, AMissingDirectoryIsAFailureBeforeTheCommandRuns) {
    const Outcome outcome = Run("-o none/out -- touch ran");
    EXPECT_EQ(outcome.status, 125);
    EXPECT_EQ(outcome.output, "ravo-emulator: cannot write none/out: No such file or directory\n");
    EXPECT_FALSE(std::filesystem::exists(m_directory / "ran"));
}

TEST_F(EmulatorProgram, AStandardOutputThatCannotBeWrittenIsAFailure) {
    const std::string failure = "ravo-emulator: standard output: cannot be written: ";
    for (const char* arguments :
         {"--help", "--version", "--summary -- true", "--json - -- true", "--control sock"}) {
        for (const char* stream : {" >/dev/full", " >&-"}) {
            const Outcome outcome = Run(arguments + std::string(stream));
            EXPECT_EQ(outcome.status, 125) << arguments << stream;
            EXPECT_EQ(outcome.output.rfind(failure, 0), 0U) << arguments << outcome.output;
        }
    }
    EXPECT_EQ(Run("--summary -- true >/dev/full").output, failure + "No space left on device.\n");
    EXPECT_EQ(Run("-- sh -c 'exit 3' >&-").status, 3); // nothing to write, nothing lost
}

TEST_F(EmulatorProgram, AnOutputThatIsNoRecordNameIsAFailureBeforeTheCommandRuns) {
    const Outcome outcome = Run("-o 'my outputs' -- touch ran");
    EXPECT_EQ(outcome.status, 125);
    EXPECT_EQ(
        outcome.output,
        "ravo-emulator: 'my outputs' names no record: letters, digits, - and _ are allowed\n");
    EXPECT_TRUE(std::filesystem::is_empty(m_directory.Path()));
}

TEST_F(EmulatorProgram, AnUncalibratedUnitComesWithItsFile) {
    EXPECT_EQ(Run("--unit 12 --uncalibrated -- sh -c 'cat /usr/local/tarnwick/ravo/* | wc -l; ls "
                  "/usr/local/tarnwick/ravo'")
                  .output,
              "4096\nRAVO_DAC05-170042.txt\n");
    EXPECT_EQ(Run("--unit legacy --uncalibrated -- ls /usr/local/tarnwick/ravo").output,
              "RAVO_DAC1603042.txt\n");
    EXPECT_EQ(
        Run("--unit 12 --uncalibrated --no-calibration-file -- ls /usr/local/tarnwick/ravo").output,
        "");
    EXPECT_EQ(Run("--unit 12 --uncalibrated --flash 10=16 --flash 9=3 -- ls "
                  "/usr/local/tarnwick/ravo")
                  .output,
              "RAVO_DAC1603042.txt\n");
}

TEST_F(EmulatorProgram, CarriesOutFaultsAtTheirTime) {
    const auto begin = std::chrono::steady_clock::now();
    const Outcome outcome =
        Run("--fault '@0.5 vanish' -- sh -c "
            "'for i in $(seq 600); do test -e /dev/ttyACM0 || exit 0; sleep 0.05; done; exit 2'");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
}

TEST_F(EmulatorProgram, NoticesTheCommandsEndAlsoWhereItsParentIgnoresSuch) {
    EXPECT_EQ(Shell("env --ignore-signal=CHLD " RAVO_EMULATOR_PROGRAM " -- sh -c 'exit 3'").status,
              3);
}

TEST_F(EmulatorProgram, ListensOnItsControlSocket) {
    const Outcome outcome =
        Run("--control sock -- sh -c '" RAVO_EMULATOR_PROGRAM
            " --tell sock vanish; test -e /dev/ttyACM0; echo $?; " RAVO_EMULATOR_PROGRAM
            " --tell sock nonesuch'");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "ok\n1\nerror: nonesuch: no such command; the help of ravo-emulator "
                              "lists them\n");
    EXPECT_EQ(Run("--tell sock vanish").status, 125);
}

TEST_F(EmulatorProgram, ServesUntilItIsInterrupted) {
    const Outcome outcome = Shell("cd " + m_directory.Path() +
                                  " && exec 3>&1 && " RAVO_EMULATOR_PROGRAM
                                  " --port 3 --control sock >path & process=$!; "
                                  "until " RAVO_EMULATOR_PROGRAM " --tell " +
                                  m_directory / "sock" +
                                  " count >/dev/null 2>&1; do sleep 0.05; done; "
                                  "kill -INT $process; wait $process");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("nsenter --target "), std::string::npos) << outcome.output;
    std::ifstream path(m_directory / "path");
    std::string line;
    EXPECT_TRUE(std::getline(path, line));
    EXPECT_EQ(line, "/dev/ttyACM3");
}

TEST_F(EmulatorProgram, AnInterruptIsPassedOnToTheCommand) {
    const Outcome outcome = Shell(
        "cd " + m_directory.Path() +
        " && " RAVO_EMULATOR_PROGRAM
        " -- sh -c 'trap \"exit 9\" TERM; touch ready; while :; do sleep 0.05; done' & process=$!; "
        "until test -e " +
        m_directory / "ready" +
        "; do sleep 0.05; done; "
        "kill -TERM $process; wait $process");
    EXPECT_EQ(outcome.status, 9);
}

TEST_F(EmulatorProgram, WithoutASandboxItUsesTheDevThatThereIs) {
    EXPECT_EQ(Run("--no-sandbox --port 6 -- sh -c 'test -e /dev/ttyACM6'").status, 0);
    EXPECT_FALSE(std::filesystem::is_symlink("/dev/ttyACM6"));
    std::ofstream("/dev/ttyACM6") << "taken";
    const Outcome outcome = Run("--no-sandbox --port 6 -- true");
    EXPECT_EQ(outcome.status, 125);
    EXPECT_NE(outcome.output.find("/dev/ttyACM6 is taken"), std::string::npos);
    EXPECT_TRUE(std::filesystem::remove("/dev/ttyACM6"));
}

} // namespace
