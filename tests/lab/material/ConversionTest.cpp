#include "Scratch.h"

#include "lab/material/Conversion.h"
#include "lab/material/OpenMaterial.h"
#include "lab/material/readers/AnnotationFile.h"
#include "lab/material/readers/WfdbReader.h"
#include "tests/support/PublicRecord.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace lab;

namespace {

class ConversionTest : public testing::Test {
  protected:
    ConversionTest() { m_request.directory = m_scratch / "out"; }

    std::string Failed() const {
        return FailureOf([&] { ConvertMaterial(m_request); });
    }

    Scratch m_scratch;
    ConversionRequest m_request;
};

} // namespace

TEST_F(ConversionTest, LeadsInOutputOrderWithTheSourcesNumbers) {
    m_scratch.Write("r.dat", Words({10, 20, 30, -10, -20, 0x20}, 8));
    m_request.material.name =
        m_scratch.Write("r.hea", "r 3 250.5 2 1:2:3 4/5/2006\nr.dat 80 20/mV 8 0 0 0 0 V1\n"
                                 "r.dat 80 5/NU 8 0 0 0 0 Resp\nr.dat 80 40/mV 8 0 0 0 0 Lead I\n");
    EXPECT_EQ(ConvertMaterial(m_request).path, m_scratch / "out/r.hea");
    EXPECT_EQ(ReadFile(m_scratch / "out/r.hea"), "r 2 250.5 2 1:2:3 4/5/2006\n"
                                                 "r.dat 16 40(0)/mV 16 0 -98 -194 0 Lead I\n"
                                                 "r.dat 16 20(0)/mV 16 0 -118 0 0 V1\n");
    EXPECT_EQ(ReadFile(m_scratch / "out/r.dat"), Words({-98, -118, -96, 118}, 16));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_request.directory), {}), 2);
}

TEST_F(ConversionTest, MissingStaysMissingAndAllTakesTheOthers) {
    m_scratch.Write("r.dat", Words({1, 2, -8388608, 3}, 24));
    m_request.material.name = m_scratch.Write(
        "r.hea", "r 2 100 2\nr.dat 24 1/mV 24 0 0 0 0 II\nr.dat 24 1/L 24 0 0 0 0 Flow\n");
    m_request.takesAll = true;
    m_request.name = "named";
    const Converted converted = ConvertMaterial(m_request);
    const auto reader = OpenWfdb(converted.path);
    const Samples samples = ReadAll(*reader, {0, 1});
    EXPECT_EQ(Text(samples[0]), "1 - ");
    EXPECT_EQ(Text(samples[1]), "2 3 ");
    EXPECT_EQ(reader->Record().signals[1].unit, "L");
    EXPECT_EQ(ReadFile(m_scratch / "out/named.dat"), Words({1, 2, -32768, 3}, 16));
}

TEST_F(ConversionTest, SignalsOfSeveralRatesKeepThem) {
    m_scratch.Write("r.dat", Words({1, 2, 3, 4, 5, 6}, 16));
    m_scratch.Write("r.atr", EncodeAnnotations({{0.02, 1, 1, "N", 0, 0, 0, ""}}));
    m_request.material.name = m_scratch.Write(
        "r.hea", "r 2 100 2\nr.dat 16x2 1/mV 16 0 0 0 0 II\nr.dat 16 1/mV 16 0 0 0 0 Flow\n");
    const auto leads = OpenWfdb(ConvertMaterial(m_request).path);
    EXPECT_EQ(leads->Record().frameRate, MakeRate(200, 1));
    EXPECT_EQ(Text(ReadAll(*leads, {0})[0]), "1 2 4 5 ");
    const auto annotations = ReadAnnotationFile(m_scratch / "out/r.atr", MakeRate(200, 1));
    ASSERT_EQ(annotations.size(), 1U);
    EXPECT_EQ(annotations[0].sample, 2);
    m_request.takesAll = true;
    const Converted all = ConvertMaterial(m_request);
    EXPECT_EQ(all.path, m_scratch / "out/r-2.hea");
    EXPECT_EQ(Text(ReadAll(*OpenWfdb(all.path), {1})[0]), "3 6 ");
}

