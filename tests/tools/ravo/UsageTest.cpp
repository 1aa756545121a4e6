#include "CommandLine.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(UsageTest, VersionIsTheLibrarys) {
    const Result result = Ravo({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "ravo 1.0.5.4\n");
    EXPECT_EQ(result.err, "");
}

TEST(UsageTest, HelpNamesEveryCommandAndTheExitStatus) {
    const Result result = Ravo({"--help"});
    EXPECT_EQ(result.status, 0);
    for (const char* command : {"devices", "doctor", "info", "play", "plot", "compare", "convert",
                                "annotations", "nst", "score"}) {
        EXPECT_TRUE(Contains(result.out, std::string("\n  ") + command + " ")) << command;
    }
    EXPECT_TRUE(Contains(result.out, "Exit status: 0 done, 1 wrong command line"));
    EXPECT_EQ(result.err, "");
}

class UsageErrorTest : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(UsageErrorTest, IsRefusedOnStandardErrorOnly) {
    const Result result = Ravo(GetParam());
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err, "");
}

INSTANTIATE_TEST_SUITE_P(
    Wrong, UsageErrorTest,
    testing::Values(
        std::vector<std::string>{}, std::vector<std::string>{"dance"},
        std::vector<std::string>{"--loud"}, std::vector<std::string>{"info"},
        std::vector<std::string>{"info", "sine", "extra"},
        std::vector<std::string>{"info", "sine", "--colour"},
        std::vector<std::string>{"info", "sine", "--format", "mp3"},
        std::vector<std::string>{"info", "sine", "--frequency", "0.004"},
        std::vector<std::string>{"info", "sine", "--frequency", "101"},
        std::vector<std::string>{"info", "sine", "--frequency", "nan"},
        std::vector<std::string>{"info", "sine", "--amplitude", "11"},
        std::vector<std::string>{"info", "sine", "--amplitude", "1,2,3"},
        std::vector<std::string>{"info", "calibration", "--amplitude", "1,2,3,4,5,6,7,8"},
        std::vector<std::string>{"info", "triangle-pulse", "--width", "0"},
        std::vector<std::string>{"info", "sine", "--map", "0=I"},
        std::vector<std::string>{"info", "builtin:CAL10000", "--frequency", "2"},
        std::vector<std::string>{"info", "builtin:CAL10000", "--amplitude", "2"},
        std::vector<std::string>{"info", "builtin:CAL10000", "--width", "2"},
        std::vector<std::string>{"info", "sine", "--format", "wfdb"},
        std::vector<std::string>{"info", "builtin:CAL10000", "--format", "cse"},
        std::vector<std::string>{"info", "sine", "--width", "5"},
        std::vector<std::string>{"info", "calibration", "--width", "5"},
        std::vector<std::string>{"info", "staircase", "--frequency", "2"},
        std::vector<std::string>{"info", "staircase", "--amplitude", "2"},
        std::vector<std::string>{"info", "staircase", "--width", "5"},
        std::vector<std::string>{"info", "sine", "--snr", "6"},
        std::vector<std::string>{"info", "sine", "--noise-record", "n", "--snr", "6"},
        std::vector<std::string>{"play"}, std::vector<std::string>{"play", "sine", "--start", "-1"},
        std::vector<std::string>{"play", "sine", "--start", "1:75"},
        std::vector<std::string>{"play", "sine", "--start", "1e1"},
        std::vector<std::string>{"play", "sine", "--seconds", "0"},
        std::vector<std::string>{"play", "sine", "--seconds", "-3"},
        std::vector<std::string>{"play", "sine", "--seconds", "nan"},
        std::vector<std::string>{"play", "sine", "--seconds", "inf"},
        std::vector<std::string>{"play", "sine", "--speed-up", "nan"},
        std::vector<std::string>{"play", "sine", "--port", "128"},
        std::vector<std::string>{"play", "sine", "--speed-up", "0"},
        std::vector<std::string>{"devices", "--port", "x"},
        std::vector<std::string>{"devices", "--timeout", "0"},
        std::vector<std::string>{"doctor", "--port", "128"},
        std::vector<std::string>{"doctor", "--timeout", "0"},
        std::vector<std::string>{"doctor", "/dev/ttyACM0"},
        std::vector<std::string>{"plot", "sine"},
        std::vector<std::string>{"plot", "sine", "-o", "a.png", "--speed", "30"},
        std::vector<std::string>{"plot", "sine", "-o", "a.png", "--paper-gain", "7"},
        std::vector<std::string>{"plot", "sine", "-o", "a.png", "--layout", "2x6"},
        std::vector<std::string>{"plot", "sine", "-o", "a.png", "--seconds", "0"},
        std::vector<std::string>{"plot", "sine", "-o", "a.gif"},
        std::vector<std::string>{"plot", "sine", "-o", "a.png", "--lead", "V9"},
        std::vector<std::string>{"plot", "sine", "-o", "a.png", "--lead", "II", "--layout", "3x4"},
        std::vector<std::string>{"compare", "sine"}, std::vector<std::string>{"convert", "a.edf"},
        std::vector<std::string>{"convert", "a.edf", ".", "--format", "mp3"},
        std::vector<std::string>{"convert", "sine", ".", "--name", "a/b"},
        std::vector<std::string>{"info", "sine", "--gain", "V7=2"},
        std::vector<std::string>{"info", "sine", "--rate", "100"},
        std::vector<std::string>{"info", "sine", "--as-edf"},
        std::vector<std::string>{"nst", "a", "-o", "b", "--snr", "6"},
        std::vector<std::string>{"nst", "a", "n", "-o", "b"},
        std::vector<std::string>{"nst", "a", "n", "--snr", "6"}));

