#include "EdfFile.h"
#include "Scratch.h"

#include "lab/material/readers/EdfReader.h"

#include <gtest/gtest.h>
#include <optional>

using namespace lab;

namespace {

Channel Notes(const std::string& perRecord) {
    return {"EDF Annotations", "", "-1", "1", "-32768", "32767", perRecord};
}

class EdfReaderTest : public testing::Test {
  protected:
    std::unique_ptr<SourceReader> Open(const std::string& content) const {
        return OpenEdf(m_scratch.Write("e.edf", content), std::nullopt);
    }

    std::string Failed(const std::string& content) const {
        return FailureOf([&] { Open(content); });
    }

    Scratch m_scratch;
};

} // namespace

TEST_F(EdfReaderTest, EachSignalHasItsOwnRate) {
    const auto reader = Open(EdfHeader({Lead("ECG I", "2"), Lead("Resp", "1")}, "2", "0.5") +
                             Words({100, 200, 7, -100, -200, -7}, 16));
    const Samples samples = ReadAll(*reader, {0, 1});
    EXPECT_EQ(Text(samples[0]), "1 2 -1 -2 ");
    EXPECT_EQ(Text(samples[1]), "0.07 -0.07 ");
    EXPECT_EQ(reader->Record().signals[0].rate, MakeRate(4, 1));
    EXPECT_EQ(reader->Record().signals[1].rate, MakeRate(2, 1));
    EXPECT_EQ(reader->Record().date, "01/02/2003");
    EXPECT_EQ(reader->Record().time, "10:20:30");
}

TEST_F(EdfReaderTest, UnitsInEveryEncoding) {
    for (const std::string unit : {"uV", "\xB5V", "\xC2\xB5V", "\xCE\xBCV"}) {
        Channel channel = Lead("I", "1");
        channel.unit = unit;
        const auto reader = Open(EdfHeader({channel}, "1", "1") + Words({100}, 16));
        EXPECT_EQ(Text(ReadAll(*reader, {0})[0]), "0.001 ") << unit;
        EXPECT_TRUE(reader->Record().signals[0].isVoltage);
    }
    Channel volts = Lead("I", "1");
    volts.unit = "V";
    EXPECT_EQ(Text(ReadAll(*Open(EdfHeader({volts}, "1", "1") + Words({1}, 16)), {0})[0]), "10 ");
    volts.unit = "";
    EXPECT_FALSE(
        Open(EdfHeader({volts}, "1", "1") + Words({1}, 16))->Record().signals[0].isVoltage);
}

// 24 bits over -8388608 to 8388607: a step is 1 uV, and -262144 uV lie at its lowest number.
TEST_F(EdfReaderTest, BdfHas24Bits) {
    Channel channel = Lead("II", "3");
    channel.unit = "uV";
    channel.physicalMinimum = "-8388608";
    channel.physicalMaximum = "8388607";
    channel.digitalMinimum = "-8388608";
    channel.digitalMaximum = "8388607";
    const std::string version = "\xFF"
                                "BIOSEMI";
    const auto reader =
        Open(EdfHeader({channel}, "1", "1", "24BIT", version) + Words({1000, -2000, 8388607}, 24));
    EXPECT_EQ(Text(ReadAll(*reader, {0})[0]), "1 -2 8388.61 ");
}

TEST_F(EdfReaderTest, AnnotationChannelsAreAnnotations) {
    std::string first = "+0.5\x14\x14";
    first += '\0';
    first += "+1.5\x15"
             "2\x14"
             "afib\x14";
    first += std::string(1, '\0');
    first.resize(32, '\0');
    const auto reader = Open(EdfHeader({Notes("16"), Lead("I", "2")}, "1", "1", "EDF+C") + first +
                             Words({100, 200}, 16));
    ASSERT_EQ(reader->Record().signals.size(), 1U);
    EXPECT_EQ(Text(ReadAll(*reader, {0})[0]), "1 2 ");
    const auto annotations = reader->Annotations();
    ASSERT_EQ(annotations.size(), 1U);
    EXPECT_EQ(annotations[0].text, "afib");
    // The first data record begins half a second after the file's start.
    EXPECT_EQ(annotations[0].seconds, 1.0);
    EXPECT_EQ(annotations[0].sample, 2);
}