TEST_F(ConversionTest, TakenNamesAreLeftAlone) {
    m_request.material.name = m_scratch.Write("a b.csv", "s,I\n0,1\n0.01,2\n");
    std::filesystem::create_directory(m_request.directory);
    m_scratch.Write("out/a_b.atr", "mine");
    EXPECT_EQ(ConvertMaterial(m_request).path, m_scratch / "out/a_b-2.hea");
    m_request.name = "a_b";
    EXPECT_EQ(Failed().substr(0, 2), "6 ");
    EXPECT_EQ(ReadFile(m_scratch / "out/a_b.atr"), "mine");
    m_request.overwrites = true;
    EXPECT_EQ(Failed(), "");
    EXPECT_FALSE(std::filesystem::exists(m_scratch / "out/a_b.atr"));
    m_request.name = "a/b";
    EXPECT_EQ(Failed().substr(0, 2), "1 ");
}

TEST_F(ConversionTest, RecordCanReplaceItself) {
    m_scratch.Write("r.dat", Words({5, -5}, 16));
    m_request.material.name = m_scratch.Write("r.hea", "r 1 100 2\nr.dat 16 1/mV 16 0 0 0 0 II\n");
    m_request.directory = m_scratch.Path();
    m_request.overwrites = true;
    m_request.material.gain = {"3"};
    ConvertMaterial(m_request);
    EXPECT_EQ(Text(ReadAll(*OpenWfdb(m_scratch / "r.hea"), {0})[0]), "15 -15 ");
}

TEST_F(ConversionTest, CsvComesBackAsItWas) {
    m_request.material.name = m_scratch.Write("c.csv", "ms,II [uV],I\n0,1500,\n4,-2000.5,0.25\n");
    m_request.isCsv = true;
    EXPECT_EQ(ConvertMaterial(m_request).path, m_scratch / "out/c.csv");
    EXPECT_EQ(ReadFile(m_scratch / "out/c.csv"), "seconds,I,II\n0,,1.5\n0.004,0.25,-2.0005\n");
}