TEST(UsageTest, WhatIsNoCommandIsNamed) {
    for (const char* word : {"dance", "--loud"}) {
        const Result result = Ravo({word});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "ravo: " + std::string(word) +
                                  ": is neither a command nor an option of ravo itself.\n"
                                  "      `ravo --help` lists them.\n");
    }
    EXPECT_NE(Ravo({}).err.find("ravo: COMMAND: is missing.\n"), std::string::npos);
}

TEST(UsageTest, AnOptionThatDoesNotFitIsRefusedInOneSentence) {
    EXPECT_EQ(Ravo({"info", "sine", "--width", "5"}).err,
              "ravo: --width: has no meaning for the waveform sine.\n");
    EXPECT_EQ(Ravo({"info", "staircase", "--frequency", "2"}).err,
              "ravo: --frequency: has no meaning for the waveform staircase.\n");
    EXPECT_EQ(Ravo({"info", "builtin:CAL10000", "--width", "5"}).err,
              "ravo: --width: is for waveforms.\n");
    EXPECT_EQ(Ravo({"info", "sine", "--format", "wfdb"}).err,
              "ravo: --format: is for files, which sine is not.\n"
              "      To name such a file, give ./sine.\n");
    EXPECT_EQ(Ravo({"plot", "sine", "-o", "a.png", "--lead", "II", "--layout", "6x2"}).err,
              "ravo: --lead: is for strips; the layout 6x2 has all leads.\n");
}

