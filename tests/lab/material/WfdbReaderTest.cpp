#include "Scratch.h"

#include "lab/material/readers/WfdbReader.h"

#include <gtest/gtest.h>

using namespace lab;

namespace {

class WfdbReaderTest : public testing::Test {
  protected:
    // Signal lines of the same file, gain 1 per mV, after a record line that ends in `rest`.
    std::string Header(const std::string& rest, const std::vector<std::string>& lines) const {
        std::string text = "r " + std::to_string(lines.size()) + " " + rest + "\n";
        for (const std::string& line : lines) {
            text += line + "\n";
        }
        return m_scratch.Write("r.hea", text);
    }

    std::string First(const std::string& path) const {
        return Text(ReadAll(*OpenWfdb(path), {0})[0]);
    }

    std::string Failed(const std::string& path) const {
        return FailureOf([&] { ReadAll(*OpenWfdb(path), {0}); });
    }

    Scratch m_scratch;
};

} // namespace

// ---- Formats ------------------------------------------------------------------------------------

TEST_F(WfdbReaderTest, Format8AddsDifferencesToTheInitialValue) {
    m_scratch.Write("r.dat", Words({3, -5, 127, -128}, 8));
    EXPECT_EQ(First(Header("100 4", {"r.dat 8 1 8 0 10"})), "13 8 135 7 ");
}

TEST_F(WfdbReaderTest, Format8KeepsASumForEachSignal) {
    m_scratch.Write("r.dat", Words({1, 10, 1, 10, 1, 10}, 8));
    const std::string path = Header("100 3", {"r.dat 8 1 8 0 100", "r.dat 8 1 8 0 -100"});
    const Samples samples = ReadAll(*OpenWfdb(path), {1, 0});
    EXPECT_EQ(Text(samples[0]), "-90 -80 -70 ");
    EXPECT_EQ(Text(samples[1]), "101 102 103 ");
}

TEST_F(WfdbReaderTest, WholeByteFormats) {
    struct Case {
        const char* format;
        std::string bytes;
        const char* samples;
    };
    const std::vector<Case> cases = {
        {"16", Words({1, -2, 32767, -32768}, 16), "1 -2 32767 - "},
        {"61", std::string("\x00\x01\xFF\xFE\x7F\xFF\x80\x00", 8), "1 -2 32767 - "},
        {"24", Words({1, -2, 8388607, -8388608}, 24), "1 -2 8.38861e+06 - "},
        {"32", Words({1, -2, 100000, INT32_MIN}, 32), "1 -2 100000 - "},
        {"80", Words({129, 126, 255, 0}, 8), "1 -2 127 - "},
        {"160", Words({32769, 32766, 65535, 0}, 16), "1 -2 32767 - "},
    };
    for (const Case& one : cases) {
        m_scratch.Write("r.dat", one.bytes);
        const std::string line = std::string("r.dat ") + one.format + " 1";
        EXPECT_EQ(First(Header("100 4", {line})), one.samples) << one.format;
        EXPECT_EQ(First(Header("100", {line})), one.samples) << one.format;
    }
}

// 0x123 and 0xFED (-19): the low bytes around the two high nibbles.
TEST_F(WfdbReaderTest, Format212) {
    m_scratch.Write("r.dat", std::string("\x23\xF1\xED\x00\x08", 5));
    EXPECT_EQ(First(Header("100", {"r.dat 212 1"})), "291 -19 - ");
}

// Samples 5, -6 and 0x2AA (-342, 1010101010): its low five bits, 01010, above the first, its high
// five, 10101, above the second.
TEST_F(WfdbReaderTest, Format310) {
    const int64_t low = 5 << 1 | 0x0A << 11;
    const int64_t high = (-6 & 0x3FF) << 1 | 0x15 << 11;
    m_scratch.Write("r.dat", Words({low, high, 0x1FF << 1}, 16));
    EXPECT_EQ(First(Header("100", {"r.dat 310 1"})), "5 -6 -342 511 ");
}

TEST_F(WfdbReaderTest, Format311) {
    BitWriter writer;
    for (const int value : {5, -6, -342}) {
        writer.Put(value, 10);
    }
    writer.Put(0, 2);
    writer.Put(-512, 10);
    writer.Put(77, 10);
    writer.Put(0, 4);
    m_scratch.Write("r.dat", writer.Bytes());
    EXPECT_EQ(First(Header("100", {"r.dat 311 1"})), "5 -6 -342 - 77 ");
}

TEST_F(WfdbReaderTest, PackedSamplesGoAcrossFrames) {
    m_scratch.Write("r.dat", Pairs({1, 2, 3, 4, 5, 6, 7, 8, 9}));
    const std::string path = Header("100 3", {"r.dat 212 1", "r.dat 212 1", "r.dat 212 1"});
    const Samples samples = ReadAll(*OpenWfdb(path), {0, 1, 2});
    EXPECT_EQ(Text(samples[0]), "1 4 7 ");
    EXPECT_EQ(Text(samples[2]), "3 6 9 ");
}

