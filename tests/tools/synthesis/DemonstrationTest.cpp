#include "tools/synthesis/Demonstration.h"

#include "tests/support/Files.h"
#include "WFDB/wfdb.h"

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

class DemonstrationTest : public testing::Test {
  protected:
    std::string Path(const std::string& name) const { return m_directory / name; }

    Scratch m_directory;
};

synthesis::Demonstration TwoFrames() {
    synthesis::Demonstration record{250, {}};
    for (std::size_t i = 0; i < synthesis::kLeadCount; ++i) {
        record.microvolts[i] = {static_cast<int16_t>(1000 * (i + 1)),
                                static_cast<int16_t>(-4 * static_cast<int>(i))};
    }
    return record;
}

} // namespace

TEST_F(DemonstrationTest, HoldsAsManySamplesAsAskedFor) {
    const auto record = synthesis::MakeDemonstration(500, 10, 72.0);
    EXPECT_EQ(record.rate, 500);
    for (const auto& lead : record.microvolts) {
        EXPECT_EQ(lead.size(), 5000U);
    }
}

// The joint of the loop is a step of the wave like any other: at rest between T and P.
TEST_F(DemonstrationTest, LoopsWithoutAJoint) {
    const auto record = synthesis::MakeDemonstration(500, 10, 72.0);
    for (const auto& lead : record.microvolts) {
        EXPECT_LE(std::abs(lead.front() - lead.back()), 5);
    }
}

// 72 per minute for 10 s: twelve R waves in lead I.
TEST_F(DemonstrationTest, HoldsAWholeNumberOfBeats) {
    const auto record = synthesis::MakeDemonstration(500, 10, 72.0);
    const auto& lead = record.microvolts[0];
    int beats = 0;
    for (std::size_t n = 1; n < lead.size(); ++n) {
        beats += lead[n - 1] < 500 && lead[n] >= 500 ? 1 : 0;
    }
    EXPECT_EQ(beats, 12);
}

TEST_F(DemonstrationTest, IsTheSameEveryTime) {
    const auto first = synthesis::MakeDemonstration(360, 4, 80.0);
    const auto second = synthesis::MakeDemonstration(360, 4, 80.0);
    EXPECT_EQ(first.microvolts, second.microvolts);
}

TEST_F(DemonstrationTest, WritesFormat16LittleEndian) {
    ASSERT_TRUE(synthesis::WriteRecord(TwoFrames(), Path("two"), synthesis::SignalFormat::k16));
    const std::string bytes = ReadFile(Path("two.dat"));
    ASSERT_EQ(bytes.size(), 32U);
    EXPECT_EQ(bytes.substr(0, 4), std::string("\xE8\x03\xD0\x07", 4));  // 1000, 2000
    EXPECT_EQ(bytes.substr(16, 4), std::string("\x00\x00\xFC\xFF", 4)); // 0, -4
}

// 250 units per millivolt: 1 mV is 250 = 0x0FA, 2 mV is 500 = 0x1F4; 0 and -4 uV are 0 and -1.
TEST_F(DemonstrationTest, WritesFormat212AsPairs) {
    ASSERT_TRUE(synthesis::WriteRecord(TwoFrames(), Path("two"), synthesis::SignalFormat::k212));
    const std::string bytes = ReadFile(Path("two.dat"));
    ASSERT_EQ(bytes.size(), 24U);
    EXPECT_EQ(bytes.substr(0, 3), std::string("\xFA\x10\xF4", 3));
    EXPECT_EQ(bytes.substr(12, 3), std::string("\x00\xF0\xFF", 3));
}

TEST_F(DemonstrationTest, HeaderDescribesEachLead) {
    ASSERT_TRUE(synthesis::WriteRecord(TwoFrames(), Path("two"), synthesis::SignalFormat::k16));
    std::ifstream header(Path("two.hea"));
    std::string line;
    std::getline(header, line);
    EXPECT_EQ(line, "two 8 250 2");
    std::getline(header, line);
    EXPECT_EQ(line, "two.dat 16 1000/mV 16 0 1000 1000 0 I");
    std::getline(header, line);
    EXPECT_EQ(line, "two.dat 16 1000/mV 16 0 2000 1996 0 II");
}

// The record library is used to read the output of this writer.
TEST_F(DemonstrationTest, RecordLibraryReadsItBack) {
    const auto record = synthesis::MakeDemonstration(500, 2, 60.0);
    for (const auto format : {synthesis::SignalFormat::k16, synthesis::SignalFormat::k212}) {
        ASSERT_TRUE(synthesis::WriteRecord(record, Path("demo"), format));
        std::string path = Path("demo.hea");
        WFDB_HEADER* header = WFDBReadHeader(path.data());
        ASSERT_NE(header, nullptr);
        ASSERT_EQ(WFDBLoadSignal(m_directory.Path().c_str(), header), 1);
        const double step = format == synthesis::SignalFormat::k16 ? 0.0 : 0.002;
        double frame[synthesis::kLeadCount];
        for (std::size_t n = 0; n < 1000; ++n) {
            ASSERT_EQ(WFDBNextSample(header, frame, 1), 1);
            for (std::size_t i = 0; i < synthesis::kLeadCount; ++i) {
                ASSERT_NEAR(frame[i], record.microvolts[i][n] / 1000.0, step + 1e-12);
            }
        }
        EXPECT_EQ(WFDBNextSample(header, frame, 1), 0);
        WFDBFreeHeader(header);
    }
}

TEST_F(DemonstrationTest, RefusesADirectoryThatIsNotThere) {
    EXPECT_FALSE(
        synthesis::WriteRecord(TwoFrames(), Path("no/such/record"), synthesis::SignalFormat::k16));
}

TEST_F(DemonstrationTest, RefusesAValueThatTwelveBitsDoNotHold) {
    auto record = TwoFrames();
    record.microvolts[7][1] = 32767;
    EXPECT_FALSE(synthesis::WriteRecord(record, Path("high"), synthesis::SignalFormat::k212));
    EXPECT_FALSE(fs::exists(Path("high.dat")));
}