TEST_F(ConversionTest, BuiltinRecordsAndWaveforms) {
    m_request.material.name = "builtin:CAL20000";
    const auto reader = OpenWfdb(ConvertMaterial(m_request).path);
    EXPECT_EQ(reader->Record().signals.size(), 8U);
    EXPECT_EQ(reader->Record().signals[0].samples, 10'000);
    EXPECT_EQ(reader->Record().signals[0].gain, 1000.0);
    m_request.material.name = "sine";
    EXPECT_EQ(OpenWfdb(ConvertMaterial(m_request).path)->Record().signals[0].samples, 100'000);
}

TEST_F(ConversionTest, NothingThatFeedsALeadIsRefusedAndLeavesNothing) {
    m_request.material.name = m_scratch.Write("c.csv", "s,x\n0,1\n0.1,2\n");
    EXPECT_EQ(Failed().substr(0, 2), "2 ");
    EXPECT_FALSE(std::filesystem::exists(m_request.directory));
    m_request.takesAll = true;
    EXPECT_EQ(Failed(), "");
}

// ---- Annotations --------------------------------------------------------------------------------

TEST_F(ConversionTest, AnnotationFilesAreReadWhole) {
    // N at 18 with number 2 and a text, then a skip of 70000 to a V of subtype -1 and channel 1.
    const std::string bytes("\x12\x04\x02\xF0\x03\xFC"
                            "ab\x01\x00\x00\xEC\x01\x00\x70\x11\x00\x14"
                            "\xFF\xF4\x01\xF8\x00\x00",
                            24);
    const auto annotations = ReadAnnotationFile(m_scratch.Write("x.atr", bytes), MakeRate(100, 1));
    ASSERT_EQ(annotations.size(), 2U);
    EXPECT_EQ(annotations[0].sample, 18);
    EXPECT_EQ(annotations[0].seconds, 0.18);
    EXPECT_EQ(annotations[0].code, "N");
    EXPECT_EQ(annotations[0].number, 2);
    EXPECT_EQ(annotations[0].text, "ab\x01");
    EXPECT_EQ(annotations[1].sample, 18 + 65536 + 0x1170);
    EXPECT_EQ(annotations[1].code, "V");
    EXPECT_EQ(annotations[1].subtype, -1);
    EXPECT_EQ(annotations[1].channel, 1);
    EXPECT_EQ(EncodeAnnotations(annotations), bytes);
    for (const std::size_t length : {1U, 7U, 13U}) {
        const std::string path = m_scratch.Write("y.atr", bytes.substr(0, length));
        EXPECT_EQ(FailureOf([&] { ReadAnnotationFile(path, MakeRate(1, 1)); }).substr(0, 2), "2 ")
            << length;
    }
}

// ---- Public records -----------------------------------------------------------------------------

namespace {

// Converted values differ from the source's by at most half a microvolt, half a unit or half a step
// of 16 bits over the span, and missing samples remain missing.
void ExpectSame(const std::string& source, const std::string& directory) {
    ConversionRequest request;
    request.material.name = source;
    request.directory = directory;
    request.takesAll = true;
    const auto converted = OpenWfdb(ConvertMaterial(request).path);
    const OpenedMaterial material = OpenMaterial(request.material);
    for (std::size_t i = 0; i < material.record.signals.size(); ++i) {
        const auto wanted = ReadAll(*material.reader, {i})[0];
        const auto got = ReadAll(*converted, {i})[0];
        ASSERT_GE(got.size(), wanted.size()) << source;
        double least = INFINITY;
        double most = -INFINITY;
        for (const double value : wanted) {
            least = std::isnan(value) ? least : std::min(least, value);
            most = std::isnan(value) ? most : std::max(most, value);
        }
        const double gain = std::fabs(material.reader->Record().signals[i].gain);
        const double tolerance =
            std::max({0.0005, gain > 0.0 ? 0.5 / gain : 0.0, (most - least) / 65535 / 2}) * 1.01;
        for (std::size_t n = 0; n < wanted.size(); ++n) {
            ASSERT_EQ(std::isnan(wanted[n]), std::isnan(got[n])) << source << i << " " << n;
            ASSERT_FALSE(std::fabs(wanted[n] - got[n]) > tolerance) << source << i << " " << n;
        }
    }
}

} // namespace

TEST_F(ConversionTest, PublicRecordsKeepTheirValues) {
    for (const char* name : {"100.hea", "v102s.hea", "test_generator_2.edf"}) {
        const std::string path = PublicRecord(name);
        if (path.empty()) {
            GTEST_SKIP() << "the public records are missing; RAVO_TEST_DATA names their folder";
        }
        ExpectSame(path, m_request.directory);
    }
    const auto annotations = ReadAnnotationFile(m_request.directory + "/100.atr", MakeRate(360, 1));
    EXPECT_EQ(annotations.size(), 2274U);
}

// Any folder of records: those that are refused are named in the output, all others keep their
// values.
TEST_F(ConversionTest, FolderOfRecordsKeepsItsValues) {
    const char* folder = std::getenv("RAVO_TEST_RECORDS");
    if (folder == nullptr) {
        GTEST_SKIP() << "RAVO_TEST_RECORDS names no folder of records";
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        const std::string extension = entry.path().extension().string();
        if (extension == ".hea" || extension == ".edf" || extension == ".bdf") {
            const std::string refusal =
                FailureOf([&] { ExpectSame(entry.path().string(), m_request.directory); });
            EXPECT_TRUE(refusal.empty() || refusal[0] == '2') << refusal;
            std::fputs(refusal.empty() ? "" : (refusal + "\n").c_str(), stderr);
        }
    }
}
