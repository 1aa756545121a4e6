#include "tools/emulator/RecordWriter.h"

#include "tests/support/Files.h"
#include "tests/support/RecordFile.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>

using namespace emulator;

namespace {

class RecordWriterTest : public testing::Test {
  protected:
    std::string In(const std::string& name) const { return m_directory / name; }

    Scratch m_directory;
};

SeenStart StartOf(double rate, std::uint8_t range) {
    SeenStart start;
    start.rate = rate;
    start.range = range;
    start.reload = 53615;
    return start;
}

TEST_F(RecordWriterTest, WritesEightSignalsInTheOrderOfTheLeads) {
    RecordWriter writer(In("out"), Unit::kTwelveBit, 0.0, ConverterModel::Ideal());
    writer.Started(StartOf(500.0, 5));
    // Channels I, II, V6, V5, V4, V3, V2, V1.
    writer.Arrived(
        {{4048, 48, 2054, 2053, 2052, 2051, 2050, 2049}, {2048, 0, 1, 2, 3, 4, 5, 4095}});
    writer.Arrived({{2048, 2048, 2048, 2048, 2048, 2048, 2048, 2048}});
    writer.Stopped();
    EXPECT_EQ(writer.Error(), "");
    EXPECT_EQ(writer.Headers(), std::vector<std::string>{In("out.hea")});

    const RecordFile record = ReadRecordFile(In("out.hea"));
    EXPECT_EQ(record.name, "out");
    EXPECT_EQ(record.rate, 500.0);
    EXPECT_EQ(record.frames, 3U);
    ASSERT_EQ(record.signals.size(), 8U);
    const char* const leads[] = {"I", "II", "V1", "V2", "V3", "V4", "V5", "V6"};
    for (std::size_t lead = 0; lead < 8; ++lead) {
        const RecordFile::Signal& signal = record.signals[lead];
        EXPECT_EQ(signal.description, leads[lead]);
        EXPECT_EQ(signal.file, "out.dat");
        EXPECT_EQ(signal.format, 16);
        EXPECT_EQ(signal.gain, 6400.0);
        EXPECT_EQ(signal.baseline, 0);
        EXPECT_EQ(signal.unit, "mV");
        EXPECT_EQ(signal.firstValue, signal.samples[0]);
    }
    using Samples = std::vector<std::int16_t>;
    EXPECT_EQ(record.signals[0].samples, (Samples{32000, 0, 0}));
    EXPECT_EQ(record.signals[1].samples, (Samples{-32000, -32768, 0}));
    EXPECT_EQ(record.signals[2].samples, (Samples{16, 32752, 0}));               // V1
    EXPECT_EQ(record.signals[3].samples, (Samples{32, (5 - 2048) * 16, 0}));     // V2
    EXPECT_EQ(record.signals[6].samples, (Samples{5 * 16, (2 - 2048) * 16, 0})); // V5
    EXPECT_EQ(record.signals[7].samples, (Samples{6 * 16, (1 - 2048) * 16, 0})); // V6
    EXPECT_EQ(record.signals[1].checksum, -32000 - 32768 + 65536);
    EXPECT_NE(record.comments.find("(V + (I + II) / 3) x 0.592731"), std::string::npos);
}

TEST_F(RecordWriterTest, SixteenBitCodesAreTheSamples) {
    RecordWriter writer(In("out.hea"), Unit::kSixteenBit, 0.0, ConverterModel::Ideal());
    writer.Started(StartOf(1000.0, 2));
    writer.Arrived({{64768, 768, 32768, 0, 65535, 1, 2, 3}});
    writer.Stopped();
    const RecordFile record = ReadRecordFile(In("out.hea"));
    EXPECT_EQ(record.signals.at(0).gain, 16000.0);
    EXPECT_EQ(record.signals[0].samples.at(0), 32000);
    EXPECT_EQ(record.signals[1].samples.at(0), -32000);
    EXPECT_EQ(record.signals[7].samples.at(0), 0);
    EXPECT_EQ(record.signals[6].samples.at(0), -32768);
    EXPECT_EQ(record.signals[5].samples.at(0), 32767);
}

TEST_F(RecordWriterTest, UncalibratedConvertersGiveWhatTheyPutOut) {
    RecordWriter writer(In("out"), Unit::kTwelveBit, 0.0, ConverterModel::Uncalibrated());
    writer.Started(StartOf(500.0, 5));
    writer.Arrived({{2048, 2048, 2048, 2048, 2048, 2048, 2048, 2048}});
    writer.Stopped();
    const RecordFile record = ReadRecordFile(In("out.hea"));
    EXPECT_EQ(record.signals.at(0).samples.at(0), 76); // (3.25 + 1.5) x 16
    EXPECT_EQ(record.signals[1].samples.at(0), -36);   // (-4.5 + 2.25) x 16
    EXPECT_EQ(record.signals[2].samples.at(0), 76);    // channel 7: (5.5 - 0.75) x 16
}

TEST_F(RecordWriterTest, TheRangeCanBeGiven) {
    RecordWriter writer(In("out"), Unit::kTwelveBit, 2.5, ConverterModel::Ideal());
    writer.Started(StartOf(500.0, 2));
    writer.Arrived({Codes{}});
    writer.Stopped();
    EXPECT_EQ(ReadRecordFile(In("out.hea")).signals.at(0).gain, 12800.0);
}

TEST_F(RecordWriterTest, ARangeOfZeroGivesAnUnknownGain) {
    RecordWriter writer(In("out"), Unit::kTwelveBit, 0.0, ConverterModel::Ideal());
    writer.Started(StartOf(500.0, 0));
    writer.Arrived({Codes{}});
    writer.Stopped();
    EXPECT_EQ(ReadRecordFile(In("out.hea")).signals.at(0).gain, 0.0);
}

TEST_F(RecordWriterTest, TheHeaderNamesTheRateThatWasMeant) {
    RecordWriter writer(In("out"), Unit::kTwelveBit, 0.0, ConverterModel::Ideal());
    writer.Started(StartOf(6e6 / 16667, 5)); // 360 per second are 16666.67 counts
    writer.Stopped();
    EXPECT_EQ(ReadRecordFile(In("out.hea")).rate, 360.0);
    writer.Started(StartOf(6e6 / 17000, 5)); // between 352 and 353 per second
    writer.Stopped();
    EXPECT_NEAR(ReadRecordFile(In("out_2.hea")).rate, 352.9411765, 1e-6);
}

TEST_F(RecordWriterTest, EveryStartMakesARecord) {
    RecordWriter writer(In("out"), Unit::kTwelveBit, 0.0, ConverterModel::Ideal());
    for (std::uint16_t play = 1; play <= 3; ++play) {
        writer.Started(StartOf(500.0, 5));
        writer.Arrived(std::vector<Codes>(play, Codes{}));
        writer.Stopped();
    }
    EXPECT_EQ(writer.Headers().size(), 3U);
    EXPECT_EQ(ReadRecordFile(In("out.hea")).frames, 1U);
    EXPECT_EQ(ReadRecordFile(In("out_3.hea")).frames, 3U);
    EXPECT_EQ(ReadRecordFile(In("out_3.hea")).name, "out_3");
    EXPECT_EQ(ReadRecordFile(In("out_3.hea")).signals.at(0).file, "out_3.dat");
}

TEST_F(RecordWriterTest, APlayThatIsNotStoppedIsWrittenAtTheEnd) {
    {
        RecordWriter writer(In("out"), Unit::kTwelveBit, 0.0, ConverterModel::Ideal());
        writer.Started(StartOf(500.0, 5));
        writer.Arrived({Codes{}, Codes{}});
    }
    EXPECT_EQ(ReadRecordFile(In("out.hea")).frames, 2U);
}

TEST_F(RecordWriterTest, ANameThatNoHeaderCarriesIsRefused) {
    for (const char* name : {"", "my outputs", "out\t", "run.1", "#1", "out.hea.hea", "\xC3\xA4"}) {
        EXPECT_THROW(RecordWriter(In(name), Unit::kTwelveBit, 0.0, ConverterModel::Ideal()),
                     std::invalid_argument)
            << name;
    }
    EXPECT_NO_THROW(RecordWriter("a b.c/out-2_B", Unit::kTwelveBit, 0.0, ConverterModel::Ideal()));
}

TEST_F(RecordWriterTest, AFileThatCannotBeWrittenIsReported) {
    RecordWriter writer("/nonesuch/out", Unit::kTwelveBit, 0.0, ConverterModel::Ideal());
    writer.Started(StartOf(500.0, 5));
    writer.Arrived({Codes{}});
    writer.Stopped();
    EXPECT_EQ(writer.Error(), "cannot write /nonesuch/out.dat: No such file or directory");
    EXPECT_TRUE(writer.Headers().empty());
}

} // namespace
