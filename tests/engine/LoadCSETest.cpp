#include "engine/loaders/LoadCSE.h"
#include "engine/Conversion.h"
#include "engine/Settings.h"

#include "tests/engine/LoadedMaterial.h"
#include "tests/support/Files.h"

#include <array>
#include <limits>

namespace {

constexpr int kLeads = 12;

// Microvolts of the leads in the order of a block file: I, II, III, aVR, aVL, aVF, V1 to V6.
using Frame = std::array<int, kLeads>;
using Frames = std::vector<Frame>;

constexpr size_t kPlayedLeads[] = {0, 1, 6, 7, 8, 9, 10, 11};

// 3000 bytes, of which four hold the count; then four blocks of three leads, high byte first; then
// one byte more.
std::string EncodeBinary(const Frames& frames, const std::string& count) {
    std::string bytes(3000, '\xAA');
    bytes.replace(36, 4, count);
    for (size_t block = 0; block < 4; ++block) {
        for (const Frame& frame : frames) {
            for (size_t lead = 0; lead < 3; ++lead) {
                const int code = (frame[3 * block + lead] + 65536) % 65536;
                bytes += static_cast<char>(code / 256);
                bytes += static_cast<char>(code % 256);
            }
        }
    }
    return bytes + '\0';
}

std::string EncodeText(const Frames& frames, const std::string& lineEnd = "\n") {
    std::string text;
    for (const Frame& frame : frames) {
        for (size_t lead = 0; lead < kLeads; ++lead) {
            text += (lead == 0 ? "" : "\t") + std::to_string(frame[lead]);
        }
        text += lineEnd;
    }
    return text;
}

Frames MakeFrames(int count) {
    Frames frames(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        for (int lead = 0; lead < kLeads; ++lead) {
            frames[static_cast<size_t>(i)][static_cast<size_t>(lead)] =
                (i * 37 + lead * 4001) % 65536 - 32768;
        }
    }
    return frames;
}

class LoadCSE : public testing::Test {
  protected:
    LoadedHeader Load(const std::string& name, const std::string& content) {
        return LoadedHeader(LoadDatabaseCSE(m_directory.Write(name, content).c_str()));
    }

    void ExpectCSE(const LoadedHeader& header, const std::string& name, const Frames& frames) {
        ExpectAllChannelHeader(header, name, 500, static_cast<int64_t>(frames.size()));
        ExpectMaterial(MATERIAL_DIRECT, 500, frames.size());
        for (int channel = 0; channel < 8; ++channel) {
            Channel expected;
            for (const Frame& frame : frames) {
                expected.push_back(frame[kPlayedLeads[channel]] / 1000.0);
            }
            EXPECT_EQ(GetChannel(channel), expected) << channel;
        }
    }

    Scratch m_directory;
};

constexpr Frame kSteps = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120};

} // namespace

// ---- Binary ------------------------------------------------------------------------------------

TEST_F(LoadCSE, ReadsABinaryFile) {
    const Frames frames = MakeFrames(5000);
    ExpectCSE(Load("MO1_001.DCD", EncodeBinary(frames, "5000")), "MO1_001", frames);
    EXPECT_EQ(ValidateECGData(), 1);
}

TEST_F(LoadCSE, ReadsTheEndsOfTheRange) {
    Frame frame = {};
    frame[0] = -32768;
    frame[1] = 32767;
    ASSERT_NE(Load("a.dcd", EncodeBinary({frame}, "1   ")), nullptr);
    EXPECT_EQ(GetChannel(0), Channel{-32.768});
    EXPECT_EQ(GetChannel(1), Channel{32.767});
}

TEST_F(LoadCSE, WantsAByteBehindTheLastBlock) {
    const std::string content = EncodeBinary(MakeFrames(5000), "5000");
    ASSERT_EQ(content.size(), 24U * 5000 + 3000 + 1);
    EXPECT_NE(Load("a.dcd", content), nullptr);
    EXPECT_EQ(Load("a.dcd", content.substr(0, content.size() - 1)), nullptr);
    EXPECT_NE(Load("a.dcd", content + "and more"), nullptr);
}

TEST_F(LoadCSE, ReadsTheCountToItsFirstOtherCharacter) {
    const Frames frames = MakeFrames(12);
    for (const char* count : {"  12", "12  ", "0012", "+12 ", "12x3"}) {
        ExpectCSE(Load("a.dcd", EncodeBinary(frames, count)), "a", frames);
    }
}

