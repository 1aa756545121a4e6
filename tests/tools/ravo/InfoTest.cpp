#include "CommandLine.h"

#include "tests/support/PublicRecord.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Two signals, three frames at 250 per second.
constexpr const char* kHeader = "two 2 250 3 10:20:30 1/2/2003\n"
                                "two.dat 16 1000/mV 16 0 0 0 0 MLII\n"
                                "two.dat 16 1000/mV 16 0 0 0 0 V5\n";

std::string Bytes(std::initializer_list<int> values) {
    std::string bytes;
    for (const int value : values) {
        bytes += static_cast<char>(static_cast<unsigned char>(value));
    }
    return bytes;
}

class InfoTest : public testing::Test {
  protected:
    // Expects that the material is refused because of the file, with `sentence` about `name`.
    void ExpectRefused(const std::vector<std::string>& arguments, const std::string& name,
                       const std::string& sentence) const {
        std::vector<std::string> all = {"info"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Result result = Ravo(all);
        EXPECT_EQ(result.status, 2) << result.out;
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find("ravo: "), std::string::npos) << result.err;
        EXPECT_NE(result.err.find(name), std::string::npos) << result.err;
        EXPECT_NE(result.err.find(sentence), std::string::npos) << result.err;
    }

    std::string WriteTwo(const std::string& header = kHeader) const {
        m_directory.Write("two.dat", Format16({100, -100, 200, -200, 300, -300}));
        return m_directory.Write("two.hea", header);
    }

    Scratch m_directory;
};

} // namespace

TEST_F(InfoTest, TellsWhatARecordHolds) {
    const std::string path = WriteTwo();
    const Result result = Ravo({"info", path});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out.rfind("record       two\n"
                               "source       " +
                                   path +
                                   " (wfdb)\n"
                                   "date         1/2/2003 10:20:30\n"
                                   "rate         250 samples per second\n"
                                   "length       3 samples, 0.012 s\n"
                                   "leads        II V5\n"
                                   "signals\n"
                                   "  0  MLII             lead II",
                               0),
              0U)
        << result.out;
}

TEST_F(InfoTest, SignalsStandInOneColumn) {
    std::string header = "many 11 100 1\n";
    for (int i = 0; i < 11; ++i) {
        header += "many.dat 16 1000/mV 16 0 0 0 0 I\n";
    }
    m_directory.Write("many.dat", Format16(std::vector<int16_t>(11, 0)));
    const Result result = Ravo({"info", m_directory.Write("many.hea", header)});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("\n   9  I                lead "), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\n  10  I                lead "), std::string::npos) << result.out;
}

