#include "WFDB/ahaecg2mit.h"

#include "tests/support/Encoding.h"
#include "tests/support/Files.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<uint8_t>;
using Header = std::unique_ptr<WFDB_HEADER, decltype(&WFDBFreeHeader)>;

// Converts one text in a directory of its own, while the current directory is another one.
class AHAConverter : public testing::Test {
  protected:
    AHAConverter() : m_home(fs::current_path()) { fs::current_path(m_current.Path()); }
    ~AHAConverter() override { fs::current_path(m_home); }

    Bytes Convert(const std::string& text) {
        const std::string input = m_input.Write("record.txt", text);
        EXPECT_EQ(ahaecg2mit(input.c_str(), m_output.Path().c_str()), 0);
        const std::string bytes = ReadFile(m_output / "record.dat");
        return Bytes(bytes.begin(), bytes.end());
    }

    Header ConvertToHeader(const std::string& name, const std::string& text) {
        const std::string input = m_input.Write(name, text);
        return Header(ConvertAHARecord(input.c_str(), m_output.Path().c_str()), WFDBFreeHeader);
    }

    Scratch m_input;
    Scratch m_output;
    Scratch m_current;

  private:
    fs::path m_home;
};

} // namespace

TEST_F(AHAConverter, PacksALine) {
    EXPECT_EQ(Convert("100,-50,\"N\"\n"), (Bytes{0x64, 0xF0, 0xCE}));
}

TEST_F(AHAConverter, ConvertsEveryLineOfAFileWithLineFeeds) {
    std::string text;
    std::vector<int> samples;
    for (int i = 0; i < 4096; ++i) {
        const int first = i - 2048;
        const int second = 2047 - i;
        text += std::to_string(first) + "," + std::to_string(second) + ",\".\"\n";
        samples.insert(samples.end(), {first, second});
    }
    EXPECT_EQ(Convert(text), EncodeFormat212(samples));
}

TEST_F(AHAConverter, KeepsTheLowTwelveBits) {
    EXPECT_EQ(Convert("4097,-4097,\"N\n"), EncodeFormat212({1, -1}));
    EXPECT_EQ(Convert("4294967297,-4294967297,\"N\n"), EncodeFormat212({1, -1}));
}

TEST_F(AHAConverter, ConvertsTheFirstLineOnlyWithCarriageReturns) {
    EXPECT_EQ(Convert("1,2,\"N\"\r\n3,4,\"N\"\r\n"), EncodeFormat212({1, 2}));
    EXPECT_EQ(Convert("1,2,\"N\"\r3,4,\"N\"\r"), EncodeFormat212({1, 2, 3, 4}));
}

TEST_F(AHAConverter, StopsAtTheFirstLineThatIsNone) {
    const Bytes first = EncodeFormat212({1, 2});
    const std::string ends[] = {"\n",      "x\n",      "3\n",        "3,4\n",   "3,4,\n",
                                "3,4,N\n", "3,4,\"\n", "3 ,4,\"N\n", ",4,\"N\n"};
    for (const std::string& end : ends) {
        EXPECT_EQ(Convert("1,2,\"N\"\n" + end + "5,6,\"N\"\n"), first) << end;
    }
}

TEST_F(AHAConverter, SkipsBlanksBeforeANumber) {
    EXPECT_EQ(Convert(" 1, \t+2,\"N\n"), EncodeFormat212({1, 2}));
}

TEST_F(AHAConverter, TakesTheEndOfTheFileForAMark) {
    EXPECT_EQ(Convert("1,2,\""), EncodeFormat212({1, 2}));
    EXPECT_EQ(Convert("1,2,\"\n"), Bytes());
    EXPECT_EQ(Convert("1,2,"), Bytes());
    EXPECT_EQ(Convert("1,2,\"N\"\n3,4,\"N\""), EncodeFormat212({1, 2, 3, 4}));
}

TEST_F(AHAConverter, ContinuesALongLineAsTheNext) {
    const std::string first = "1,2,\"" + std::string(128 - 5, 'N');
    EXPECT_EQ(Convert(first + "3,4,\"N\n"), EncodeFormat212({1, 2, 3, 4}));
    EXPECT_EQ(Convert(first + "\n3,4,\"N\n"), EncodeFormat212({1, 2}));
}

TEST_F(AHAConverter, YieldsAnEmptyFileForWhatIsNoRecord) {
    EXPECT_EQ(Convert(""), Bytes());
    EXPECT_EQ(Convert(std::string(1000, '\0')), Bytes());
    EXPECT_EQ(Convert(std::string(1000, '\xFF')), Bytes());
    EXPECT_EQ(Convert(std::string(100000, '9')), Bytes());
}

