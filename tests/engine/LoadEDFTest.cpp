#include "ravo/ravo.h"

#include "engine/loaders/LoadMIT.h"
#include "tests/engine/LoadedMaterial.h"
#include "tests/support/Files.h"
#include "tests/support/PublicRecord.h"
#include "tests/WFDB/EDFFile.h"

namespace {

namespace fs = std::filesystem;

// Leads I and II, four samples per second for two seconds, 100 units per millivolt.
EDFFile TwoLeads() {
    EDFFile file;
    file.DataRecords = "2";
    file.Signals.resize(2);
    for (EDFSignal& signal : file.Signals) {
        signal.DigitalMinimum = "-1000";
        signal.DigitalMaximum = "1000";
        signal.PhysicalMinimum = "-10";
        signal.PhysicalMaximum = "10";
    }
    file.Signals[1].Label = "ECG II";
    file.Samples = {0, 100, 200, 300, 0, -100, -200, -300, 400, 500, 600, 700, 1, 2, 3, 4};
    return file;
}

// What the two leads are in millivolts: the baseline of a symmetric range is 1.
const Channel kLeadI = {-0.01, 0.99, 1.99, 2.99, 3.99, 4.99, 5.99, 6.99};
const Channel kLeadII = {-0.01, -1.01, -2.01, -3.01, 0.0, 0.01, 0.02, 0.03};

class LoadEDF : public testing::Test {
  protected:
    LoadEDF() : m_repository(m_directory / "repository") { g_pszRepository = m_repository.data(); }
    ~LoadEDF() override { g_pszRepository = m_initial; }

    LoadedHeader Load(const std::string& name, const std::string& content,
                      WaveformType type = MATERIAL_EDF) {
        return LoadedHeader(LoadDatabaseEDF(m_directory.Write(name, content).c_str(), type));
    }
    LoadedHeader Load(const std::string& name, const EDFFile& file) {
        return Load(name, file.Encode());
    }

    // The first channel of a file with this one signal, whose samples are -200 and 300.
    Channel LoadSignal(const EDFSignal& signal) {
        EDFFile file;
        file.Signals = {signal};
        file.Signals[0].SamplesPerRecord = "2";
        file.Samples = {-200, 300};
        const LoadedHeader header = Load("signal.edf", file);
        fs::remove_all(m_repository);
        EXPECT_EQ(LoadMITDatabase(header.get()), 1);
        return GetChannel(0);
    }

    std::string Converted(const std::string& name) const { return m_repository + "/" + name; }

    Scratch m_directory;
    std::string m_repository;

  private:
    char* m_initial = g_pszRepository;
};

void ExpectNear(const Channel& actual, const Channel& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
        EXPECT_NEAR(actual[i], expected[i], 1e-12) << i;
    }
}

} // namespace

TEST(LoadEDFRepository, IsTheStatedOneUntilTheHostSetsAnother) {
    EXPECT_STREQ(g_pszRepository, "c:\\Physionet");
}

// There the default name is an ordinary one, relative to the current directory.
TEST(LoadEDFRepository, CanBeTheInitialOne) {
    const Scratch directory;
    const fs::path home = fs::current_path();
    const std::string path = directory.Write("a.edf", TwoLeads().Encode());
    fs::current_path(directory.Path());
    const LoadedHeader header(LoadDatabaseEDF(path.c_str(), MATERIAL_EDF));
    fs::current_path(home);
    EXPECT_NE(header, nullptr);
    EXPECT_TRUE(fs::exists(directory / "c:\\Physionet" + "/a.hea"));
}

TEST_F(LoadEDF, LoadsHeaderAndSamples) {
    const LoadedHeader header = Load("two.edf", TwoLeads());
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(g_WaveformType, MATERIAL_EDF);
    EXPECT_STREQ(header->RecordName, "two");
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 2);
    EXPECT_EQ(int64_t{header->SamplingFrequency}, 4);
    EXPECT_EQ(int64_t{header->NumberOfSamples}, 8);
    EXPECT_STREQ(header->Signal[1].Description, "ECG II");
    EXPECT_EQ(int32_t{header->Signal[1].Lead}, ECG_LEAD_II);

    ASSERT_EQ(LoadMITDatabase(header.get()), 1);
    ExpectMaterial(MATERIAL_MIT, 4, 8);
    ExpectNear(GetChannel(0), kLeadI);
    ExpectNear(GetChannel(1), kLeadII);
    g_WaveformType = MATERIAL_EDF;
    EXPECT_EQ(ValidateECGData(), 1);
}

