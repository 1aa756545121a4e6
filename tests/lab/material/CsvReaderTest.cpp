#include "Scratch.h"

#include "lab/material/readers/CsvReader.h"

#include <gtest/gtest.h>

using namespace lab;

namespace {

class CsvReaderTest : public testing::Test {
  protected:
    std::unique_ptr<SourceReader> Open(const std::string& content,
                                       const CsvOptions& options = {}) const {
        return OpenCsv(m_scratch.Write("c.csv", content), options);
    }

    std::string Failed(const std::string& content, const CsvOptions& options = {}) const {
        return FailureOf([&] { Open(content, options); });
    }

    static CsvOptions WithRate(double rate) {
        CsvOptions options;
        options.rate = rate;
        return options;
    }

    Scratch m_scratch;
};

} // namespace

TEST_F(CsvReaderTest, TimeColumnGivesTheRate) {
    const auto reader = Open("time,I,V1\n0,1,2\n0.004,3,\n0.008,-5,nan\n");
    EXPECT_EQ(reader->Record().signals[0].rate, MakeRate(250, 1));
    EXPECT_EQ(reader->Record().signals[1].description, "V1");
    const Samples samples = ReadAll(*reader, {1, 0});
    EXPECT_EQ(Text(samples[0]), "2 - - ");
    EXPECT_EQ(Text(samples[1]), "1 3 -5 ");
}

TEST_F(CsvReaderTest, SeparatorsDecimalCommaAndByteOrderMark) {
    const auto semicolons = Open("\xEF\xBB\xBFms;\"I\";II\r\n0;1,5;2\r\n2;-1,5;3\r\n");
    EXPECT_EQ(semicolons->Record().signals[0].rate, MakeRate(500, 1));
    EXPECT_EQ(Text(ReadAll(*semicolons, {0})[0]), "1.5 -1.5 ");
    const auto tabs = Open("I\tII\n1\t2\n\n3\t4", WithRate(257.5));
    EXPECT_EQ(tabs->Record().signals[0].rate, MakeRate(515, 2));
    EXPECT_EQ(Text(ReadAll(*tabs, {1})[0]), "2 4 ");
}

TEST_F(CsvReaderTest, UnitsComeFromTheNameOrTheOption) {
    CsvOptions options = WithRate(100);
    options.unit = "uV";
    const auto reader = Open("I,II [mV]\n1000,1\n", options);
    const Samples samples = ReadAll(*reader, {0, 1});
    EXPECT_EQ(Text(samples[0]), "1 ");
    EXPECT_EQ(Text(samples[1]), "1 ");
    EXPECT_EQ(reader->Record().signals[1].description, "II");
}

TEST_F(CsvReaderTest, UnitThatIsNoVoltageStandsBesideTheName) {
    CsvOptions options = WithRate(100);
    const std::string text = "I [mmHg],II [mV]\n1000,1\n";
    const auto reader = Open(text, options);
    EXPECT_EQ(reader->Record().signals[0].description, "I");
    EXPECT_EQ(reader->Record().signals[0].unit, "mmHg");
    EXPECT_FALSE(reader->Record().signals[0].isVoltage);
    options.unit = "uV";
    const auto told = Open(text, options);
    EXPECT_TRUE(told->Record().signals[0].isVoltage);
    const Samples samples = ReadAll(*told, {0, 1});
    EXPECT_EQ(Text(samples[0]), "1 ");
    EXPECT_EQ(Text(samples[1]), "1 ");
}

TEST_F(CsvReaderTest, TimesAreEvenWithinOnePercent) {
    EXPECT_EQ(Failed("s,I\n0,1\n0.100,1\n0.2009,1\n0.3,1\n"), "");
    const std::string uneven = Failed("s,I\n0,1\n0.100,1\n0.2015,1\n0.3,1\n");
    EXPECT_NE(uneven.find("2 "), std::string::npos);
    EXPECT_NE(uneven.find("line 4 is 0.1015 s after the line before it; the average is 0.1 s."),
              std::string::npos)
        << uneven;
    EXPECT_EQ(Failed("s,I\n0,1\n0.1,1\n0.5,1\n", WithRate(10)), "");
    EXPECT_NE(Failed("s,I\n0,1\n0,1\n").find("line 3, column 1"), std::string::npos);
}

TEST_F(CsvReaderTest, NumbersBeyondAllMeasureAreRefusedWithTheirLine) {
    const std::string failed = Failed("time,I\n0,1\n0.01,1e308\n");
    EXPECT_NE(failed.find("line 3, column 2: \"1e308\" is beyond 1e15"), std::string::npos)
        << failed;
}

TEST_F(CsvReaderTest, RefusalsNameLineAndColumn) {
    EXPECT_NE(Failed("1,2\n3,4\n").find("does not begin with a line of names"), std::string::npos);
    EXPECT_NE(Failed("I,II\n1,2\n").find("--rate"), std::string::npos);
    EXPECT_NE(Failed("I,II\n1,2\n1,2x\n", WithRate(1)).find("line 3, column 2: \"2x\" is no"),
              std::string::npos);
    EXPECT_NE(Failed("I,II\n1,2,3\n", WithRate(1)).find("line 2 has 3 columns"), std::string::npos);
    EXPECT_NE(Failed("I,II\n", WithRate(1)).find("has names and no numbers"), std::string::npos);
    EXPECT_NE(Failed("", WithRate(1)).find("is empty"), std::string::npos);
    EXPECT_NE(Failed("time\n1\n2\n").find("has 1 columns"), std::string::npos);
    EXPECT_NE(Failed("I\n" + std::string(3 << 20, '1'), WithRate(1)).find("is longer than a line"),
              std::string::npos);
}