TEST_F(InfoTest, JsonIsStable) {
    const std::string path = WriteTwo();
    const Result result = Ravo({"info", path, "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string begin =
        "{\"record\":\"two\",\"source\":\"" + path +
        "\",\"format\":\"wfdb\",\"date\":\"1/2/2003 10:20:30\","
        "\"rate\":250,\"samples\":3,\"seconds\":0.012,"
        "\"leads\":[\"II\",\"V5\"],\"signals\":["
        "{\"description\":\"MLII\",\"lead\":\"II\",\"amplitudeMillivolts\":null}";
    EXPECT_EQ(result.out.rfind(begin, 0), 0U) << result.out;
    const std::string end = "}],\"annotations\":0,\"beats\":0,\"origin\":\"file\",\"missing\":0,"
                            "\"resampledFrom\":null}\n";
    ASSERT_GE(result.out.size(), end.size());
    EXPECT_EQ(result.out.substr(result.out.size() - end.size()), end);
}

TEST_F(InfoTest, JsonIsNullWhereNothingIsKnown) {
    const Result result = Ravo({"info", "sine", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("\"format\":\"waveform\",\"date\":null,\"rate\":1000,"
                              "\"samples\":null,\"seconds\":null,"),
              std::string::npos)
        << result.out;
}

// Alternately 1000 and -1000 in format 212, with an r.m.s. deviation of 1 mV.
TEST_F(InfoTest, AmplitudeIsToldWhenTheRecordIsLongEnough) {
    for (const int windows : {299, 300}) {
        std::string samples;
        for (int pair = 0; pair < windows * 360 / 2; ++pair) {
            samples += Bytes({0xE8, 0xC3, 0x18});
        }
        m_directory.Write("long.dat", samples);
        const std::string path =
            m_directory.Write("long.hea", "long 1 250 " + std::to_string(windows * 360) +
                                              "\nlong.dat 212 1000/mV 12 0 0 0 0 II\n");
        const std::string out = Ravo({"info", path}).out;
        EXPECT_EQ(out.find("lead II  amplitude 1.000 mV  -1.000 to 1.000 mV\n") !=
                      std::string::npos,
                  windows == 300)
            << out;
        EXPECT_EQ(out.find("amplitude") == std::string::npos, windows == 299) << out;
    }
}

// The library would measure these without their sign.
TEST_F(InfoTest, AmplitudeOfFormat16IsNotTold) {
    m_directory.Write("long.dat", Format16(std::vector<int16_t>(std::size_t{300} * 360, -1000)));
    const std::string path =
        m_directory.Write("long.hea", "long 1 250 108000\nlong.dat 16 1000/mV 16 0 0 0 0 II\n");
    EXPECT_EQ(Ravo({"info", path}).out.find("amplitude"), std::string::npos);
}

TEST_F(InfoTest, FindsARecordByItsBareName) {
    WriteTwo();
    const Result result = Ravo({"info", "two"}, m_directory.Path());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("length       3 samples"), std::string::npos);
}

// Bytes that are not UTF-8 are taken for Latin-1, control characters do not reach the terminal.
TEST_F(InfoTest, DescriptionsAreMadeSafe) {
    const std::string path = WriteTwo("two 1 250 6\ntwo.dat 16 1000 16 0 0 0 0 a\x1b\xe4\"\n");
    EXPECT_NE(Ravo({"info", path}).out.find("a?\xe4\""), std::string::npos);
    EXPECT_NE(Ravo({"info", path, "--json"}).out.find("\"a\\u001b\xc3\xa4\\\"\""),
              std::string::npos);
}

TEST_F(InfoTest, MapOverrulesTheDescriptions) {
    const std::string path = WriteTwo();
    const Result result = Ravo({"info", path, "--map", "MLII=I", "--map", "1=v2"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("leads        I V2\n"), std::string::npos) << result.out;
}

// V5 is mapped to lead II, so MLII, which claimed it by its description, feeds nothing.
TEST_F(InfoTest, MapTakesALeadFromItsEarlierSignal) {
    const Result result = Ravo({"info", WriteTwo(), "--map", "V5=II"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("leads        II\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("  0  MLII             lead -"), std::string::npos) << result.out;
}

TEST_F(InfoTest, WrongMappingsAreUsageErrors) {
    const std::string path = WriteTwo();
    for (const char* map : {"MLII", "MLII=V7", "x=I", "2=I", "-1=I", "99999999999999999999=I"}) {
        const Result result = Ravo({"info", path, "--map", map});
        EXPECT_EQ(result.status, 1) << map;
        EXPECT_NE(result.err.find(map[0]), std::string::npos);
    }
    EXPECT_EQ(Ravo({"info", path, "--map", "0=I", "--map", "MLII=V1"}).status, 1);
}

// ---- Unusable WFDB records ----------------------------------------------------------------------

TEST_F(InfoTest, MissingFile) {
    ExpectRefused({m_directory / "no.hea"}, "no.hea", "No such file or directory");
}

TEST_F(InfoTest, NameOfNothing) {
    ExpectRefused({m_directory / "no"}, "no", "No such file");
}

TEST_F(InfoTest, DirectoryInPlaceOfAFile) {
    m_directory.Write("d.hea/x", "");
    ExpectRefused({m_directory / "d.hea"}, "d.hea", "is a directory");
}

TEST_F(InfoTest, WhatIsNoOrdinaryFile) {
    const std::string cure = ": is not an ordinary file.\n      Save its contents to a file.\n";
    const std::string pipe = m_directory / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const char* format : {"aha", "cse", "native", "edf"}) {
        const Result result = Ravo({"info", pipe, "--format", format});
        EXPECT_EQ(result.status, 2) << format;
        EXPECT_EQ(result.err, "ravo: " + pipe + cure) << format;
    }
    EXPECT_EQ(Ravo({"info", "/dev/null"}).err, "ravo: /dev/null" + cure);
}

TEST_F(InfoTest, FileThatMayNotBeRead) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "root may read everything";
    }
    const std::string path = WriteTwo();
    ::chmod(path.c_str(), 0);
    ExpectRefused({path}, "two.hea", "Permission denied");
}

TEST_F(InfoTest, CutRecordIsCounted) {
    const std::string path = WriteTwo();
    std::filesystem::resize_file(m_directory / "two.dat", 8);
    const Result result = Ravo({"info", path, "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("\"samples\":2,"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\"missing\":2,"), std::string::npos) << result.out;
}

// A beat at sample 1, and half of the next word.
TEST_F(InfoTest, CutAnnotationFileIsRefusedAsElsewhere) {
    const std::string path = WriteTwo();
    m_directory.Write("two.atr", Bytes({1, 4, 7}));
    ExpectRefused({path}, "two.atr", "ends within an annotation");
    EXPECT_EQ(Ravo({"annotations", path}).status, 2);
}

TEST_F(InfoTest, EmptyHeader) {
    ExpectRefused({m_directory.Write("e.hea", "")}, "e.hea", "is not a WFDB header");
}

TEST_F(InfoTest, HeaderOfGarbage) {
    const std::string garbage = Bytes({0, 255, 1, 10, 200, 0, 0, 13, 10, 128, 127, 9});
    ExpectRefused({m_directory.Write("g.hea", garbage)}, "g.hea", "is not a WFDB header");
}

TEST_F(InfoTest, HeaderWithoutSamples) {
    ExpectRefused({m_directory.Write("h.hea", "h 2 250\n")}, "h.hea", "announces 2 signals");
}

TEST_F(InfoTest, HeaderWithoutSignals) {
    ExpectRefused({m_directory.Write("h.hea", "h 2 250 10\nh.sig 16\n")}, "h.hea",
                  "announces 2 signals and describes 1");
}

TEST_F(InfoTest, RateOfZero) {
    ExpectRefused({WriteTwo("two 1 0 3\ntwo.dat 16 200 11 0 0 0 0 I\n")}, "two.hea",
                  "announces 3 samples at 0 per second");
}

TEST_F(InfoTest, NegativeSamples) {
    ExpectRefused({WriteTwo("two 1 250 -3\ntwo.dat 16 200 11 0 0 0 0 I\n")}, "two.hea",
                  "announces -3 samples");
}

TEST_F(InfoTest, FormatThatIsNotRead) {
    ExpectRefused({WriteTwo("two 1 250 3\ntwo.dat 99 200 11 0 0 0 0 I\n")}, "two.hea",
                  "signal 0 is stored in format 99");
}

TEST_F(InfoTest, SeveralSignalFiles) {
    ExpectRefused({WriteTwo("two 2 250 3\ntwo.dat 16\nother.dat 16\n")}, "other.dat",
                  "No such file or directory");
}

TEST_F(InfoTest, SeveralFormats) {
    ExpectRefused({WriteTwo("two 2 250 3\ntwo.dat 16\ntwo.dat 212\n")}, "two.hea",
                  "share a file but differ in format");
}

TEST_F(InfoTest, MissingSignalFile) {
    ExpectRefused({m_directory.Write("m.hea", "m 1 250 3\nm.dat 16\n")}, "m.dat",
                  "No such file or directory");
}

TEST_F(InfoTest, ShortSignalFileIsWarnedOf) {
    const Result result = Ravo({"info", WriteTwo("two 2 250 5\ntwo.dat 16 200/mV 16 0 0 0 0 I\n"
                                                 "two.dat 16 200/mV 16 0 0 0 0 II\n")});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err.find("announces 5 frames, but its signal file holds 3"), std::string::npos)
        << result.err;
}

// ---- Other formats ------------------------------------------------------------------------------

TEST_F(InfoTest, AhaBinary) {
    // Frames of five bytes: -100 and 100, then 400 and 0.
    const std::string path =
        m_directory.Write("a.ecg", Bytes({0x9C, 0xFF, 0x64, 0, 0, 0x90, 1, 0, 0, 0}));
    const Result result = Ravo({"info", path});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find(" (aha)\nrate         250 samples per second\n"
                              "length       2 samples, 0.008 s\nleads        I II\n"),
              std::string::npos)
        << result.out;
}

// The loader looks for ".txt" anywhere in a path; here it is part of a directory's name.
TEST_F(InfoTest, AhaBinaryBelowADirectoryWithAMisleadingName) {
    const std::string path =
        m_directory.Write("x.txt.d/A.ECG", Bytes({0x9C, 0xFF, 0x64, 0, 0, 0x90, 1, 0, 0, 0}));
    const Result result = Ravo({"info", path});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("length       2 samples"), std::string::npos) << result.out;
}