TEST_F(LoadEDF, SetsTheTypeOfTheCaller) {
    const std::string content = TwoLeads().Encode();
    EXPECT_NE(Load("a.edf", content, MATERIAL_EDF_FOUR_CHEST), nullptr);
    EXPECT_EQ(g_WaveformType, MATERIAL_EDF_FOUR_CHEST);
    EXPECT_NE(Load("a.edf", content, MATERIAL_EDF), nullptr);
    EXPECT_EQ(g_WaveformType, MATERIAL_EDF);
}

TEST_F(LoadEDF, YieldsMillivolts) {
    EDFSignal signal;
    signal.DigitalMinimum = "-1000";
    signal.DigitalMaximum = "999";
    signal.PhysicalMinimum = "-1000";
    signal.PhysicalMaximum = "999";
    // One unit of the dimension per step; the baseline is 999 - 999 + 1 = 1.
    signal.Dimension = "uV";
    ExpectNear(LoadSignal(signal), {-0.201, 0.299});
    // Volts and unknown dimensions are taken for millivolts.  Their mean, 49, is above 5 and is
    // therefore subtracted.
    for (const char* dimension : {"mV", "V", "nV", "", "\xB5V", "%"}) {
        signal.Dimension = dimension;
        ExpectNear(LoadSignal(signal), {-250.0, 250.0});
    }
}

TEST_F(LoadEDF, ConvertsAFileOnce) {
    ASSERT_NE(Load("a.edf", TwoLeads()), nullptr);
    const std::string header = ReadFile(Converted("a.hea"));
    const std::string samples = ReadFile(Converted("a.dat"));
    EXPECT_EQ(samples.size(), 32U);
    EDFFile changed = TwoLeads();
    changed.Signals[0].Label = "V1";
    changed.Samples.resize(8);
    const LoadedHeader second = Load("a.edf", changed);
    ASSERT_NE(second, nullptr);
    EXPECT_STREQ(second->Signal[0].Description, "ECG I");
    EXPECT_EQ(ReadFile(Converted("a.hea")), header);
    EXPECT_EQ(ReadFile(Converted("a.dat")), samples);
}

TEST_F(LoadEDF, LoadsAConvertedRecordWithoutItsSource) {
    ASSERT_NE(Load("a.edf", TwoLeads()), nullptr);
    fs::remove(m_directory / "a.edf");
    EXPECT_NE(LoadedHeader(LoadDatabaseEDF((m_directory / "a.edf").c_str(), MATERIAL_EDF)),
              nullptr);
}

TEST_F(LoadEDF, ConvertsAgainWhenOneFileIsMissing) {
    ASSERT_NE(Load("a.edf", TwoLeads()), nullptr);
    EDFFile changed = TwoLeads();
    for (const char* missing : {"a.hea", "a.dat"}) {
        fs::remove(Converted(missing));
        changed.Signals[0].Label = missing;
        const LoadedHeader header = Load("a.edf", changed);
        ASSERT_NE(header, nullptr);
        EXPECT_STREQ(header->Signal[0].Description, missing);
    }
}

TEST_F(LoadEDF, UsesTheNamesOfTheConverter) {
    // Sixteen characters, cut to fifteen; a name with dots, cut at the last dot within its first
    // fifteen characters; a name of one character.
    const char* names[][2] = {{"abcdefghijklmnop.edf", "abcdefghijklmno"},
                              {"patient.7.recording.edf", "patient.7"},
                              {"x.edf", "x"}};
    for (const auto& [name, record] : names) {
        EXPECT_NE(Load(name, TwoLeads()), nullptr) << name;
        EXPECT_TRUE(fs::exists(Converted(record + std::string(".hea")))) << name;
        EXPECT_TRUE(fs::exists(Converted(record + std::string(".dat")))) << name;
        fs::remove(m_directory / name);
        EXPECT_NE(LoadedHeader(LoadDatabaseEDF((m_directory / name).c_str(), MATERIAL_EDF)),
                  nullptr)
            << name;
    }
}

TEST_F(LoadEDF, TakesARepositoryThatEndsInASlash) {
    m_repository += "/";
    g_pszRepository = m_repository.data();
    ASSERT_NE(Load("a.edf", TwoLeads()), nullptr);
    const std::string header = ReadFile(Converted("a.hea"));
    ASSERT_NE(Load("a.edf", std::string()), nullptr);
    EXPECT_EQ(ReadFile(Converted("a.hea")), header);
}