TEST(UsageTest, AnOptionThatFitsIsTaken) {
    for (const char* pulse : {"rectangle-pulse", "triangle-pulse"}) {
        const Result result = Ravo({"info", pulse, "--width", "5", "--frequency", "2"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(Contains(result.out, ", 2 Hz, 1 mV, 5 ms")) << result.out;
    }
    EXPECT_EQ(Ravo({"info", "calibration", "--frequency", "2", "--amplitude", "2"}).status, 0);
}

TEST(UsageTest, AFileMayHaveAWaveformsName) {
    const Scratch directory;
    directory.Write("sine", "100\n2\nstart\nLead II\n1000\n0\n");
    const Result result = Ravo({"info", "./sine", "--format", "native"}, directory.Path());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(Contains(result.out, "./sine (native)\n")) << result.out;
}

TEST(UsageTest, BoundsAreWrittenOut) {
    EXPECT_EQ(Ravo({"play", "sine", "--seconds", "1e9"}).err,
              "ravo play: --seconds: \"1e9\" is not a number from 0.001 to 100000000.\n"
              "      `ravo play --help` shows its use.\n");
    EXPECT_TRUE(Contains(Ravo({"compare", "a", "b", "--tolerance", "0"}).err,
                         "is not a number from 0.000001 to 1000000.\n"));
    EXPECT_TRUE(Contains(Ravo({"info", "sine", "--frequency", "101"}).err, "from 0.01 to 100.\n"));
}

TEST(UsageTest, TheParserSpeaksAsTheCommandsDo) {
    const std::string help = "\n      `ravo play --help` shows its use.\n";
    EXPECT_EQ(Ravo({"play"}).err, "ravo play: MATERIAL: is missing." + help);
    EXPECT_EQ(Ravo({"play", "sine", "--port", "1.5"}).err,
              "ravo play: --port: \"1.5\" is not a whole number from 0 to 127." + help);
    EXPECT_EQ(
        Ravo({"play", "sine", "--start", "1:75"}).err,
        "ravo play: --start: \"1:75\" is not a time from 0 to 1000000 seconds: 90, 90.5, 1:30 "
        "or 0:01:30." +
            help);
    EXPECT_EQ(Ravo({"play", "sine", "--seconds"}).err,
              "ravo play: --seconds: needs a value." + help);
    EXPECT_EQ(Ravo({"play", "sine", "extra"}).err, "ravo play: extra: was not expected." + help);
    EXPECT_EQ(Ravo({"info", "sine", "--format", "mp3"})
                  .err.rfind("ravo info: --format: \"mp3\" is not one of wfdb, ", 0),
              0U);
}

TEST(UsageTest, ANearMissIsAnsweredWithAHint) {
    EXPECT_EQ(Ravo({"pley"}).err, "ravo: pley: is neither a command nor an option of ravo itself.\n"
                                  "      Did you mean play?\n");
    EXPECT_EQ(Ravo({"play", "sine", "--secnds", "3"}).err,
              "ravo play: --secnds: is not an option of this command.\n"
              "      Did you mean --seconds?\n");
}

TEST(UsageTest, HelpAndVersionAreWordsToo) {
    EXPECT_EQ(Ravo({"version"}).out, "ravo 1.0.5.4\n");
    EXPECT_EQ(Ravo({"help"}).out, Ravo({"--help"}).out);
    EXPECT_EQ(Ravo({"help", "play"}).out, Ravo({"play", "--help"}).out);
}

TEST(UsageTest, AFailureIsJsonWhereTheResultWouldBe) {
    const Result parser = Ravo({"info", "--json", "sine", "--width", "x"});
    EXPECT_EQ(parser.status, 1);
    EXPECT_EQ(parser.out, "{\"error\":{\"status\":1,\"where\":\"--width\",\"problem\":"
                          "\"\\\"x\\\" is not a whole number from 1 to 100000.\","
                          "\"cure\":\"`ravo info --help` shows its use.\"}}\n");
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"info", "/none/a.hea", "--json"},
          std::vector<std::string>{"play", "/none/a.hea", "--json"},
          std::vector<std::string>{"compare", "/none/a.hea", "/none/a.hea", "--json"}}) {
        const Result result = Ravo(words);
        EXPECT_EQ(result.status, 2) << words.front();
        EXPECT_EQ(result.out, "{\"error\":{\"status\":2,\"where\":\"/none/a.hea\",\"problem\":"
                              "\"cannot be opened: No such file or directory.\","
                              "\"cure\":\"Check the path.\"}}\n")
            << words.front();
        EXPECT_EQ(result.err.rfind("ravo: /none/a.hea: cannot be opened", 0), 0U) << result.err;
    }
}

TEST(UsageTest, MissingFilesAreToldApart) {
    const Scratch directory;
    const std::string missing = ": cannot be opened: No such file or directory.\n      ";
    EXPECT_EQ(Ravo({"info", "sinus"}).err,
              "ravo: sinus" + missing +
                  "Check the path; a waveform is given by its name, such as sine.\n");
    EXPECT_EQ(Ravo({"info", ""}).err,
              "ravo: \"\"" + missing +
                  "Check the path; a waveform is given by its name, such as sine.\n");
    EXPECT_EQ(Ravo({"info", "/none/a.hea"}).err,
              "ravo: /none/a.hea" + missing + "Check the path.\n");
    const std::string header =
        directory.Write("a.hea", "a 1 250 2\nb.dat 16 1000/mV 16 0 0 0 0 I\n");
    EXPECT_EQ(Ravo({"info", header}).err, "ravo: " + directory / "b.dat" + missing + "The header " +
                                              header +
                                              " names it; it must lie in the same folder.\n");
}

class LostResultTest : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(LostResultTest, IsAFailure) {
    for (const char* stream : {">/dev/full", ">&-"}) {
        const Result result = ByShell("ravo", GetParam(), stream);
        EXPECT_EQ(result.status, 6) << stream;
        EXPECT_EQ(result.err.rfind("ravo: standard output: cannot be written", 0), 0U)
            << stream << result.err;
    }
}