TEST_F(LoadCSE, TakesNoCountForAnEmptyRecord) {
    for (const char* count : {"    ", "abcd", "0000", "x123"}) {
        ExpectCSE(Load("a.dcd", EncodeBinary(MakeFrames(3), count)), "a", {});
        EXPECT_EQ(ValidateECGData(), 0);
    }
    ExpectCSE(Load("a.dcd", std::string(3001, '\0')), "a", {});
    EXPECT_EQ(Load("a.dcd", std::string(3000, '\0')), nullptr);
}

TEST_F(LoadCSE, RefusesANegativeCount) {
    for (const char* count : {"-1  ", "-999", " -12"}) {
        EXPECT_EQ(Load("a.dcd", EncodeBinary(MakeFrames(3), count)), nullptr) << count;
    }
}

TEST_F(LoadCSE, RefusesShortBinaryFilesAndKeepsTheEarlierRecord) {
    const Frames frames = MakeFrames(7);
    ASSERT_NE(Load("a.dcd", EncodeBinary(frames, "7   ")), nullptr);
    g_nSampleRate = 501;
    const std::string whole = EncodeBinary(MakeFrames(9), "9   ");
    for (const size_t size : {size_t{0}, size_t{1}, size_t{39}, size_t{40}, size_t{41},
                              size_t{3000}, whole.size() - 1}) {
        EXPECT_EQ(Load("b.dcd", whole.substr(0, size)), nullptr) << size;
        ExpectMaterial(MATERIAL_DIRECT, 501, 7);
        EXPECT_EQ(GetChannel(7).size(), 7U);
    }
    EXPECT_EQ(Load("b.dcd", std::string(100000, '9')), nullptr);
    ExpectCSE(Load("b.dcd", whole), "b", MakeFrames(9));
}

TEST_F(LoadCSE, ChoosesTheReaderByThePath) {
    const Frames frames = MakeFrames(2);
    ExpectCSE(Load("x.dcd.txt", EncodeBinary(frames, "2   ")), "x.dcd", frames);
    ExpectCSE(Load("x.Dcd", EncodeBinary(frames, "2   ")), "x", frames);
    ExpectCSE(Load("x", EncodeText(frames)), "x", frames);
    ExpectCSE(Load("x.ecg", EncodeText(frames)), "x", frames);
}

// ---- Text --------------------------------------------------------------------------------------

TEST_F(LoadCSE, ReadsATextFile) {
    const Frames frames = MakeFrames(3000);
    ExpectCSE(Load("a.txt", EncodeText(frames)), "a", frames);
    ExpectCSE(Load("a.txt", EncodeText(frames, " \r\n")), "a", frames);
}

TEST_F(LoadCSE, PlaysEightOfTwelveLeads) {
    ASSERT_NE(Load("a.txt", EncodeText({kSteps})), nullptr);
    const double expected[] = {0.01, 0.02, 0.07, 0.08, 0.09, 0.10, 0.11, 0.12};
    for (int channel = 0; channel < 8; ++channel) {
        EXPECT_EQ(GetChannel(channel), Channel{expected[channel]});
    }
}

TEST_F(LoadCSE, SplitsAtBlanksTabsAndReturns) {
    ExpectCSE(Load("a.txt", " \t10 20\t30\r40  50 60 70 80 90 100 110 120 130 x\n"), "a", {kSteps});
}

TEST_F(LoadCSE, TakesTextForZero) {
    ExpectCSE(Load("a.txt", "x - 0 0 0 0 7.9 +8 0x9 1e1 11x -12\n"), "a",
              {{0, 0, 0, 0, 0, 0, 7, 8, 0, 1, 11, -12}});
}

TEST_F(LoadCSE, TakesNumbersBeyondTheInteger) {
    ASSERT_NE(Load("a.txt", "99999999999999999999 -99999999999999999999 0 0 0 0 0 0 0 0 0 0\n"),
              nullptr);
    constexpr auto kLargest = static_cast<double>(std::numeric_limits<long>::max());
    EXPECT_EQ(GetChannel(0), Channel{kLargest / 1000.0});
    EXPECT_EQ(GetChannel(1), Channel{-kLargest / 1000.0});
}

TEST_F(LoadCSE, EndsATextRecordAtAnEmptyLine) {
    const Frames frames = MakeFrames(3);
    for (const char* empty : {"\n", "\r\n", " \t \n"}) {
        ExpectCSE(Load("a.txt", EncodeText(frames) + empty + "1 2 3\n" + EncodeText(frames)), "a",
                  frames);
    }
}