TEST_F(LoadEDF, FailsWithoutTouchingTheEarlierRecord) {
    const LoadedHeader earlier = Load("good.edf", TwoLeads());
    ASSERT_NE(earlier, nullptr);
    ASSERT_EQ(LoadMITDatabase(earlier.get()), 1);

    EDFFile noSignals = TwoLeads();
    noSignals.SignalCount = "0";
    const std::string whole = TwoLeads().Encode();
    const std::pair<const char*, std::string> files[] = {
        {"empty.edf", ""},
        {"short.edf", whole.substr(0, 700)},
        {"garbage.edf", std::string(10000, '\xFF')},
        {"none.edf", noSignals.Encode()},
        {"UPPER.EDF", whole},
        {"text.txt", whole},
        {"abc", whole},
        {"a", whole},
    };
    for (const auto& [name, content] : files) {
        EXPECT_EQ(Load(name, content), nullptr) << name;
    }
    fs::create_directory(m_directory / "directory.edf");
    for (const char* name : {"directory.edf", "missing.edf", ""}) {
        EXPECT_EQ(LoadDatabaseEDF((m_directory / name).c_str(), MATERIAL_EDF), nullptr);
    }
    EXPECT_EQ(LoadDatabaseEDF("", MATERIAL_EDF), nullptr);
    EXPECT_EQ(LoadDatabaseEDF(nullptr, MATERIAL_EDF), nullptr);
    ExpectMaterial(MATERIAL_MIT, 4, 8);
    ExpectNear(GetChannel(0), kLeadI);
    EXPECT_NE(Load("again.edf", TwoLeads()), nullptr);
}

TEST_F(LoadEDF, FailsWithoutARepository) {
    const std::string path = m_directory.Write("a.edf", TwoLeads().Encode());
    std::string unusable[] = {m_directory / "missing/repository", m_directory.Write("file", "x"),
                              std::string(300, 'r'), std::string(100000, 'r')};
    for (std::string& repository : unusable) {
        g_pszRepository = repository.data();
        EXPECT_EQ(LoadDatabaseEDF(path.c_str(), MATERIAL_EDF), nullptr);
    }
    g_pszRepository = nullptr;
    EXPECT_EQ(LoadDatabaseEDF(path.c_str(), MATERIAL_EDF), nullptr);
    g_pszRepository = m_repository.data();
    EXPECT_NE(LoadedHeader(LoadDatabaseEDF(path.c_str(), MATERIAL_EDF)), nullptr);
}

TEST_F(LoadEDF, LoadsRatesThatNoRecordingHas) {
    for (const char* duration : {"0", "-1", "nan", "inf", "1e-320", "1e308", ""}) {
        EDFFile file = TwoLeads();
        file.Duration = duration;
        for (const char* dataRecords : {"-1", "0", "1000000"}) {
            file.DataRecords = dataRecords;
            const LoadedHeader header = Load("odd.edf", file);
            if (header != nullptr) {
                LoadMITDatabase(header.get());
            }
            fs::remove_all(m_repository);
        }
    }
    EXPECT_NE(Load("good.edf", TwoLeads()), nullptr);
}

TEST_F(LoadEDF, LoadsAPublicFile) {
    const std::string path = PublicRecord("test_generator_2.edf");
    if (path.empty()) {
        GTEST_SKIP() << "test_generator_2.edf is missing";
    }
    // The first minute out of ten; missing samples play as silence.
    constexpr size_t kHeader = 13 * 256;
    constexpr size_t kRecord = (11 * 200 + 51) * 2;
    const std::string bytes = ReadFile(path).substr(0, kHeader + 60 * kRecord);
    const LoadedHeader header = Load("test_generator_2.edf", bytes);
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "test_generator_");
    ASSERT_EQ(int64_t{header->NumberOfSignals}, 12);
    EXPECT_STREQ(header->Signal[3].Description, "ECG");
    EXPECT_EQ(int32_t{header->Signal[3].Lead}, ECG_LEAD_II);
    ASSERT_EQ(LoadMITDatabase(header.get()), 1);
    g_WaveformType = MATERIAL_EDF;
    EXPECT_EQ(ValidateECGData(), 1);

    // Its annotations leave one frame per second: each sample is the mean of 200 values of 16 bits,
    // 65535 of them for 2000 uV.
    Channel expected;
    for (size_t record = 0; record < 60; ++record) {
        int sum = 0;
        for (size_t i = 0; i < 200; ++i) {
            const size_t position = kHeader + record * kRecord + (3 * 200 + i) * 2;
            const int code = static_cast<unsigned char>(bytes[position]) +
                             static_cast<unsigned char>(bytes[position + 1]) * 256;
            sum += code < 32768 ? code : code - 65536;
        }
        expected.push_back(sum / 200.0 * 2000.0 / 65535.0 / 1000.0);
    }
    expected.resize(600);
    const Channel ecg = GetChannel(3);
    ASSERT_EQ(ecg.size(), 600U);
    for (size_t i = 0; i < ecg.size(); ++i) {
        EXPECT_NEAR(ecg[i], expected[i], 1e-9) << i;
    }
}
