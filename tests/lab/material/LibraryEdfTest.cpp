#include "EdfFile.h"
#include "Scratch.h"

#include "lab/material/LoadRecord.h"
#include "lab/material/Outputs.h"

#include <gtest/gtest.h>

using namespace lab;

namespace {

// 0.1 mV on lead I, 0.2 mV on lead II and so on, over two data records of 100 samples.
class LibraryEdfTest : public testing::Test {
  protected:
    LibraryEdfTest() {
        m_request.asEdf = true;
        Write({Lead("I", "100"), Lead("II", "100"), Lead("V1", "100")}, "2", "1");
    }

    void Write(const std::vector<Channel>& channels, const std::string& records,
               const std::string& duration) {
        std::vector<int64_t> samples;
        for (int record = 0; record < 2; ++record) {
            for (std::size_t i = 0; i < channels.size(); ++i) {
                samples.insert(samples.end(), std::stoul(channels[i].perRecord),
                               10 * static_cast<int64_t>(i + 1));
            }
        }
        m_request.name =
            m_scratch.Write("e.edf", EdfHeader(channels, records, duration) + Words(samples, 16));
    }

    std::string Failed() const {
        return FailureOf([&] { LoadRecord(m_request); });
    }

    Scratch m_scratch;
    MaterialRequest m_request;
};

} // namespace

TEST_F(LibraryEdfTest, MapIsWhatTheOutputsCarry) {
    const Record record = LoadRecord(m_request);
    const std::vector<std::pair<std::string, std::string>> carried = {
        {"I", "I"}, {"II", "I"}, {"V1", "V1"}};
    EXPECT_EQ(record.Map(), carried);
    EXPECT_EQ(record.signals[1].lead, ECG_LEAD_NONE);
    EXPECT_FALSE(record.supplied[1]);
    ASSERT_EQ(record.warnings.size(), 1U);
    EXPECT_NE(record.warnings[0].find("signal \"II\" feeds no output"), std::string::npos);
    EXPECT_EQ(record.rate, 100);
    EXPECT_EQ(record.samples, 200);
    const Outputs outputs = ExpectedOutputs(record, 0, 1);
    EXPECT_NEAR(outputs.millivolts[1][0], outputs.millivolts[0][0], 1e-9);
}

TEST_F(LibraryEdfTest, FourChestLeadsLeaveTwoOutputsWithoutOne) {
    Write({Lead("I", "100"), Lead("V4", "100"), Lead("V5", "100")}, "2", "1");
    m_request.asEdf = false;
    m_request.format = "edf-4";
    const Record record = LoadRecord(m_request);
    const std::vector<std::pair<std::string, std::string>> carried = {
        {"I", "I"}, {"II", "I"}, {"V4", "V4"}};
    EXPECT_EQ(record.Map(), carried);
}

TEST_F(LibraryEdfTest, BdfIsRefusedAsWhatItIs) {
    const std::string version = "\xFF"
                                "BIOSEMI";
    m_request.name =
        m_scratch.Write("b.bdf", EdfHeader({Lead("I", "100")}, "1", "1", "24BIT", version) +
                                     Words(std::vector<int64_t>(100, 10), 24));
    const std::string refusal =
        "2 " + m_request.name +
        ": is a BDF file, of 24 bits a sample; the library's own kind of EDF material takes EDF "
        "files, of 16.\n"
        "      Without --as-edf and --format edf-4 it plays, each signal at its own rate.";
    EXPECT_EQ(Failed(), refusal);
    m_request.asEdf = false;
    EXPECT_EQ(Failed(), "");
    m_request.format = "edf-4";
    EXPECT_EQ(Failed(), refusal);
}

TEST_F(LibraryEdfTest, OtherRatesFractionsAndCutFilesAreRefused) {
    EXPECT_EQ(Failed(), "");
    Write({Lead("I", "100"), Lead("Resp", "50")}, "2", "1");
    EXPECT_NE(Failed().find("signal 1 \"Resp\" has 50 samples in a data record, signal 0 has 100"),
              std::string::npos);
    Write({Lead("I", "100")}, "2", "0.5");
    EXPECT_NE(Failed().find("has 100 samples in 0.5 s"), std::string::npos);
    Write({Lead("I", "100")}, "3", "1");
    EXPECT_NE(Failed().find("announces 3 data records and holds 2"), std::string::npos);
    Write({{"I", "V", "-5", "5", "-500", "500", "100"}}, "2", "1");
    EXPECT_NE(Failed().find("is in \"V\""), std::string::npos);
    m_request.asEdf = false;
    EXPECT_EQ(Failed(), "");
}
