#include "ravo/ravo.h"

#include "engine/Record.h"
#include "tests/engine/LoadedMaterial.h"
#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "tests/support/NoiseTestRecord.h"
#include "WFDB/nst.h"
#include "WFDB/sigamp.h"

#include <gtest/gtest.h>
#include <iterator>

namespace {

constexpr uid_t kNobody = 65534;

size_t CountOpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

// A signal record of 700 frames at 1 frame per second with +-100 in both signals, and a noise
// record of +-50: 0.5 mV of noise times 0.7071 from second 300 to 419 and from 540 to 659.
class LoadNoiseTest : public testing::Test {
  protected:
    LoadNoiseTest() {
        g_nRunMax = 1;
        g_nMovingWindowSize = 2;
        std::vector<int> signal;
        std::vector<int> noise;
        for (int i = 0; i < 700; ++i) {
            signal.insert(signal.end(), 2, i % 2 == 0 ? 100 : -100);
            noise.push_back(i % 2 == 0 ? 50 : -50);
        }
        m_directory.Write("s.hea", "s 2 1 700\ns.dat 212 100 12 0 0 0 0 I\n"
                                   "s.dat 212 100 12 0 0 0 0 V1\n");
        m_directory.Write("s.dat", EncodeFormat212(signal));
        m_directory.Write("n.hea", "n 1 1 700\nn.dat 212 100 12 0\n");
        m_directory.Write("n.dat", EncodeFormat212(noise));
    }
    ~LoadNoiseTest() override {
        g_nRunMax = 300;
        g_nMovingWindowSize = 360;
        NSTResetNoise();
        NSTSetSignal("");
    }

    void SetUp() override {
        if (!NoiseTestRecord::IsUsable()) {
            GTEST_SKIP() << "Another user's /tmp/ravoXXX lies in the way.";
        }
    }

    void Configure(const std::string& signal) {
        NSTSetSignal((m_directory / signal).c_str());
        NSTResetNoise();
        NSTAddNoise((m_directory / "n").c_str(), 0);
    }
    ECG_HEADER* Load(const std::string& signal, const std::string& noise) {
        return LoadDatabaseNoiseTest((m_directory / signal).c_str(), (m_directory / noise).c_str(),
                                     0);
    }

    // An earlier record under the temporary name: two signals, one frame of 3 and 5.
    static void LeaveARecord() {
        std::ofstream(NoiseTestRecord::HeaderFile())
            << "left 2 250 1\nravoXXX.dat 212 1 12 0 0 0 0 V2\nravoXXX.dat 212 1 12 0 0 0 0 V3\n";
        std::ofstream(NoiseTestRecord::DataFile(), std::ios::binary) << '\3' << '\0' << '\5';
    }

    const NoiseTestRecord m_record;
    Scratch m_directory;
};

} // namespace

TEST_F(LoadNoiseTest, LoadsTheConfiguredTestAndDeletesItsFiles) {
    Configure("s");
    const LoadedHeader header(LoadDatabaseNoiseTest());
    ASSERT_NE(header, nullptr);
    EXPECT_FALSE(NoiseTestRecord::HasHeader());
    EXPECT_FALSE(NoiseTestRecord::HasData());

    EXPECT_STREQ(header->RecordName, "ravoXXX");
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 2);
    EXPECT_EQ(int64_t{header->NumberOfSamples}, 700);
    EXPECT_STREQ(header->Signal[1].Description, "V1");
    ExpectMaterial(MATERIAL_MIT, 1, 700);
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_I], 0);
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_V1], 1);
    const Channel samples = GetChannel(0);
    EXPECT_EQ(samples[0], 1.0);
    EXPECT_EQ(samples[299], -1.0);
    // 100 + 35.36 + 35 and -100 - 35.36 + 35, truncated.
    EXPECT_EQ(samples[300], 1.7);
    EXPECT_EQ(samples[301], -1.0);
    EXPECT_EQ(samples[420], 1.0);
    EXPECT_EQ(samples[540], 1.7);
    EXPECT_EQ(samples[660], 1.0);
    EXPECT_EQ(GetChannel(1), samples);
}

TEST_F(LoadNoiseTest, NothingConfiguredYieldsNullAndTouchesNoFile) {
    EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
    EXPECT_TRUE(NoiseTestRecord::IsUsable());

    LeaveARecord();
    EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
    NSTSetSignal((m_directory / "s").c_str());
    EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
    NSTSetSignal("");
    NSTAddNoise((m_directory / "n").c_str(), 0);
    EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
    EXPECT_TRUE(NoiseTestRecord::HasHeader());
    EXPECT_EQ(std::filesystem::file_size(NoiseTestRecord::DataFile()), 3U);
}