TEST_F(InfoTest, AhaText) {
    const std::string path = m_directory.Write("a.txt", "-100, 100\n400 0\n8,8\n");
    const Result result = Ravo({"info", "a.txt"}, m_directory.Path());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("(aha)"), std::string::npos);
    EXPECT_NE(result.out.find("length       3 samples"), std::string::npos) << result.out;
}

TEST_F(InfoTest, CseText) {
    const std::string line = "10 20 30 40 50 60 70 80 90 100 110 120\n";
    const Result result = Ravo({"info", m_directory.Write("c.txt", line + line)});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("(cse)\nrate         500 samples per second\nlength       2"),
              std::string::npos)
        << result.out;
}

TEST_F(InfoTest, CseBinary) {
    std::string file(36, ' ');
    file += "   2";
    file.resize(3000 + 24 * 2 + 1, '\0');
    const Result result = Ravo({"info", m_directory.Write("C.DCD", file)});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("(cse)"), std::string::npos);
    EXPECT_NE(result.out.find("length       2 samples"), std::string::npos) << result.out;
}

TEST_F(InfoTest, CseBinaryThatIsTooShort) {
    std::string file(36, ' ');
    file += "9999";
    file.resize(3100, '\0');
    ExpectRefused({m_directory.Write("c.dcd", file)}, "c.dcd", "cannot be loaded");
}