TEST_F(LoadCSE, ReadsALastLineWithoutEnd) {
    ExpectCSE(Load("a.txt", "10 20 30 40 50 60 70 80 90 100 110 120"), "a", {kSteps});
}

TEST_F(LoadCSE, FailsAtALineOfElevenFields) {
    const Frames frames = MakeFrames(2);
    const std::string text = EncodeText(frames) + "1 2 3 4 5 6 7 8 9 10 11\n" + EncodeText(frames);
    EXPECT_EQ(Load("a.txt", text), nullptr);
    ExpectMaterial(MATERIAL_DIRECT, 500, 5);
    EXPECT_EQ(GetChannel(0),
              (Channel{frames[0][0] / 1000.0, frames[1][0] / 1000.0, 0.0, 0.0, 0.0}));
    ExpectCSE(Load("a.txt", EncodeText(frames)), "a", frames);
}

TEST_F(LoadCSE, ReadsALongLineAsTwo) {
    // 1023 characters hold twelve fields and blanks, the rest of the line twelve more.
    std::string line = "10 20 30 40 50 60 70 80 90 100 110 120";
    line.resize(1023, ' ');
    ExpectCSE(Load("a.txt", line + "1 2 3 4 5 6 7 8 9 10 11 12\n"), "a",
              {kSteps, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}});
    // An end just after the 1023 characters makes an empty line.
    ExpectCSE(Load("a.txt", line + "\n" + EncodeText({kSteps})), "a", {kSteps});
    line.resize(1022);
    ExpectCSE(Load("a.txt", line + "\n" + EncodeText({kSteps})), "a", {kSteps, kSteps});
}

TEST_F(LoadCSE, LoadsAnEmptyTextFileAsAnEmptyRecord) {
    ExpectCSE(Load("a.txt", ""), "a", {});
    EXPECT_EQ(ValidateECGData(), 0);
    ExpectCSE(Load("a.txt", "\n" + EncodeText({kSteps})), "a", {});
    ExpectCSE(Load("a.txt", std::string(1000, '\0')), "a", {});
}

TEST_F(LoadCSE, RefusesBinaryGarbageAsText) {
    EXPECT_EQ(Load("a.txt", std::string(100000, '\xFF')), nullptr);
    EXPECT_EQ(Load("a.txt", std::string("1 2 3\0 4 5 6 7 8 9 10 11 12\n", 28)), nullptr);
    ExpectCSE(Load("a.txt", EncodeText({kSteps})), "a", {kSteps});
}

// ---- Both --------------------------------------------------------------------------------------

TEST_F(LoadCSE, RefusesWhatIsNoFileAndKeepsTheEarlierRecord) {
    ASSERT_NE(Load("a.txt", EncodeText(MakeFrames(7))), nullptr);
    g_WaveformType = MATERIAL_TABLE;
    std::filesystem::create_directory(m_directory / "d.dcd");
    std::filesystem::create_directory(m_directory / "d.txt");
    const std::string paths[] = {m_directory / "missing.dcd", m_directory / "missing.txt",
                                 m_directory / "d.dcd", m_directory / "d.txt", ""};
    for (const std::string& path : paths) {
        EXPECT_EQ(LoadDatabaseCSE(path.c_str()), nullptr) << path;
    }
    EXPECT_EQ(LoadDatabaseCSE(nullptr), nullptr);
    EXPECT_EQ(LoadDatabaseCSEInDCDFmt(nullptr), nullptr);
    EXPECT_EQ(LoadDatabaseCSEInTxtFmt(nullptr), nullptr);
    ExpectMaterial(MATERIAL_TABLE, 500, 7);
    EXPECT_EQ(GetChannel(7).size(), 7U);
}

TEST_F(LoadCSE, LeavesTheNoiseOfAnEarlierRecord) {
    g_NoiseOn = 1;
    g_NoiseData[1] = 77;
    EXPECT_NE(Load("a.txt", EncodeText({kSteps})), nullptr);
    EXPECT_NE(Load("a.dcd", EncodeBinary({kSteps}, "1   ")), nullptr);
    EXPECT_EQ(g_NoiseOn, 1);
    EXPECT_EQ(g_NoiseData[1], 77);
    g_nNoiseCurrent = 1;
    // 0 mV plus 77 uV of 5 mV, on a 12-bit converter without calibration.
    EXPECT_EQ(DAC(0.0, 0), 2078U);
}