TEST_F(AHAConverter, RefusesOtherExtensions) {
    for (const char* name :
         {"record.ecg", "record.TXT", "record.txt.ecg", "record", "record.txtx"}) {
        const std::string input = m_input.Write(name, "1,2,\"N\"\n");
        EXPECT_EQ(ahaecg2mit(input.c_str(), m_output.Path().c_str()), 0);
        EXPECT_TRUE(fs::is_empty(m_output.Path())) << name;
    }
}

TEST_F(AHAConverter, LeavesTheCurrentDirectoryAloneWhenNothingIsConverted) {
    m_current.Write("record.dat", "mine");
    const std::string input = m_input.Write("record.txt", "1,2,\"N\"\n");
    EXPECT_EQ(ahaecg2mit((m_input / "missing.txt").c_str(), m_output.Path().c_str()), 0);
    EXPECT_EQ(ahaecg2mit(m_input.Path().c_str(), m_output.Path().c_str()), 0);
    EXPECT_EQ(ahaecg2mit(input.c_str(), (m_output / "missing").c_str()), 0);
    EXPECT_EQ(ahaecg2mit(input.c_str(), std::string(5000, 'd').c_str()), 0);
    EXPECT_EQ(ahaecg2mit(nullptr, m_output.Path().c_str()), 0);
    EXPECT_EQ(ahaecg2mit(input.c_str(), nullptr), 0);
    EXPECT_TRUE(fs::is_empty(m_output.Path()));
    EXPECT_EQ(ReadFile(m_current / "record.dat"), "mine");
}

TEST_F(AHAConverter, DeletesTheSameNamedFileOfTheCurrentDirectory) {
    m_current.Write("record.dat", "mine");
    EXPECT_EQ(Convert("1,2,\"N\"\n"), EncodeFormat212({1, 2}));
    EXPECT_FALSE(fs::exists(m_current / "record.dat"));
}

TEST_F(AHAConverter, DeletesItsOutputInTheCurrentDirectory) {
    const std::string input = m_input.Write("record.txt", "1,2,\"N\"\n");
    EXPECT_EQ(ahaecg2mit(input.c_str(), "."), 0);
    EXPECT_TRUE(fs::is_empty(m_current.Path()));
}

TEST_F(AHAConverter, CutsTheRecordName) {
    const std::string long16 = m_input.Write("abcdefghijklmnop.txt", "1,2,\"N\"\n");
    ahaecg2mit(long16.c_str(), m_output.Path().c_str());
    EXPECT_TRUE(fs::exists(m_output / "abcdefghijklmno.dat"));
    const std::string dotted = m_input.Write("a.b.txt", "1,2,\"N\"\n");
    ahaecg2mit(dotted.c_str(), m_output.Path().c_str());
    EXPECT_TRUE(fs::exists(m_output / "a.b.dat"));
}

TEST_F(AHAConverter, WritesNoHeaderFile) {
    Convert("1,2,\"N\"\n");
    EXPECT_FALSE(fs::exists(m_output / "record.hea"));
}

TEST_F(AHAConverter, DescribesTheRecord) {
    const Header header = ConvertToHeader("1001.txt", "100,-50,\"N\"\n7,8,\"N\"\n9,10,\"N\"\n");
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "1001");
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 2);
    EXPECT_EQ(int64_t{header->SamplingFrequency}, 250);
    EXPECT_EQ(int64_t{header->NumberOfSamplesPerSignal}, 3);
    for (int i = 0; i < 2; ++i) {
        const WFDB_SIGNAL signal = header->Signal[i];
        EXPECT_STREQ(signal.FileName, "1001.dat");
        EXPECT_EQ(int32_t{signal.Format}, 212);
        EXPECT_EQ(int32_t{signal.ADCResolution}, 12);
        EXPECT_EQ(double{signal.ADCGain}, 400.0);
        EXPECT_EQ(int32_t{signal.InitialValue}, i == 0 ? 100 : -50);
        EXPECT_STREQ(signal.Description, i == 0 ? "ECG0" : "ECG1");
    }
}

TEST_F(AHAConverter, ReportsFailureThroughTheOtherNameToo) {
    const std::string input = m_input.Write("record.txt", "1,2,\"N\"\n");
    EXPECT_EQ(WFDBConvertAHA(input.c_str(), m_output.Path().c_str()), 0);
    EXPECT_EQ(ReadFile(m_output / "record.dat").size(), 3U);
}

TEST_F(AHAConverter, ClosesItsFiles) {
    const auto countDescriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const std::string input = m_input.Write("record.txt", "1,2,\"N\"\n");
    const auto before = countDescriptors();
    for (int i = 0; i < 10; ++i) {
        ahaecg2mit(input.c_str(), m_output.Path().c_str());
        ahaecg2mit(input.c_str(), (m_output / "missing").c_str());
    }
    EXPECT_EQ(countDescriptors(), before);
}
