#include "CommandLine.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

std::string Field(const std::string& text, std::size_t width) {
    std::string field = text.substr(0, width);
    field.resize(width, ' ');
    return field;
}

// One signal of 4 samples a second for 2 seconds, -5 to 5 mV over -500 to 500.
std::string Edf() {
    std::string file = Field("0", 8) + Field("patient", 80) + Field("recording", 80) +
                       Field("01.02.03", 8) + Field("10.20.30", 8) + Field("512", 8) +
                       Field("", 44) + Field("2", 8) + Field("1", 8) + Field("1", 4);
    file += Field("V2", 16) + Field("", 80) + Field("mV", 8) + Field("-5", 8) + Field("5", 8) +
            Field("-500", 8) + Field("500", 8) + Field("", 80) + Field("4", 8) + Field("", 32);
    return file + Format16({100, 200, 300, 400, -100, -200, -300, -400});
}

class ConvertTest : public testing::Test {
  protected:
    Scratch m_directory;
};

} // namespace

TEST_F(ConvertTest, EdfBecomesARecord) {
    const std::string path = m_directory.Write("My Recording.EDF", Edf());
    const Result result = Ravo({"convert", path, m_directory / "records"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, m_directory / "records/My_Recording.hea\n");
    EXPECT_EQ(ReadFile(m_directory / "records/My_Recording.hea"),
              "My_Recording 1 4 8 10:20:30 01/02/2003\n"
              "My_Recording.dat 16 100(0)/mV 16 0 100 0 0 V2\n");
    EXPECT_EQ(ReadFile(m_directory / "records/My_Recording.dat"),
              Format16({100, 200, 300, 400, -100, -200, -300, -400}));
}

TEST_F(ConvertTest, JsonNamesWhatWasWrittenOrWhy) {
    const std::string path = m_directory.Write("e.edf", Edf() + "x");
    const std::vector<std::string> command = {"convert", path, m_directory / "out", "--json"};
    const Result result = Ravo(command);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "{\"path\":\"" + (m_directory / "out/e.hea") + "\",\"warnings\":[]}\n");
    const Result failed = Ravo({"convert", m_directory / "no.edf", m_directory / "out", "--json"});
    EXPECT_EQ(failed.status, 2);
    EXPECT_EQ(failed.out.rfind("{\"error\":{\"status\":2,\"where\":\"", 0), 0U) << failed.out;
}