TEST_F(LoadNoiseTest, ConfiguredTestThatFailsYieldsNull) {
    Configure("missing");
    EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
    EXPECT_TRUE(NoiseTestRecord::IsUsable());
    // A record that was left there is neither loaded nor deleted.
    LeaveARecord();
    EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
    EXPECT_TRUE(NoiseTestRecord::HasHeader());
    EXPECT_TRUE(NoiseTestRecord::HasData());
}

TEST_F(LoadNoiseTest, MixedRecordThatCannotBeLoadedStays) {
    Configure("s");
    std::filesystem::create_directory(NoiseTestRecord::HeaderFile());
    EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
    EXPECT_EQ(std::filesystem::file_size(NoiseTestRecord::DataFile()), 700U * 3);
}

TEST_F(LoadNoiseTest, OutputThatCannotBeCreatedYieldsNull) {
    Configure("s");
    std::filesystem::create_directory(NoiseTestRecord::DataFile());
    EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
    EXPECT_FALSE(NoiseTestRecord::HasHeader());
    EXPECT_EQ(Load("s", "n"), nullptr);
    EXPECT_FALSE(NoiseTestRecord::HasHeader());
}

// Files that another user has put under these names are neither read nor written, not even through
// a link.
TEST_F(LoadNoiseTest, AnotherUsersFilesAreLeftAloneAndNamed) {
    Configure("s");
    m_directory.Write("victim", "mine");
    for (const std::string planted : {NoiseTestRecord::HeaderFile(), NoiseTestRecord::DataFile()}) {
        for (const bool isLink : {false, true}) {
            std::filesystem::remove(planted);
            if (isLink) {
                std::filesystem::create_symlink(m_directory / "victim", planted);
            } else {
                std::ofstream(planted) << "theirs";
            }
            if (lchown(planted.c_str(), kNobody, kNobody) != 0) {
                std::filesystem::remove(planted);
                GTEST_SKIP() << "Only root can make another user's file.";
            }
            char text[256] = {};
            EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
            EXPECT_EQ(RAVOGetLastError(text, sizeof text), RAVO_ERROR_BUSY);
            EXPECT_EQ(text, planted + " belongs to the user with the id 65534");
            EXPECT_EQ(Load("s", "n"), nullptr);
            EXPECT_EQ(ReadFile(planted), isLink ? "mine" : "theirs");
        }
        std::filesystem::remove(planted);
    }
}

TEST_F(LoadNoiseTest, FormWithArgumentsYieldsNullAfterSuccessAndLeavesTheFiles) {
    EXPECT_EQ(Load("s", "n"), nullptr);
    EXPECT_TRUE(NoiseTestRecord::HasHeader());
    EXPECT_EQ(std::filesystem::file_size(NoiseTestRecord::DataFile()), 700U * 3);
    // It has set up the configuration that the other form runs.
    const LoadedHeader header(LoadDatabaseNoiseTest());
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(GetChannel(0)[300], 1.7);
    EXPECT_TRUE(NoiseTestRecord::IsUsable());
}

TEST_F(LoadNoiseTest, FormWithArgumentsYieldsNullAfterAFailureWithoutRecord) {
    EXPECT_EQ(Load("missing", "n"), nullptr);
    EXPECT_EQ(Load("s", "missing"), nullptr);
    EXPECT_TRUE(NoiseTestRecord::IsUsable());
    EXPECT_EQ(LoadDatabaseNoiseTest(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(LoadDatabaseNoiseTest("", "", 0), nullptr);
}

TEST_F(LoadNoiseTest, FormWithArgumentsGoesOnAfterAFailure) {
    LeaveARecord();
    const LoadedHeader header(Load("missing", "n"));
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "left");
    ExpectMaterial(MATERIAL_MIT, 250, 1);
    EXPECT_EQ(GetChannel(0), Channel{3});
    EXPECT_TRUE(NoiseTestRecord::IsUsable());
}

TEST_F(LoadNoiseTest, FailuresLeaveTheMaterialAlone) {
    Configure("s");
    const LoadedHeader header(LoadDatabaseNoiseTest());
    ASSERT_NE(header, nullptr);
    Configure("missing");
    EXPECT_EQ(LoadDatabaseNoiseTest(), nullptr);
    EXPECT_EQ(Load("missing", "n"), nullptr);
    ExpectMaterial(MATERIAL_MIT, 1, 700);
    EXPECT_EQ(GetChannel(0)[300], 1.7);
}

TEST_F(LoadNoiseTest, LeavesTheEngineLockFreeAndNoFileOpen) {
    const size_t open = CountOpenDescriptors();
    for (int i = 0; i < 5; ++i) {
        Configure(i % 2 == 0 ? "s" : "missing");
        const LoadedHeader header(LoadDatabaseNoiseTest());
        EXPECT_EQ(header != nullptr, i % 2 == 0);
        Load("s", "n");
        const CAutoCriticalSection lock(g_CriticalSection);
    }
    EXPECT_EQ(CountOpenDescriptors(), open);
}
