#include "engine/loaders/LoadAHA.h"

#include "tests/engine/LoadedMaterial.h"
#include "tests/support/DecimalComma.h"
#include "tests/support/Files.h"

namespace {

using Samples = std::vector<int>;

// Five bytes per sample: both leads, low byte first, and an annotation code.
std::string EncodeBinary(const Samples& first, const Samples& second) {
    std::string bytes;
    for (size_t i = 0; i < first.size(); ++i) {
        for (const int sample : {first[i], second[i]}) {
            const int code = (sample + 65536) % 65536;
            bytes += static_cast<char>(code % 256);
            bytes += static_cast<char>(code / 256);
        }
        bytes += 'N';
    }
    return bytes;
}

class LoadAHA : public testing::Test {
  protected:
    LoadedHeader Load(const std::string& name, const std::string& content) {
        return LoadedHeader(LoadDatabaseAHA(m_directory.Write(name, content).c_str()));
    }

    void ExpectAHA(const LoadedHeader& header, const std::string& name, const Channel& first,
                   const Channel& second) {
        ExpectHeader(header, name, {"ECG 1", "ECG 2"}, 250, static_cast<int64_t>(first.size()));
        ExpectMaterial(MATERIAL_AHA, 250, first.size());
        EXPECT_EQ(GetChannel(0), first);
        EXPECT_EQ(GetChannel(1), second);
    }

    Scratch m_directory;
};

const std::string kTwoFrames = EncodeBinary({-100, 400}, {100, -800});

} // namespace

TEST_F(LoadAHA, ReadsABinaryFile) {
    EXPECT_EQ(kTwoFrames.substr(0, 4), "\x9C\xFF\x64" + std::string(1, '\0'));
    ExpectAHA(Load("1001.ecg", kTwoFrames), "1001", {-0.25, 1.0}, {0.25, -2.0});
    EXPECT_EQ(ValidateECGData(), 1);
}

TEST_F(LoadAHA, ReadsTheWholeRangeOfABinaryFile) {
    Samples first;
    Samples second;
    Channel firstVoltages;
    Channel secondVoltages;
    for (int sample = -32768; sample <= 32767; ++sample) {
        first.push_back(sample);
        second.push_back(-1 - sample);
        firstVoltages.push_back(sample / 400.0);
        secondVoltages.push_back((-1 - sample) / 400.0);
    }
    ExpectAHA(Load("a.ecg", EncodeBinary(first, second)), "a", firstVoltages, secondVoltages);
}

TEST_F(LoadAHA, IgnoresATrailingPartOfAFrame) {
    ExpectAHA(Load("a.ecg", kTwoFrames + "\x01\x02\x03\x04"), "a", {-0.25, 1.0}, {0.25, -2.0});
}

TEST_F(LoadAHA, ChoosesTheReaderByThePath) {
    ExpectAHA(Load("a.ECG", kTwoFrames), "a", {-0.25, 1.0}, {0.25, -2.0});
    ExpectAHA(Load("a.ecg.old", kTwoFrames), "a.ecg", {-0.25, 1.0}, {0.25, -2.0});
    ExpectAHA(Load("a.Txt", "400,800\n"), "a", {1.0}, {2.0});
    ExpectAHA(Load("a.ecg.txt", "400,800\n"), "a.ecg", {1.0}, {2.0});
    std::filesystem::create_directory(m_directory / "x.txt.d");
    ExpectAHA(Load("x.txt.d/a.ecg", "400,800\n"), "a", {1.0}, {2.0});
}

TEST_F(LoadAHA, ReadsEverySeparatorOfATextFile) {
    for (const char* line : {"-100, 100", "-100,100", "-100 100", " ,-100 ,, 100 , 7,x"}) {
        ExpectAHA(Load("a.txt", line), "a", {-0.25}, {0.25});
    }
}

TEST_F(LoadAHA, TakesATabForPartOfAField) {
    ExpectAHA(Load("a.txt", "-100\t100\n4,8\n"), "a", {0.01, 0.0}, {0.02, 0.0});
    ExpectAHA(Load("a.txt", "\t 7,8\n"), "a", {0.0}, {7 / 400.0});
}

TEST_F(LoadAHA, EndsInZerosWhereALineHadOneField) {
    std::string text;
    Channel first(10);
    Channel second(10);
    for (int i = 0; i < 9; ++i) {
        text += i == 4 ? "400\n" : "";
        text += std::to_string(100 * i) + "," + std::to_string(-100 * i) + "\n";
        first[static_cast<size_t>(i)] = 0.25 * i;
        second[static_cast<size_t>(i)] = -0.25 * i;
    }
    ExpectAHA(Load("a.txt", text), "a", first, second);
}