INSTANTIATE_TEST_SUITE_P(Commands, LostResultTest,
                         testing::Values(std::vector<std::string>{"--version"},
                                         std::vector<std::string>{"--help"},
                                         std::vector<std::string>{"list"},
                                         std::vector<std::string>{"info", "sine", "--json"}));

TEST(UsageTest, SeveralRatiosAreForAnotherCommand) {
    EXPECT_EQ(Ravo({"play", "a.hea", "--noise-record", "n", "--snr", "6,12"}).err,
              "ravo play: --snr: \"6,12\" is more than one ratio.\n"
              "      One record is mixed with one noise at one ratio; `ravo nst` mixes several "
              "noises, each at its own, into a record to play.\n");
}

TEST(UsageTest, OptionsOfMaterialAreTheSameEverywhere) {
    for (const char* command : {"info", "play", "plot", "compare", "convert"}) {
        const Result result = Ravo({command, "--help"});
        EXPECT_EQ(result.status, 0);
        for (const char* option : {"--format", "--map", "--frequency", "--amplitude", "--width",
                                   "--noise-record", "--snr", "--noise", "--gain", "--offset",
                                   "--missing", "--rate", "--unit", "--as-edf"}) {
            EXPECT_TRUE(Contains(result.out, option)) << command << " " << option;
        }
    }
}

TEST(MakeRecordTest, WritesBothFilesOfARecord) {
    const Scratch directory;
    const Result result = MakeRecord({directory / "demo.hea", "--seconds", "2"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(ReadFile(directory / "demo.dat").size(), 2U * 500U * 8U * 2U);
    EXPECT_EQ(ReadFile(directory / "demo.hea").rfind("demo 8 500 1000\n", 0), 0U);
}

TEST(MakeRecordTest, RefusesWhatItCannotDo) {
    EXPECT_EQ(MakeRecord({}).status, 1);
    EXPECT_EQ(MakeRecord({"x", "--format", "80"}).status, 1);
    EXPECT_EQ(MakeRecord({"x", "--seconds", "0"}).status, 1);
    const Result result = MakeRecord({"/no/such/place/demo"});
    EXPECT_EQ(result.status, 6);
    EXPECT_NE(result.err.find("/no/such/place/demo"), std::string::npos);
}

TEST(MakeRecordTest, RefusesWhatIsNoRecordsName) {
    const Scratch directory;
    for (const char* name : {"", "a b", "a.b", ".hea"}) {
        const std::string path = directory / name;
        const Result result = MakeRecord({path});
        EXPECT_EQ(result.status, 1) << path;
        EXPECT_EQ(result.err, "ravo-make-record: \"" + path +
                                  "\" names no record: letters, digits, - and _ are allowed.\n");
    }
    EXPECT_EQ(MakeRecord({""}).status, 1);
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
}

TEST(MakeRecordTest, ALostResultIsAFailure) {
    for (const char* stream : {">/dev/full", ">&-"}) {
        for (const char* option : {"--help", "--version"}) {
            const Result result = ByShell("ravo-make-record", {option}, stream);
            EXPECT_EQ(result.status, 6) << stream << option;
            EXPECT_EQ(result.err.rfind("ravo-make-record: standard output: cannot be written: ", 0),
                      0U)
                << result.err;
        }
    }
}

TEST(MakeRecordTest, NeedsNoStandardStream) {
    const Scratch directory;
    const Result result = ByShell("ravo-make-record", {directory / "demo"}, "<&- >&- 2>&-");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(ReadFile(directory / "demo.dat").size(), 10U * 500U * 8U * 2U);
}

TEST(PlayScriptTest, TellsItsUse) {
    for (const char* option : {"-h", "--help"}) {
        const Result result = Process(RAVO_PLAY_SCRIPT, {option}).Wait();
        EXPECT_EQ(result.status, 0) << option;
        EXPECT_EQ(result.out.rfind("Plays a record on the emulated simulator", 0), 0U)
            << result.out;
        EXPECT_TRUE(Contains(result.out, "\n  ./play RECORD --seconds S "));
        EXPECT_FALSE(Contains(result.out, "set -euo"));
        EXPECT_EQ(result.err, "");
    }
}
