#include "EdfFile.h"
#include "lab/material/LoadRecord.h"
#include "LoadFixture.h"
#include "Scratch.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

// 100 samples a second, 0.4 of one between the data records: they begin at samples 0, 100.4, 200.8,
// 301.2, 401.6 and 502, two of which lie one sample past the end of the previous data record.
TEST_F(LoadTest, SmallGapsOfADiscontinuousFileAreCountedAsMissing) {
    const Channel notes = {"EDF Annotations", "", "-1", "1", "-32768", "32767", "8"};
    std::string body;
    for (const std::string time : {"+0", "+1.004", "+2.008", "+3.012", "+4.016", "+5.02"}) {
        std::string list = time + "\x14\x14";
        list.resize(16, '\0');
        body += list + Words(std::vector<int64_t>(100, 50), 16);
    }
    m_request.name =
        m_scratch.Write("e.edf", EdfHeader({notes, Lead("I", "100")}, "6", "1", "EDF+D") + body);
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(record.samples, 602);
    EXPECT_EQ(record.MissingSamples(), 2);
    ASSERT_EQ(record.signals[0].gaps.size(), 2U);
    EXPECT_EQ(record.signals[0].gaps[0].begin, 200);
    EXPECT_EQ(record.signals[0].gaps[0].end, 201);
    EXPECT_EQ(record.signals[0].gaps[1].begin, 401);
}