TEST_F(WfdbReaderTest, LongRecordsAreReadInBlocks) {
    std::vector<int64_t> values;
    for (int64_t i = 0; i < 100'001; ++i) {
        values.push_back(i % 2000 - 1000);
    }
    m_scratch.Write("r.dat", Pairs(values).substr(0, 150'002));
    const auto samples = ReadAll(*OpenWfdb(Header("100", {"r.dat 212 1"})), {0})[0];
    ASSERT_EQ(samples.size(), values.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        ASSERT_EQ(samples[i], static_cast<double>(values[i])) << i;
    }
}

// ---- Layouts ------------------------------------------------------------------------------------

TEST_F(WfdbReaderTest, GainBaselineAndUnit) {
    m_scratch.Write("r.dat", Words({100, 300, -100}, 16));
    EXPECT_EQ(First(Header("100", {"r.dat 16 200(100)/mV 16 0"})), "0 1 -1 ");
    EXPECT_EQ(First(Header("100", {"r.dat 16 0.2/uV 16 100"})), "0 1 -1 ");
    EXPECT_EQ(First(Header("100", {"r.dat 16 0.2/\xC2\xB5V 16 100"})), "0 1 -1 ");
    EXPECT_EQ(First(Header("100", {"r.dat 16 200000(100)/V"})), "0 1 -1 ");
    EXPECT_EQ(First(Header("100", {"r.dat 16"})), "0.5 1.5 -0.5 ");
    EXPECT_EQ(First(Header("100", {"r.dat 16 0"})), "0.5 1.5 -0.5 ");
}

TEST_F(WfdbReaderTest, BytesBeforeTheFirstSample) {
    m_scratch.Write("r.mat", std::string(24, 'M') + Words({7, -8}, 16));
    EXPECT_EQ(First(Header("100 2", {"r.mat 16+24 1"})), "7 -8 ");
}

TEST_F(WfdbReaderTest, SkewedSignalIsTakenFromLaterFrames) {
    m_scratch.Write("r.dat", Words({1, -1, 2, -2, 3, -3, 4, -4, 5, -5}, 16));
    const std::string path = Header("100 5", {"r.dat 16 1", "r.dat 16:2 1"});
    const Samples samples = ReadAll(*OpenWfdb(path), {0, 1});
    EXPECT_EQ(Text(samples[0]), "1 2 3 4 5 ");
    EXPECT_EQ(Text(samples[1]), "-3 -4 -5 - - ");
}

TEST_F(WfdbReaderTest, SeveralFilesOfSeveralFormats) {
    m_scratch.Write("a.dat", Words({1, 2, 3}, 16));
    m_scratch.Write("b.dat", Words({228, 28, 128}, 8));
    const std::string path = Header("100 3", {"a.dat 16 1", "b.dat 80 1"});
    const Samples samples = ReadAll(*OpenWfdb(path), {1, 0});
    EXPECT_EQ(Text(samples[0]), "100 -100 0 ");
    EXPECT_EQ(Text(samples[1]), "1 2 3 ");
    EXPECT_EQ(OpenWfdb(path)->Record().files.size(), 3U);
}

TEST_F(WfdbReaderTest, SeveralSamplesPerFrame) {
    m_scratch.Write("r.dat", Words({1, 2, 3, 100, 4, 5, 6, 200}, 16));
    const auto reader = OpenWfdb(Header("50 2", {"r.dat 16x3 1", "r.dat 16 1"}));
    const Samples samples = ReadAll(*reader, {0, 1});
    EXPECT_EQ(Text(samples[0]), "1 2 3 4 5 6 ");
    EXPECT_EQ(Text(samples[1]), "100 200 ");
    EXPECT_EQ(reader->Record().signals[0].rate, MakeRate(150, 1));
    EXPECT_EQ(reader->Record().frameRate, MakeRate(50, 1));
}

TEST_F(WfdbReaderTest, HeaderMayBeginWithCommentsAndBrokenRates) {
    m_scratch.Write("r.dat", Words({1, 2}, 16));
    const auto reader = OpenWfdb(
        m_scratch.Write("r.hea", "# a comment\r\n\r\nr 1 257.5/100(3) 2 10:20:30 1/2/2003\r\n#\r\n"
                                 "r.dat 16 1 16 0 0 0 0 a very long description, ECG I\r\n"));
    EXPECT_EQ(reader->Record().signals[0].rate, MakeRate(515, 2));
    EXPECT_EQ(reader->Record().signals[0].description, "a very long description, ECG I");
    EXPECT_EQ(reader->Record().time, "10:20:30");
    EXPECT_EQ(reader->Record().date, "1/2/2003");
    EXPECT_EQ(Text(ReadAll(*reader, {0})[0]), "1 2 ");
}

// ---- Segments -----------------------------------------------------------------------------------

TEST_F(WfdbReaderTest, FixedSegmentsFollowEachOther) {
    m_scratch.Write("a.dat", Words({1, -1, 2, -2}, 16));
    m_scratch.Write("a.hea", "a 2 100 2\na.dat 16 1 16 0 0 0 0 I\na.dat 16 1 16 0 0 0 0 V1\n");
    m_scratch.Write("b.dat", Words({30, -30}, 16));
    m_scratch.Write("b.hea", "b 2 100 1\nb.dat 16 10 16 0 0 0 0 I\nb.dat 16 10 16 0 0 0 0 V1\n");
    const auto reader = OpenWfdb(m_scratch.Write("m.hea", "m/3 2 100 5\na 2\n~ 2\nb 1\n"));
    const Samples samples = ReadAll(*reader, {0, 1});
    EXPECT_EQ(Text(samples[0]), "1 2 - - 3 ");
    EXPECT_EQ(Text(samples[1]), "-1 -2 - - -3 ");
    EXPECT_EQ(reader->Record().signals[1].description, "V1");
    EXPECT_EQ(reader->Record().signals[0].samples, 5);
}

TEST_F(WfdbReaderTest, VariableSegmentsAreMatchedByDescription) {
    m_scratch.Write("lay.hea", "lay 2 100 0\n~ 0 1 0 0 0 0 0 I\n~ 0 1 0 0 0 0 0 V1\n");
    m_scratch.Write("a.dat", Words({5, 6}, 16));
    m_scratch.Write("a.hea", "a 1 100 2\na.dat 16 1 16 0 0 0 0 V1\n");
    m_scratch.Write("b.dat", Words({7, 70}, 16));
    m_scratch.Write("b.hea", "b 2 100 1\nb.dat 16 1 16 0 0 0 0 V1\nb.dat 16 1 16 0 0 0 0 I\n");
    const auto reader = OpenWfdb(m_scratch.Write("m.hea", "m/4 2 100 4\nlay 0\na 2\n~ 1\nb 1\n"));
    const Samples samples = ReadAll(*reader, {0, 1});
    EXPECT_EQ(Text(samples[0]), "- - - 70 ");
    EXPECT_EQ(Text(samples[1]), "5 6 - 7 ");
}

TEST_F(WfdbReaderTest, SegmentsAddUpToTheRecord) {
    m_scratch.Write("a.dat", Words({1, 2}, 16));
    m_scratch.Write("a.hea", "a 1 100 2\na.dat 16 1 16 0 0 0 0 I\n");
    for (const char* frames : {"3", "5"}) {
        const std::string path =
            m_scratch.Write("m.hea", std::string("# more\nm/2 1 100 ") + frames + "\na 2\na 2\n");
        EXPECT_NE(Failed(path).find("m.hea: line 2 announces " + std::string(frames) +
                                    " samples, the segments have 4."),
                  std::string::npos);
    }
}

// A segment's own header describes its samples; where it contradicts the record, none of them may
// pass for those of another signal, rate or unit.
TEST_F(WfdbReaderTest, SegmentsThatContradictTheRecordAreRefused) {
    m_scratch.Write("a.dat", Words({1, -1, 2, -2}, 16));
    const std::string lines = "a.dat 16 1 16 0 0 0 0 I\na.dat 16 1 16 0 0 0 0 V1\n";
    m_scratch.Write("a.hea", "a 2 100 2\n" + lines);
    const std::string fixed = m_scratch.Write("m.hea", "m/2 2 100 4\na 2\nb 2\n");
    const auto failedWith = [&](const std::string& path, const std::string& segment) {
        m_scratch.Write("b.hea", segment);
        const std::string failure = Failed(path);
        const std::string begin = "2 " + (m_scratch / "b.hea") + ": ";
        EXPECT_EQ(failure.rfind(begin, 0), 0U) << failure;
        return failure.substr(std::min(begin.size(), failure.size()));
    };
    EXPECT_EQ(failedWith(fixed, "# half as long\nb 2 200 2\n" + lines)
                  .rfind("line 2 gives 200 frames per second, " + fixed + " gives 100.", 0),
              0U);
    EXPECT_EQ(failedWith(fixed, "b 1 100 2\na.dat 16 1 16 0 0 0 0 I\n")
                  .rfind("describes 1 signal(s), " + fixed + " begins with 2.", 0),
              0U);
    EXPECT_EQ(failedWith(fixed, "b 2 100 2\na.dat 16 1 16 0 0 0 0 V1\na.dat 16 1 16 0 0 0 0 I\n")
                  .rfind("signal 0 is \"V1\", in " + fixed + " it begins as \"I\".", 0),
              0U);
    const std::string pressures =
        "b 2 100 2\na.dat 16 1/mmHg 16 0 0 0 0 I\na.dat 16 1 16 0 0 0 0 V1\n";
    const std::string sentence = "signal 0 \"I\" is in \"mmHg\", elsewhere in m in \"mV\".";
    EXPECT_EQ(failedWith(fixed, pressures).rfind(sentence, 0), 0U);
    m_scratch.Write("lay.hea", "lay 2 100 0\n~ 0 1 0 0 0 0 0 I\n~ 0 1 0 0 0 0 0 V1\n");
    const std::string variable = m_scratch.Write("m.hea", "m/3 2 100 4\nlay 0\na 2\nb 2\n");
    EXPECT_EQ(failedWith(variable, pressures).rfind(sentence, 0), 0U);
    m_scratch.Write("b.hea",
                    "b 2 100 2\na.dat 16 0.001/uV 16 0 0 0 0 I\na.dat 16 1 16 0 0 0 0 V1\n");
    EXPECT_EQ(First(variable), "1 2 1 2 ");
}

// ---- What is refused ----------------------------------------------------------------------------

TEST_F(WfdbReaderTest, RefusalsNameFileAndSignal) {
    m_scratch.Write("r.dat", Words({1, 2}, 16));
    EXPECT_NE(Failed(Header("100", {"r.dat 16", "r.dat 99"})).find("signals 0 and 1 share a file"),
              std::string::npos);
    EXPECT_NE(Failed(Header("100", {"r.dat 99"}))
                  .find("2 " + (m_scratch / "r.hea") + ": signal 0 is stored in format 99"),
              std::string::npos);
    EXPECT_NE(Failed(Header("100", {"no.dat 16"})).find("no.dat: cannot be opened"),
              std::string::npos);
    EXPECT_NE(Failed(m_scratch.Write("r.hea", "r 3 100 2\nr.dat 16\n"))
                  .find("announces 3 signals and describes 1"),
              std::string::npos);
    EXPECT_NE(Failed(m_scratch.Write("r.hea", "r 1 0 2\nr.dat 16\n")).find("samples at 0 per"),
              std::string::npos);
    EXPECT_NE(Failed(Header("100", {"r.dat 16x99999999"})).find("samples of one frame"),
              std::string::npos);
    EXPECT_NE(Failed(m_scratch.Write("m.hea", "m/2 1 100 5\nr 1\n")).find("announces 2 segments"),
              std::string::npos);
    EXPECT_NE(Failed(m_scratch.Write("m.hea", "m/1 1 100 5\nm 5\n")).find("is a segment itself"),
              std::string::npos);
    m_scratch.Write("r.dat", "");
    EXPECT_NE(Failed(Header("100", {"r.dat 16"})).find("holds 0 frames"), std::string::npos);
}

TEST_F(WfdbReaderTest, NumbersThatAreNoneAreNotReplaced) {
    m_scratch.Write("r.dat", Words({1, 2}, 16));
    for (const char* format : {"16abc", "16:-2", "16+-2", "16x", "abc", "x2"}) {
        EXPECT_NE(Failed(Header("100", {"r.dat 16", std::string("r.dat ") + format}))
                      .find(std::string("signal 1 has the format \"") + format),
                  std::string::npos)
            << format;
    }
    for (const char* gain : {"abc", "nan", "inf", "1e16", "200x"}) {
        EXPECT_NE(Failed(Header("100", {std::string("r.dat 16 ") + gain + "/mV"}))
                      .find(std::string("signal 0 has the gain \"") + gain + "\""),
                  std::string::npos)
            << gain;
    }
    EXPECT_NE(Failed(Header("100", {"r.dat 16 1e-300/mV"})).find("too near 0"), std::string::npos);
    EXPECT_NE(Failed(Header("100", {"r.dat 16 200(x)/mV"})).find("has the baseline \"x\""),
              std::string::npos);
}

// A header is easily written, so the length that it announces is not trusted.
TEST_F(WfdbReaderTest, LengthIsTheFilesWhereTheHeaderAnnouncesMore) {
    m_scratch.Write("r.dat", Words({1, 2}, 16));
    const auto reader = OpenWfdb(Header("100 999999999999999", {"r.dat 16 1"}));
    EXPECT_EQ(reader->Record().signals[0].samples, 2);
    ASSERT_EQ(reader->Record().warnings.size(), 1U);
    EXPECT_NE(reader->Record().warnings[0].find("its signal file holds 2"), std::string::npos);
}
