// Runs the importer on made-up files of every kind and compares the neutral text that it writes.
#include "tests/support/Files.h"
#include "tests/WFDB/EDFFile.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/wait.h>

namespace {

constexpr int kLeads = 8;
constexpr int kSourceSamples = 260; // at 500 per second: 20 ms longer than the period of CAL20002

// Microvolts of the made-up sources.
int Value(int lead, int sample) {
    return 300 * lead - 1000 + sample * sample % 97;
}

// Two big-endian bytes.
std::string Word(int value) {
    const int code = (value + 65536) % 65536;
    return {static_cast<char>(code / 256), static_cast<char>(code % 256)};
}

// A CSE file: the count at byte 36, from byte 3000 on four blocks of three leads, and a last byte.
// What is not played (lead III and the second block) holds other values.
std::string EncodeDcd() {
    std::string bytes(36, 'x');
    bytes += " " + std::to_string(kSourceSamples);
    bytes.resize(3000, 'x');
    const int blocks[4][3] = {{0, 1, -1}, {-1, -1, -1}, {2, 3, 4}, {5, 6, 7}};
    for (const auto& block : blocks) {
        for (int n = 0; n < kSourceSamples; ++n) {
            for (const int lead : block) {
                bytes += Word(lead < 0 ? 12345 : Value(lead, n));
            }
        }
    }
    return bytes + "x";
}

// A CSE text record: twelve leads a line, of which the third to the sixth are not played.
std::string EncodeCseText() {
    std::string text;
    for (int n = 0; n < kSourceSamples; ++n) {
        text += std::to_string(Value(0, n)) + " " + std::to_string(Value(1, n)) + " 1 2 3 4";
        for (int lead = 2; lead < kLeads; ++lead) {
            text += " " + std::to_string(Value(lead, n));
        }
        text += "\n";
    }
    return text;
}

// One data record of eight leads at 500 samples per second, one microvolt per digital unit.
EDFFile EightLeads() {
    EDFFile file;
    for (const char* label : {"ECG I", "ECG II", "V1", "V2", "V3", "V4", "V5", "V6"}) {
        file.Signals.push_back({label, "uV", "-2000", "2000", "-2000", "2000", "500"});
        const auto lead = static_cast<int>(file.Signals.size()) - 1;
        for (int n = 0; n < 500; ++n) {
            file.Samples.push_back(Value(lead, n));
        }
    }
    return file;
}

std::string EncodeColumns(int lines) {
    std::string text;
    for (int n = 0; n < lines; ++n) {
        for (int lead = 0; lead < kLeads; ++lead) {
            text += std::to_string(Value(lead, n)) + (lead == kLeads - 1 ? "\n" : "\t");
        }
    }
    return text;
}

// The text of a number of half microvolts.
std::string Halves(int halves) {
    const std::string sign = halves < 0 ? "-" : "";
    const int magnitude = std::abs(halves);
    return sign + std::to_string(magnitude / 2) + (magnitude % 2 != 0 ? ".5" : "");
}

// The neutral text of a period, from the half microvolts of a lead at a sample.
std::string NeutralText(const std::string& comment, int samples,
                        const std::function<int(int, int)>& halvesAt) {
    std::string text = "# " + comment + "\nunit uV\n";
    for (int n = 0; n < samples; ++n) {
        for (int lead = 0; lead < kLeads; ++lead) {
            text += Halves(halvesAt(lead, n)) + (lead == kLeads - 1 ? "\n" : " ");
        }
    }
    return text;
}

// Twice the value between two samples at 500 per second; the last sample is followed by the first.
int Interpolated(int lead, int n, int first = 0) {
    const int before = n / 2;
    const int after = (n + 1) / 2 % 250;
    return Value(lead, first + before) + Value(lead, first + after);
}

int Plain(int lead, int n) {
    return 2 * Value(lead, n);
}

class Import : public testing::Test {
  protected:
    // Runs the importer on a file of this content; returns its exit code.
    int Run(const std::string& record, const std::string& name, const std::string& content,
            const std::string& options = "") {
        const std::string command = "{ " + std::string(RAVO_IMPORT_PROGRAM) + " " + record + " '" +
                                    m_directory.Write(name, content) + "' -o '" +
                                    m_directory.Path() + "' " + options + "; } > '" +
                                    m_directory / "said" + "' 2>&1";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // Its output, without the folder's path.
    std::string Said() const {
        std::string said = ReadFile(m_directory / "said");
        const std::string folder = m_directory.Path() + "/";
        const size_t at = said.find(folder);
        return at == std::string::npos ? said : said.erase(at, folder.size());
    }

    std::string Imported(const std::string& record) const {
        return ReadFile(m_directory / (record + ".txt"));
    }

    // Expects that the import fails with this sentence and writes nothing.
    void ExpectRefused(const std::string& record, const std::string& name,
                       const std::string& content, const std::string& options,
                       const std::string& sentence) {
        EXPECT_EQ(Run(record, name, content, options), 2) << sentence;
        EXPECT_EQ(Said(), "ravo-ctscse-import: " + sentence + "\n");
        EXPECT_FALSE(std::filesystem::exists(m_directory / (record + ".txt"))) << sentence;
    }

  private:
    Scratch m_directory;
};

TEST_F(Import, AStandardOutputThatCannotBeWrittenIsAFailure) {
    EXPECT_EQ(Run("CAL20002", "made.dcd", EncodeDcd(), ">/dev/full"), 2);
    EXPECT_EQ(Said(), "ravo-ctscse-import: standard output: cannot be written: No space left on "
                      "device.\n");
    EXPECT_EQ(Run("CAL20002", "made.dcd", EncodeDcd(), ">&-"), 2);
}

TEST_F(Import, InterpolatesABinaryCseRecordAndSaysSo) {
    ASSERT_EQ(Run("CAL20002", "made.dcd", EncodeDcd()), 0) << Said();
    EXPECT_EQ(Said(), "CAL20002.txt: 500 samples, interpolated from 500 to 1000 per second\n");
    EXPECT_EQ(Imported("CAL20002"),
              NeutralText("CAL20002, imported from made.dcd", 500,
                          [](int lead, int n) { return Interpolated(lead, n); }));
}

TEST_F(Import, SkipsToTheWantedPeriod) {
    ASSERT_EQ(Run("CAL20002", "made.dcd", EncodeDcd(), "--skip 10"), 0) << Said();
    EXPECT_EQ(Imported("CAL20002"),
              NeutralText("CAL20002, imported from made.dcd", 500,
                          [](int lead, int n) { return Interpolated(lead, n, 10); }));
}

TEST_F(Import, ReadsACseTextRecord) {
    ASSERT_EQ(Run("CAL20002", "made.cse", EncodeCseText()), 0) << Said();
    EXPECT_EQ(Imported("CAL20002"),
              NeutralText("CAL20002, imported from made.cse", 500,
                          [](int lead, int n) { return Interpolated(lead, n); }));
}

TEST_F(Import, ReadsAnEdfFile) {
    ASSERT_EQ(Run("CAL20002", "made.edf", EightLeads().Encode()), 0) << Said();
    EXPECT_EQ(Imported("CAL20002"),
              NeutralText("CAL20002, imported from made.edf", 500,
                          [](int lead, int n) { return Interpolated(lead, n); }));
}

TEST_F(Import, ReadsPlainColumnsInBothUnits) {
    ASSERT_EQ(Run("MA1_115", "made.col", EncodeColumns(520) + " \r\n", "--columns"), 0) << Said();
    EXPECT_EQ(Said(), "MA1_115.txt: 520 samples\n");
    EXPECT_EQ(Imported("MA1_115"), NeutralText("MA1_115, imported from made.col", 520, Plain));

    const std::string line = "1 -2 0.5 0 4 5 6.25 -7\r\n";
    std::string lines;
    std::string expected = "# CAL20002, imported from made.col\nunit uV\n";
    for (int n = 0; n < 500; ++n) {
        lines += line;
        expected += "1000 -2000 500 0 4000 5000 6250 -7000\n";
    }
    ASSERT_EQ(Run("CAL20002", "made.col", lines, "--columns --unit mV"), 0) << Said();
    EXPECT_EQ(Imported("CAL20002"), expected);
}

TEST_F(Import, KnowsMultileadRecordsByBothNames) {
    ASSERT_EQ(Run("PCTH115", "made.col", EncodeColumns(520), "--columns"), 0) << Said();
    EXPECT_EQ(Imported("MA1_115"), NeutralText("MA1_115, imported from made.col", 520, Plain));
}

TEST_F(Import, ChecksTheCountOfSamples) {
    ExpectRefused("CAL20002", "made.dcd", EncodeDcd(), "--skip 11",
                  "expected 250 samples at 500 per second, found 249");
    ExpectRefused("CAL20002", "made.dcd", EncodeDcd(), "--skip 261",
                  "expected 250 samples at 500 per second, found 0");
    ExpectRefused("MA1_115", "made.col", EncodeColumns(519), "--columns",
                  "expected 520 samples at 1000 per second, found 519");
    ExpectRefused("MA1_115", "made.col", "", "--columns",
                  "expected 520 samples at 1000 per second, found 0");
}

TEST_F(Import, RefusesRatesThatDoNotFitThePeriod) {
    ExpectRefused("CAL20002", "made.col", EncodeColumns(250), "--columns --rate 300",
                  "a rate of 300 samples per second does not divide 1000");
    ExpectRefused("MA1_002", "made.col", EncodeColumns(106), "--columns --rate 200",
                  "a period of 532 ms is not a whole number of samples at 200 per second");
}

TEST_F(Import, RefusesAnEdfFileWithoutOneOfTheLeads) {
    EDFFile file = EightLeads();
    file.Signals[4].Label = "Resp";
    ExpectRefused("CAL20002", "made.edf", file.Encode(), "",
                  "made.edf: no signal is labelled as lead V3");
}

// Annotations are a signal of their own, with a rate of their own.
TEST_F(Import, RefusesAnEdfFileWhoseLeadsWouldBeAveraged) {
    EDFFile file = EightLeads();
    file.Signals.push_back({"EDF Annotations", "", "-1", "1", "-32768", "32767", "57"});
    file.Samples.resize(file.Samples.size() + 57);
    ExpectRefused("CAL20000", "made.edf", file.Encode(), "",
                  "made.edf: a signal of another rate leaves only the mean of every 500 samples "
                  "of lead I; take it out of the file");
}

TEST_F(Import, RefusesFilesThatAreNotWhatTheirNameSays) {
    ExpectRefused("CAL20002", "made.dcd", "garbage", "", "made.dcd: is not a CSE record");
    ExpectRefused("CAL20002", "made.cse", "1 2 3 4 5 6 7 8 9 10 11\n", "",
                  "made.cse: is not a CSE record");
    ExpectRefused("CAL20002", "made.edf", "garbage", "",
                  "made.edf: is not an EDF file that can be read");
    ExpectRefused("CAL20002", "made.col", "1 2 3 4 5 6 7\n", "--columns",
                  "made.col, line 1: expected eight numbers");
    ExpectRefused("CAL20002", "made.col", "1 2 3 4 5 6 7 8 \n1 2 3 4 5 6 7 8 9\n", "--columns",
                  "made.col, line 2: expected eight numbers");
    ExpectRefused("CAL20002", "made.col", "1 2 3 x 5 6 7 8\n", "--columns",
                  "made.col, line 1: expected eight numbers");
}

TEST_F(Import, RefusesANameThatNoRecordHas) {
    ExpectRefused("CAL99999", "made.dcd", EncodeDcd(), "",
                  "CAL99999: the database has no record of this name");
}

} // namespace