TEST_F(LoadAHA, ReadsEveryFormOfANumber) {
    ExpectAHA(Load("a.txt", "+4e2,.5\n0x190,text\n1e-1,-.25\n"), "a", {1.0, 1.0, 0.1 / 400},
              {0.5 / 400, 0.0, -0.25 / 400});
}

// The fields of the text are separated by commas, so no locale may treat one as a decimal comma.
TEST_F(LoadAHA, HasTheDecimalPointInEveryLocale) {
    const DecimalComma locale;
    if (!locale.IsThere()) {
        GTEST_SKIP() << "There is no localedef on this machine.";
    }
    ExpectAHA(Load("a.txt", "0x1.8p2,100.5\n"), "a", {6.0 / 400}, {100.5 / 400});
}

TEST_F(LoadAHA, ReadsEveryLineEnd) {
    ExpectAHA(Load("a.txt", "400,0\r\n\r\n800,0\r1200,0\n  \n1600,0"), "a", {1, 2, 3, 4},
              {0, 0, 0, 0});
}

TEST_F(LoadAHA, SeesTheFirst255CharactersOfALine) {
    const std::string blanks(253, ' ');
    ExpectAHA(Load("a.txt", "4" + blanks + "87\n"), "a", {0.01}, {0.02});
    ExpectAHA(Load("a.txt", "4 " + blanks + "87\n"), "a", {0.0}, {0.0});
}

TEST_F(LoadAHA, LoadsEmptyFilesAsEmptyRecords) {
    for (const char* name : {"a.txt", "a.ecg"}) {
        ExpectAHA(Load(name, ""), "a", {}, {});
        EXPECT_EQ(ValidateECGData(), 0);
    }
    ExpectAHA(Load("a.ecg", "abcd"), "a", {}, {});
    ExpectAHA(Load("a.txt", " \r\n\t"), "a", {}, {});
}

TEST_F(LoadAHA, TakesGarbageForZeros) {
    ExpectAHA(Load("a.txt", std::string(100000, '\xFF')), "a", {0.0}, {0.0});
    ExpectAHA(Load("a.txt", std::string(100000, '\0')), "a", {0.0}, {0.0});
    ExpectAHA(Load("a.txt", "\xFF,\xFE\n"), "a", {0.0}, {0.0});
}

TEST_F(LoadAHA, CutsTheRecordNameToItsField) {
    ExpectAHA(Load("abcdefghijklmnop.txt", "400,800\n"), "abcdefghijklmno", {1.0}, {2.0});
}

TEST_F(LoadAHA, LeavesTheTypeOverTheEarlierSamplesOnFailure) {
    ASSERT_NE(Load("a.txt", "400,800\n"), nullptr);
    const std::string other = m_directory.Write("a.dat", "400,800\n");
    std::filesystem::create_directory(m_directory / "d.txt");
    std::filesystem::create_directory(m_directory / "d.ecg");
    const std::string paths[] = {other,
                                 m_directory / "missing.txt",
                                 m_directory / "missing.ecg",
                                 m_directory / "d.txt",
                                 m_directory / "d.ecg",
                                 ""};
    for (const std::string& path : paths) {
        g_WaveformType = MATERIAL_NONE;
        EXPECT_EQ(LoadDatabaseAHA(path.c_str()), nullptr) << path;
        ExpectMaterial(MATERIAL_AHA, 250, 1);
        EXPECT_EQ(GetChannel(0), Channel{1.0});
    }
    EXPECT_EQ(LoadDatabaseAHA(nullptr), nullptr);
    ExpectAHA(Load("b.ecg", kTwoFrames), "b", {-0.25, 1.0}, {0.25, -2.0});
}

// An unknown extension after material of one signal leaves the type of two over it.
TEST_F(LoadAHA, CannotBePlayedOverOneSignal) {
    g_WaveformType = MATERIAL_MIT;
    g_nSampleCount = 3;
    ASSERT_EQ(ReallocateECGDataBuffer(1), 1);
    EXPECT_EQ(LoadDatabaseAHA("/record"), nullptr);
    EXPECT_EQ(g_WaveformType, MATERIAL_AHA);
    EXPECT_EQ(ValidateECGData(), 0);
}