// Announcing a length in a header costs nothing; the count is the true one up to 63 bits.
TEST_F(LoadTest, AnyNumberOfSamplesThatAreCutIsTold) {
    const auto missing = [&](const std::string& announced) {
        m_scratch.Write("r.hea", "r 2 100 " + announced + "\nr.dat 16 1000/mV 16 0 0 0 0 I\n" +
                                     "r.dat 16 1000/mV 16 0 0 0 0 V2\n");
        return LoadRecord(m_request).MissingSamples();
    };
    EXPECT_EQ(missing("100000000003"), 200'000'000'000);
    EXPECT_EQ(missing("9000000000000000000"), std::numeric_limits<int64_t>::max());
}

TEST_F(LoadTest, MissingSamplesAreHeldOrZeroAndCounted) {
    m_scratch.Write("r.dat", Words({100, -200, -32768, -400, 500, -32768}, 16));
    const Record held = LoadRecord(m_request);
    EXPECT_EQ(Text(Loaded(0)), "0.1 0.1 0.5 ");
    EXPECT_EQ(Text(Loaded(7)), "-0.2 -0.4 -0.4 ");
    EXPECT_EQ(held.signals[0].missing, 1);
    EXPECT_EQ(held.MissingSamples(), 2);
    ASSERT_FALSE(held.warnings.empty());
    m_request.missing = "zero";
    LoadRecord(m_request);
    EXPECT_EQ(Text(Loaded(0)), "0.1 0 0.5 ");
}

// With and without a treatment, of both formats that the library reads by itself.
TEST_F(LoadTest, CutRecordEndsWithItsFileAndIsToldOf) {
    m_scratch.Write("b.dat", Pairs({100, -200, 300, -400, 500, -600}));
    for (const char* format : {"r.dat 16", "b.dat 212"}) {
        const std::string line = std::string(format) + " 1000/mV 16 0 0 0 0 ";
        m_scratch.Write("r.hea", "r 2 100 5\n" + line + "I\n" + line + "V2\n");
        for (const char* gain : {"", "1.5"}) {
            m_request.gain = {gain};
            m_request.gain.resize(*gain == '\0' ? 0 : 1);
            const Record record = LoadRecord(m_request);
            EXPECT_EQ(record.samples, 3);
            EXPECT_EQ(record.signals[0].missing, 0);
            EXPECT_EQ(record.MissingSamples(), 4); // two of each signal
            EXPECT_TRUE(record.isCut);
            ASSERT_EQ(record.warnings.size(), 1U);
            EXPECT_NE(record.warnings[0].find("announces 5 frames, but its signal file holds 3:"),
                      std::string::npos);
            EXPECT_EQ(FailureOf([&] { RequireWhole(record); }).substr(0, 2), "2 ");
        }
    }
    m_scratch.Write("r.hea", "r 1 100 6\nr.dat 16 1000/mV 16 0 0 0 0 I\n");
    EXPECT_FALSE(LoadRecord(m_request).isCut);
}

TEST_F(LoadTest, CutFileOfSeveralAndCutSegmentAreToldOf) {
    m_scratch.Write("b.dat", Words({7}, 16));
    m_scratch.Write("r.hea", "r 2 100 6\nr.dat 16 1000/mV 16 0 0 0 0 I\n"
                             "b.dat 16 1000/mV 16 0 0 0 0 V2\n");
    const Record several = LoadRecord(m_request);
    EXPECT_TRUE(several.isCut);
    EXPECT_EQ(several.samples, 6);
    ASSERT_FALSE(several.warnings.empty());
    EXPECT_NE(several.warnings[0].find("its signal file " + (m_scratch / "b.dat") + " holds 1:"),
              std::string::npos);
    EXPECT_EQ(several.MissingSamples(), 5);
    m_scratch.Write("s.hea", "s 1 100 6\nr.dat 16 1000/mV 16 0 0 0 0 I\n");
    m_request.name = m_scratch.Write("m.hea", "m/2 1 100 14\ns 8\ns 6\n");
    const Record segments = LoadRecord(m_request);
    EXPECT_TRUE(segments.isCut);
    EXPECT_EQ(segments.samples, 14);
    EXPECT_EQ(segments.MissingSamples(), 2);
    ASSERT_FALSE(segments.warnings.empty());
    EXPECT_NE(segments.warnings[0].find("gives segment s 8 frames, it holds 6"), std::string::npos);
}

TEST_F(LoadTest, RecordWithoutASampleOfItsLeadsIsRefused) {
    m_scratch.Write("r.dat", Words({-32768, -32768, -32768, -400, -32768, -32768}, 16));
    EXPECT_EQ(LoadRecord(m_request).signals[0].missing, 3);
    m_scratch.Write("r.dat", Words(std::vector<int64_t>(6, -32768), 16));
    EXPECT_EQ(Failed().rfind("2 " + m_request.name + ": lacks every sample", 0), 0U);
}

// Files without a length in any header show by themselves that they are cut.
TEST_F(LoadTest, CutWithoutAnAnnouncedLengthIsToldOf) {
    const auto cut = [&](int64_t missing, const std::string& warning) {
        const Record record = LoadRecord(m_request);
        EXPECT_TRUE(record.isCut);
        EXPECT_EQ(record.MissingSamples(), missing);
        ASSERT_FALSE(record.warnings.empty());
        EXPECT_EQ(record.warnings[0], warning);
        EXPECT_EQ(FailureOf([&] { RequireWhole(record); }).substr(0, 2), "2 ");
    };
    const std::string file = m_scratch / "r.dat";
    const auto header = [&](const std::string& format) {
        const std::string line = "r.dat " + format + " 1000/mV 16 0 0 0 0 ";
        m_scratch.Write("r.hea", "r 2 100\n" + line + "I\n" + line + "V2\n");
    };
    header("16");
    EXPECT_FALSE(LoadRecord(m_request).isCut);
    m_scratch.Write("r.dat", Words({100, -200, 300}, 16)); // a sample less
    cut(2, file + " ends within frame 1: the rest is missing");
    m_scratch.Write("r.dat", Words({100, -200}, 16) + "x"); // a byte more
    cut(2, file + " ends within frame 1: the rest is missing");
    header("212");
    m_scratch.Write("r.dat", Pairs({100, -200, 300, -400}).substr(0, 5));
    cut(2, file + " ends within frame 1: the rest is missing");
    m_scratch.Write("r.dat", Words({100, 300, 500}, 16));
    m_scratch.Write("b.dat", Words({7}, 16));
    m_scratch.Write("r.hea", "r 2 100\nr.dat 16 1000/mV 16 0 0 0 0 I\n"
                             "b.dat 16 1000/mV 16 0 0 0 0 V2\n");
    cut(2, (m_scratch / "b.dat") + " holds 1 frames, another signal file of the record 3: the rest "
                                   "is missing");
}

// Three samples of 12 bits and the padding of the fourth.
TEST_F(LoadTest, FilledUpGroupIsNoCut) {
    m_scratch.Write("r.dat", Pairs({100, 300, 500}));
    m_scratch.Write("r.hea", "r 3 100\nr.dat 212 1000/mV 12 0 0 0 0 I\n"
                             "r.dat 212 1000/mV 12 0 0 0 0 II\nr.dat 212 1000/mV 12 0 0 0 0 V1\n");
    EXPECT_FALSE(LoadRecord(m_request).isCut);
    EXPECT_EQ(Text(Loaded(0)), "0.1 ");
}