TEST_F(ConvertTest, AhaTextBecomesARecordWithItsHeader) {
    const std::string path = m_directory.Write("in/a.txt", "100,-50,\"N\"\n100,-50,\".\"\n");
    m_directory.Write("a.dat", "mine");
    const Result result = Ravo({"convert", "in/a.txt", "out"}, m_directory.Path());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFile(m_directory / "out/a.dat"), Format16({100, -50, 100, -50}));
    EXPECT_EQ(ReadFile(m_directory / "out/a.hea"), "a 2 250 2\n"
                                                   "a.dat 16 400(0)/mV 16 0 100 200 0 ECG 1\n"
                                                   "a.dat 16 400(0)/mV 16 0 -50 -100 0 ECG 2\n");
    EXPECT_EQ(ReadFile(m_directory / "a.dat"), "mine");
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(ConvertTest, CsvIsWrittenAndReadAgain) {
    const std::string path = m_directory.Write("c.csv", "ms;I\n0;1,5\n4;-0,25\n");
    const Result result =
        Ravo({"convert", path, m_directory / "out", "--csv", "--name", "d", "--gain", "2"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFile(m_directory / "out/d.csv"), "seconds,I\n0,3\n0.004,-0.5\n");
    EXPECT_NE(Ravo({"info", m_directory / "out/d.csv"}).out.find("lead I  -0.500 to 3.000 mV"),
              std::string::npos);
    EXPECT_EQ(Ravo({"convert", path, m_directory / "out", "--csv", "--name", "d"}).status, 6);
}

TEST_F(ConvertTest, RefusesWhatCannotBeRead) {
    EXPECT_EQ(Ravo({"convert", m_directory / "no.edf", m_directory / "out"}).status, 2);
    const std::string edf = m_directory.Write("e.edf", Edf().substr(0, 300));
    EXPECT_EQ(Ravo({"convert", edf, m_directory / "out"}).status, 2);
    EXPECT_FALSE(std::filesystem::exists(m_directory / "out"));
}

TEST_F(ConvertTest, RefusesADirectoryThatIsAFile) {
    const std::string path = m_directory.Write("a.txt", "100,-50,\"N\"\n");
    EXPECT_EQ(Ravo({"convert", path, path}).status, 6);
}

// N at 18 and, with the text "(N", a rhythm at 20.
TEST_F(ConvertTest, AnnotationsAreListedAndCarriedAlong) {
    m_directory.Write("r.dat", Format16({1, 2}));
    m_directory.Write("r.atr", std::string("\x12\x04\x02\x70\x02\xFC(N\x00\x00", 10));
    const std::string path = m_directory.Write("r.hea", "r 1 100 2\nr.dat 16 200 16 0 0 0 0 II\n");
    const Result result = Ravo({"annotations", path, "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              R"({"annotations":[{"time":0.18,"sample":18,"code":"N","subtype":0,"channel":0,)"
              R"("number":0,"text":""},{"time":0.2,"sample":20,"code":"+","subtype":0,)"
              R"("channel":0,"number":0,"text":"(N"}]})"
              "\n");
    EXPECT_EQ(Ravo({"convert", path, m_directory / "out"}).status, 0);
    EXPECT_EQ(ReadFile(m_directory / "out/r.atr"), ReadFile(m_directory / "r.atr"));
}

// ---- Noise stress test --------------------------------------------------------------------------

namespace {

class NoiseStressTestTest : public testing::Test {
  protected:
    void SetUp() override {
        WriteRecord("clean", {10, 20, -30, 40, 50, -60}, 2);
        WriteRecord("noise", {1, 2, 3, 4}, 2);
    }

    void WriteRecord(const std::string& name, const std::vector<int16_t>& samples,
                     std::size_t signals) const {
        m_directory.Write(name + ".dat", Format16(samples));
        std::string header = name + " " + std::to_string(signals) + " 100 " +
                             std::to_string(samples.size() / signals) + "\n";
        for (std::size_t i = 0; i < signals; ++i) {
            header += name + ".dat 16 200/mV 12 0 0 0 0 " + (i == 0 ? "MLII\n" : "V5\n");
        }
        m_directory.Write(name + ".hea", header);
    }

    Result Mix(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "nst");
        return Ravo(arguments, m_directory.Path());
    }

    Scratch m_directory;
};

} // namespace

// Shorter than five minutes, the mix is the clean record in format 212: 10 and 20 are 0x00A and
// 0x014, -30 and 40 are 0xFE2 and 0x028, 50 and -60 are 0x032 and 0xFC4.
TEST_F(NoiseStressTestTest, WritesTheMixedRecord) {
    const Result result = Mix({"clean", "noise", "--snr", "6", "-o", "mixed"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "./mixed.hea\n");
    EXPECT_EQ(ReadFile(m_directory / "mixed.dat"),
              std::string("\x0A\x00\x14\xE2\x0F\x28\x32\xF0\xC4", 9));
    EXPECT_EQ(Ravo({"info", m_directory / "mixed.hea"}).status, 0);
}

TEST_F(NoiseStressTestTest, TakesSeveralNoises) {
    EXPECT_EQ(Mix({"clean", "noise", "noise", "--snr", "6", "-o", "a"}).status, 0);
    EXPECT_EQ(Mix({"clean", "noise", "noise", "--snr", "6,12", "-o", "b.hea"}).status, 0);
    EXPECT_EQ(Mix({"clean", "noise", "noise", "--snr", "6,12,24", "-o", "c"}).status, 1);
    EXPECT_EQ(Mix({"clean", "noise", "noise", "--snr", "-6", "-o", "d"}).status, 0);
}

TEST_F(NoiseStressTestTest, ReplacesARecordOnlyWhenTold) {
    EXPECT_EQ(Mix({"clean", "noise", "--snr", "6", "-o", "mixed"}).status, 0);
    const Result result = Mix({"clean", "noise", "--snr", "12", "-o", "mixed"});
    EXPECT_EQ(result.status, 6);
    EXPECT_NE(result.err.find("ravo: ./mixed.hea: already exists.\n"
                              "      Give another name, or --force to replace the record.\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(Mix({"clean", "noise", "--snr", "12", "-o", "mixed", "--force"}).status, 0);
}

TEST_F(NoiseStressTestTest, RefusesNoiseOfAnotherRate) {
    m_directory.Write("other.hea", "other 2 999 2\nnoise.dat 16 200 12 0 0 0 0 A\n"
                                   "noise.dat 16 200 12 0 0 0 0 B\n");
    const Result result = Mix({"clean", "other", "--snr", "6", "-o", "mixed"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("./other.hea: has 999 samples per second, the record "),
              std::string::npos)
        << result.err;
    EXPECT_FALSE(std::filesystem::exists(m_directory / "mixed.dat"));
}

TEST_F(NoiseStressTestTest, TellsOfRatiosInPlaceOfNoises) {
    const Result result = Mix({"clean", "noise", "noise", "--snr", "6", "12", "-o", "mixed"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ravo: 12: is not a noise record.\n"
                          "      Several ratios go with commas: --snr 6,12.\n");
}

TEST_F(NoiseStressTestTest, RefusesNamesThatItsHeaderWouldCut) {
    for (const char* name : {"sixteencharacter", "a.b", "a b", "dir/"}) {
        const Result result = Mix({"clean", "noise", "--snr", "6", "-o", name});
        EXPECT_EQ(result.status, 1) << name;
        EXPECT_NE(result.err.find("cannot name a mixed record"), std::string::npos) << result.err;
    }
    EXPECT_EQ(Mix({"clean", "noise", "--snr", "6", "-o", "fifteencharacte"}).status, 0);
}

// The data file of "other" is that of "clean", and "link" is another name of the noise's header.
TEST_F(NoiseStressTestTest, RefusesToWriteOverWhatItReads) {
    const std::string header = ReadFile(m_directory / "clean.hea");
    const std::string data = ReadFile(m_directory / "clean.dat");
    m_directory.Write("other.hea", header);
    std::filesystem::create_symlink("noise.hea", m_directory / "link.hea");
    const std::vector<std::vector<std::string>> commands = {
        {"clean", "noise", "--snr", "6", "-o", "clean"},
        {"./clean.hea", "noise", "--snr", "6", "-o", m_directory / "clean"},
        {"other", "noise", "--snr", "6", "-o", "clean.hea"},
        {"other", "clean", "--snr", "6", "-o", "clean"},
        {"clean", "noise", "--snr", "6", "-o", "noise"},
        {"clean", "noise", "--snr", "6", "-o", "link"},
    };
    for (const auto& command : commands) {
        const Result result = Mix(command);
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_NE(result.err.find("would overwrite"), std::string::npos) << result.err;
    }
    EXPECT_EQ(ReadFile(m_directory / "clean.hea"), header);
    EXPECT_EQ(ReadFile(m_directory / "clean.dat"), data);
    EXPECT_EQ(ReadFile(m_directory / "noise.dat"), Format16({1, 2, 3, 4}));
}

// 16 windows of 360 frames are 5760 frames.
TEST_F(NoiseStressTestTest, WarnsOfNoiseTooShortToBeMeasured) {
    WriteRecord("short", std::vector<int16_t>(std::size_t{2} * 5759, 1), 2);
    WriteRecord("enough", std::vector<int16_t>(std::size_t{2} * 5760, 1), 2);
    const Result warned = Mix({"clean", "short", "--snr", "6", "-o", "a"});
    EXPECT_EQ(warned.status, 0) << warned.err;
    EXPECT_NE(warned.err.find("warning: ./short.hea holds 5759 frames, too few to measure"),
              std::string::npos)
        << warned.err;
    EXPECT_EQ(Mix({"clean", "enough", "--snr", "6", "-o", "b"}).err, "");
}

// 12 bits hold -2048 to 2047: the mix holds 2048 as -2048 and -2049 as 2047.
TEST_F(NoiseStressTestTest, WarnsOfSamplesThatNeedMoreThanTwelveBits) {
    WriteRecord("most", {2047, -2048, 0, 2047, 2047, 0, -2048, 1}, 2);
    const Result most = Mix({"most", "noise", "--snr", "6", "-o", "a"});
    EXPECT_EQ(most.status, 0) << most.err;
    EXPECT_EQ(most.err.find("wrap around"), std::string::npos) << most.err;
    WriteRecord("high", {2047, 0, 2047, 0, 2048, 0, 100, 0}, 2);
    const Result high = Mix({"high", "noise", "--snr", "6", "-o", "b"});
    EXPECT_EQ(high.status, 0);
    EXPECT_NE(high.err.find("warning: ./b.hea: signal 0 needs more than 12 bits: its samples wrap "
                            "around, first at 0.020 s\n"),
              std::string::npos)
        << high.err;
    EXPECT_EQ(high.err.find("signal 1"), std::string::npos) << high.err;
    WriteRecord("low", {0, -2049, 0, -2049}, 2);
    const Result low = Mix({"low", "noise", "--snr", "6", "-o", "c"});
    EXPECT_NE(low.err.find("signal 1 needs more than 12 bits: its samples wrap around, first at "
                           "0.000 s\n"),
              std::string::npos)
        << low.err;
}

TEST_F(NoiseStressTestTest, RefusesARecordThatEndsEarly) {
    std::filesystem::resize_file(m_directory / "clean.dat", 4);
    const Result result = Mix({"clean", "noise", "--snr", "6", "-o", "mixed"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("frames, but its signal file holds 1."), std::string::npos)
        << result.err;
}

TEST_F(NoiseStressTestTest, RefusesARecordWithOtherThanTwoSignals) {
    WriteRecord("one", {1, 2, 3}, 1);
    const Result result = Mix({"one", "noise", "--snr", "6", "-o", "mixed"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("has 1 signals; noise is mixed into records with two"),
              std::string::npos)
        << result.err;
}

TEST_F(NoiseStressTestTest, RefusesMissingRecordsAndPlaces) {
    EXPECT_EQ(Mix({"none", "noise", "--snr", "6", "-o", "mixed"}).status, 2);
    EXPECT_EQ(Mix({"clean", "none", "--snr", "6", "-o", "mixed"}).status, 2);
    EXPECT_EQ(Mix({"clean", "noise", "--snr", "6", "-o", "/no/such/mixed"}).status, 6);
}

TEST_F(NoiseStressTestTest, NoiseCanBeMixedInWhileLoading) {
    const Result result =
        Ravo({"info", "clean", "--noise-record", "noise", "--snr", "6"}, m_directory.Path());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("record       clean with noise at 6 dB\n"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("length       3 samples"), std::string::npos) << result.out;
}