TEST_F(InfoTest, NativeTextSuppliesTheLeadsThatItHolds) {
    const std::string path = m_directory.Write("n.txt", "500\r\n2\r\n START \r\nlead ii\r\n100\r\n"
                                                        "-200\r\nv1\r\n5\r\n6\r\n");
    const Result result = Ravo({"info", path});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("(native)\nrate         500 samples per second\n"
                              "length       2 samples, 0.004 s\nleads        II V1\n"),
              std::string::npos)
        << result.out;
}

TEST_F(InfoTest, FormatOverrulesTheGuess) {
    const std::string path = m_directory.Write("n.txt", "500, 1\n2, 2\nstart\n");
    EXPECT_NE(Ravo({"info", path, "--format", "aha"}).out.find("(aha)"), std::string::npos);
}

TEST_F(InfoTest, LeadsOfOtherFormatsAreFixed) {
    const std::string path = m_directory.Write("a.txt", "1,2\n");
    EXPECT_EQ(Ravo({"info", path, "--map", "0=V1"}).status, 1);
}

TEST_F(InfoTest, TextOfNoKind) {
    ExpectRefused({m_directory.Write("t.txt", "once\nupon\na time\n")}, "t.txt",
                  "is in a format that neither its extension nor its first lines show");
    ExpectRefused({m_directory.Write("e.txt", "")}, "e.txt", "is in a format that neither");
    ExpectRefused({m_directory.Write("x.wav", "RIFF")}, "x.wav", "is in a format that neither");
}

TEST_F(InfoTest, GarbageInEveryFormat) {
    std::string garbage;
    for (int i = 0; i < 5000; ++i) {
        garbage += static_cast<char>(static_cast<unsigned char>(i * 7919 >> 3));
    }
    const std::string path = m_directory.Write("garbage.bin", garbage);
    for (const char* format : {"wfdb", "aha", "cse", "native", "edf", "edf-4", "csv"}) {
        const Result result = Ravo({"info", path, "--format", format});
        EXPECT_TRUE(result.status == 0 || result.status == 2) << format << result.status;
        // Facts that could be read lead to a warning at most; those that could not are reported.
        EXPECT_EQ(result.status == 2,
                  result.err.find("ravo: ") == 0 && result.err.find("ravo: warning: ") != 0)
            << format << result.err;
    }
}

TEST_F(InfoTest, FileThatIsNoEdf) {
    ExpectRefused({m_directory.Write("x.edf", "EDF?")}, "x.edf", "is not an EDF file");
    ExpectRefused({m_directory.Write("y.edf", "0       and no more")}, "y.edf",
                  "ends within its header");
}

// ---- Waveforms ----------------------------------------------------------------------------------

TEST_F(InfoTest, PeriodicWaveformIsEndless) {
    const Result result = Ravo({"info", "sine", "--frequency", "2.5", "--amplitude", "3"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("source       sine, 2.5 Hz, 3 mV (waveform)\n"
                              "rate         1000 samples per second\nlength       endless\n"),
              std::string::npos)
        << result.out;
    EXPECT_NE(Ravo({"info", "sine", "--json"}).out.find("\"seconds\":null"), std::string::npos);
}

TEST_F(InfoTest, TabulatedWaveformsHaveALength) {
    EXPECT_NE(Ravo({"info", "calibration"}).out.find("length       3600 samples, 10.000 s"),
              std::string::npos);
    EXPECT_NE(Ravo({"info", "staircase"}).out.find("length       45000 samples, 45.000 s"),
              std::string::npos);
}

// ---- Public records -----------------------------------------------------------------------------

TEST_F(InfoTest, Record100) {
    const std::string path = PublicRecord("100.hea");
    if (path.empty()) {
        GTEST_SKIP() << "record 100 is missing; RAVO_TEST_DATA names its folder";
    }
    const Result result = Ravo({"info", path});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("length       650000 samples, 1805.556 s\n"), std::string::npos);
    EXPECT_NE(result.out.find("leads        II V5\n"), std::string::npos);
    // 2274 annotations, one of which marks the rhythm.
    EXPECT_NE(result.out.find("annotations  2274, of which 2273 beats\n"), std::string::npos)
        << result.out;
}

TEST_F(InfoTest, EdfFile) {
    const std::string path = PublicRecord("test_generator_2.edf");
    if (path.empty()) {
        GTEST_SKIP() << "the EDF file is missing; RAVO_TEST_DATA names its folder";
    }
    const Result result = Ravo({"info", path});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("  3  ECG              lead II"), std::string::npos) << result.out;
}