TEST_F(EdfReaderTest, GapsOfADiscontinuousFileAreMissing) {
    std::string body;
    for (const std::string time : {"+0", "+1", "+3.5"}) {
        std::string list = time + "\x14\x14";
        list.resize(8, '\0');
        body += list + Words({100, 200}, 16);
    }
    const auto reader = Open(EdfHeader({Notes("4"), Lead("I", "2")}, "3", "1", "EDF+D") + body);
    EXPECT_EQ(Text(ReadAll(*reader, {0})[0]), "1 2 1 2 - - - 1 2 ");
    EXPECT_EQ(reader->Record().signals[0].samples, 9);
}

// Gaps of 0.4 samples: data records begin at samples 0, 2.4, 4.8, 7.2 and 9.6, each rounded to the
// nearest.
TEST_F(EdfReaderTest, GapsOfLessThanASampleAddUp) {
    std::string body;
    for (const std::string time : {"+0", "+1.2", "+2.4", "+3.6", "+4.8"}) {
        std::string list = time + "\x14\x14";
        list.resize(8, '\0');
        body += list + Words({100, 200}, 16);
    }
    const auto reader = Open(EdfHeader({Notes("4"), Lead("I", "2")}, "5", "1", "EDF+D") + body);
    EXPECT_EQ(Text(ReadAll(*reader, {0})[0]), "1 2 1 2 - 1 2 1 2 - 1 2 ");
    EXPECT_EQ(reader->Record().signals[0].samples, 12);
}

// Where data records overlap by less than a thousandth, all samples are read.
TEST_F(EdfReaderTest, RecordsThatBeginALittleEarlyAreReadWhole) {
    std::string body;
    for (const std::string time : {"+0", "+0.9995", "+1.999"}) {
        std::string list = time + "\x14\x14";
        list.resize(12, '\0');
        body += list + Words(std::vector<int64_t>(1000, 100), 16);
    }
    const auto reader = Open(EdfHeader({Notes("6"), Lead("I", "1000")}, "3", "1", "EDF+D") + body);
    EXPECT_EQ(ReadAll(*reader, {0})[0].size(), 3000U);
    EXPECT_EQ(reader->Record().signals[0].samples, 3000);
}

TEST_F(EdfReaderTest, NumberOfRecordsComesFromTheSizeWhereItIsUnknownOrWrong) {
    const std::string data = Words({100, 200, 300}, 16) + "x";
    const auto unknown = Open(EdfHeader({Lead("I", "1")}, "-1", "1") + data);
    EXPECT_EQ(Text(ReadAll(*unknown, {0})[0]), "1 2 3 ");
    ASSERT_EQ(unknown->Record().warnings.size(), 1U);
    EXPECT_NE(unknown->Record().warnings[0].find("ends within data record 3: it is left out"),
              std::string::npos);
    EXPECT_EQ(unknown->Record().signals[0].cut, 1);
    EXPECT_TRUE(unknown->Record().isCut);
    EXPECT_FALSE(Open(EdfHeader({Lead("I", "1")}, "-1", "1") + data.substr(0, 6))->Record().isCut);
    EXPECT_FALSE(Open(EdfHeader({Lead("I", "1")}, "3", "1") + data)->Record().isCut);
    const auto cut = Open(EdfHeader({Lead("I", "1")}, "9", "1") + data);
    EXPECT_EQ(Text(ReadAll(*cut, {0})[0]), "1 2 3 ");
    ASSERT_EQ(cut->Record().warnings.size(), 1U);
    EXPECT_NE(cut->Record().warnings[0].find("announces 9 data records and holds 3"),
              std::string::npos);
}

TEST_F(EdfReaderTest, RefusalsNameWhatIsWrong) {
    EXPECT_NE(Failed("EDF?").find("is not an EDF file"), std::string::npos);
    EXPECT_NE(Failed(Field("0", 100)).find("ends within its header"), std::string::npos);
    EXPECT_NE(Failed(EdfHeader({Lead("I", "1")}, "1", "1")).find("holds no whole data record"),
              std::string::npos);
    EXPECT_NE(Failed(EdfHeader({Lead("I", "x")}, "1", "1") + "ab").find("signal 0 has no number"),
              std::string::npos);
    EXPECT_NE(Failed(EdfHeader({Lead("I", "1")}, "1", "0") + "ab").find("data record of 0 s"),
              std::string::npos);
    Channel flat = Lead("I", "1");
    flat.physicalMaximum = "-5";
    EXPECT_NE(Failed(EdfHeader({flat}, "1", "1") + "ab").find("signal \"I\" has a physical"),
              std::string::npos);
    EXPECT_NE(Failed(EdfHeader({Lead("I", "1")}, "1", "1", "EDF+D") + "ab").find("discontinuous"),
              std::string::npos);
}
