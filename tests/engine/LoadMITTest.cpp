#include "engine/loaders/LoadMIT.h"

#include "engine/LeadMapping.h"
#include "engine/Record.h"
#include "platform/LastError.h"
#include "tests/engine/LoadMITFixture.h"
#include "tests/support/Encoding.h"
#include "tests/support/PublicRecord.h"
#include "tests/support/Sanitizers.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

rlim_t UsedAddressSpace() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// While it exists, the process gets `granted` more bytes of address space and no more after that.
class NarrowAddressSpace {
  public:
    explicit NarrowAddressSpace(int64_t granted) {
        mallopt(M_ARENA_MAX, 1); // the first allocation of another thread would reserve 64 MiB
        EXPECT_EQ(getrlimit(RLIMIT_AS, &m_usual), 0);
        const rlimit narrow = {UsedAddressSpace() + static_cast<rlim_t>(granted), m_usual.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_AS, &narrow), 0);
    }
    ~NarrowAddressSpace() { EXPECT_EQ(setrlimit(RLIMIT_AS, &m_usual), 0); }
    NarrowAddressSpace(const NarrowAddressSpace&) = delete;
    NarrowAddressSpace& operator=(const NarrowAddressSpace&) = delete;

  private:
    rlimit m_usual{};
};

// The state of the engine that a failed load must not change.
struct EngineState {
    int32_t Type = g_WaveformType;
    ECG_HEADER* EngineHeader = g_pECGHeader;
    double** Data = g_pECGData;
    int32_t Signals = g_iECGSignalNumber;
    uint64_t Count = g_nSampleCount;
    uint32_t Rate = g_nSampleRate;
    std::vector<int32_t> Mapping{std::begin(g_ECGMappingLead), std::end(g_ECGMappingLead)};
    double FirstSample = g_pECGData[0][0];
};

void ExpectUnchanged(const EngineState& before) {
    const EngineState now;
    EXPECT_EQ(now.Type, before.Type);
    EXPECT_EQ(now.EngineHeader, before.EngineHeader);
    EXPECT_EQ(now.Data, before.Data);
    EXPECT_EQ(now.Signals, before.Signals);
    EXPECT_EQ(now.Count, before.Count);
    EXPECT_EQ(now.Rate, before.Rate);
    EXPECT_EQ(now.Mapping, before.Mapping);
    EXPECT_EQ(now.FirstSample, before.FirstSample);
}

size_t CountOpenDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

} // namespace

// ---- Header ------------------------------------------------------------------------------------

TEST_F(LoadMIT, DescribesTheRecord) {
    const ECG_HEADER* header = LoadHeader("record0123456789ABC 3 250 4\n" + Signal16("V1") +
                                              Signal16("MLII") + Signal16("ABP ART MAP 1234"),
                                          {});
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "record012345678");
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 3);
    EXPECT_EQ(int64_t{header->SamplingFrequency}, 250);
    EXPECT_EQ(int64_t{header->NumberOfSamples}, 4);
    EXPECT_STREQ(header->WFDBHeader->RecordName, "record0123456789ABC");
    for (const uint8_t byte : header->Reserved) {
        EXPECT_EQ(byte, 0);
    }
    EXPECT_STREQ(header->Signal[0].Description, "V1");
    EXPECT_EQ(ECG_Lead{header->Signal[0].Lead}, ECG_LEAD_V1);
    EXPECT_STREQ(header->Signal[1].Description, "MLII");
    EXPECT_EQ(ECG_Lead{header->Signal[1].Lead}, ECG_LEAD_II);
    EXPECT_STREQ(header->Signal[2].Description, "ABP ART MAP 123");
    EXPECT_EQ(ECG_Lead{header->Signal[2].Lead}, ECG_LEAD_NONE);
}

TEST_F(LoadMIT, GivesTheCallerACopyOfTheEnginesHeader) {
    const ECG_HEADER* header = LoadHeader("a 2 250 4\n" + Signal16("I") + Signal16("V6"), {});
    ASSERT_NE(header, nullptr);
    ASSERT_NE(header, g_pECGHeader);
    EXPECT_EQ(std::memcmp(header, g_pECGHeader, CalcECGHeaderSize(2)), 0);
}

TEST_F(LoadMIT, PreparesTheEngine) {
    const uint32_t rate = g_nSampleRate;
    ASSERT_NE(LoadHeader("a 2 250 4\n" + Signal16("V6") + Signal16("I"), {100, 200}), nullptr);
    EXPECT_EQ(g_WaveformType, MATERIAL_MIT);
    EXPECT_EQ(g_nSampleCount, 4u);
    EXPECT_EQ(g_nSampleRate, rate);
    EXPECT_EQ(g_iECGSignalNumber, 2);
    EXPECT_EQ(Channel(0), (Values{0, 0, 0, 0}));
    EXPECT_EQ(Channel(1), (Values{0, 0, 0, 0}));
    EXPECT_EQ((std::vector<int32_t>(std::begin(g_ECGMappingLead), std::end(g_ECGMappingLead))),
              (std::vector<int32_t>{1, -1, -1, -1, -1, -1, -1, 0}));
}

TEST_F(LoadMIT, CountsFramesBySamplesPerFrame) {
    const ECG_HEADER* header =
        LoadHeader("a 2 250 40000\na.dat 16x4 100 12 0 0 0 0 I\n" + Signal16("II"), {});
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(int64_t{header->NumberOfSamples}, 10000);
    EXPECT_EQ(g_nSampleCount, 10000u);
    EXPECT_EQ(int64_t{LoadHeader("a 1 250 11\na.dat 16x4 100\n", {})->NumberOfSamples}, 2);
}

TEST_F(LoadMIT, FindsARecordOfTheCurrentDirectoryByItsBareName) {
    const std::filesystem::path before = std::filesystem::current_path();
    m_directory.Write("a.hea", "a 1 250 2\n" + Signal16("I"));
    m_directory.Write("a.dat", EncodeFormat16({100, 200}));
    std::filesystem::current_path(m_directory.Path());
    m_header.reset(LoadMITHeader("a.hea"));
    std::filesystem::current_path(before);
    ASSERT_NE(m_header, nullptr);
    ASSERT_EQ(LoadMITDatabase(m_header.get()), 1);
    EXPECT_EQ(Channel(0), (Values{1, 2}));
}

TEST_F(LoadMIT, TakesARecordWithoutSamples) {
    ASSERT_NE(LoadHeader("a 1 250 0\n" + Signal16("I"), {100}), nullptr);
    EXPECT_EQ(LoadMITDatabase(m_header.get()), 1);
    EXPECT_EQ(g_nSampleCount, 0u);
    EXPECT_EQ(g_pECGData[0], nullptr);
    EXPECT_EQ(ValidateECGData(), 0);
}

// ---- Failures of the header --------------------------------------------------------------------

TEST_F(LoadMIT, LeavesTheEngineAloneWhenTheRecordCannotBeRead) {
    Load("a 2 250 2\n" + Signal16("I") + Signal16("V3"), {100, 200, 300, 400});
    const EngineState before;
    const size_t descriptors = CountOpenDescriptors();
    EXPECT_EQ(LoadMITHeader(nullptr), nullptr);
    EXPECT_EQ(LoadMITHeader(""), nullptr);
    EXPECT_EQ(LoadMITHeader((m_directory / "none.hea").c_str()), nullptr);
    EXPECT_EQ(LoadMITHeader(m_directory.Path().c_str()), nullptr);
    EXPECT_EQ(LoadMITHeader(m_directory.Write("b.hea", std::string()).c_str()), nullptr);
    EXPECT_EQ(LoadMITHeader(m_directory.Write("c.hea", std::string(999, '\xA5')).c_str()), nullptr);
    const std::string noSignalFile = "d 1 250 2\nd.dat 16 100\n";
    EXPECT_EQ(LoadMITHeader(m_directory.Write("d.hea", noSignalFile).c_str()), nullptr);
    EXPECT_EQ(LoadMITHeader(m_directory.Write("e.hea", std::string("e 0 250 2\n")).c_str()),
              nullptr);
    ExpectUnchanged(before);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
}

TEST_F(LoadMIT, LeavesTheEngineAloneWhenMemoryIsRefused) {
    Load("a 2 250 2\n" + Signal16("I") + Signal16("V3"), {100, 200, 300, 400});
    const EngineState before;
    const size_t descriptors = CountOpenDescriptors();
    for (const char* numbers :
         {"0 9223372036854775807", "-250 9223372036854775807", "250 -1", "250 -9223372036854775808",
          "9223372036854775807 9223372036854775807", "1844674407370955162 9223372036854775807",
          "400000000000000000 2000000000000000000"}) {
        const std::string header = "b 1 " + std::string(numbers) + "\n" + Signal16("II");
        EXPECT_EQ(LoadMITHeader(m_directory.Write("b.hea", header).c_str()), nullptr) << numbers;
    }
    ExpectUnchanged(before);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
}

TEST_F(LoadMIT, ShortensARecordTooLongForMemory) {
    if (kUnderSanitizer) {
        GTEST_SKIP() << "a sanitizer keeps books about every byte of memory";
    }
    constexpr int64_t kAnnounced = 4'000'000'000'000'000'000;
    constexpr int64_t kStep = 5 * 250;
    const ECG_HEADER* header =
        LoadHeader("a 1 250 " + std::to_string(kAnnounced) + "\n" + Signal16("I"), {100});
    ASSERT_NE(header, nullptr);
    const int64_t samples = header->NumberOfSamples;
    EXPECT_EQ((kAnnounced - samples) % kStep, 0);
    EXPECT_GT(samples, 0);
    const int64_t physical = int64_t{sysconf(_SC_PHYS_PAGES)} * sysconf(_SC_PAGESIZE);
    EXPECT_LE(samples, physical / 8);
    EXPECT_EQ(g_nSampleCount, static_cast<uint64_t>(samples));
    EXPECT_EQ(int64_t{g_pECGHeader->NumberOfSamples}, samples);
    EXPECT_EQ(std::memcmp(header, g_pECGHeader, CalcECGHeaderSize(1)), 0);
}

TEST_F(LoadMIT, ShortensToWhatTheSystemGrants) {
    // An address space limited to a little more than is in use refuses long before the machine's
    // memory is exhausted.
    if (kUnderSanitizer) {
        GTEST_SKIP() << "a sanitizer needs the whole address space for itself";
    }
    constexpr int64_t kGranted = 256 * 1024 * 1024;
    constexpr int64_t kAnnounced = 1'000'000'000'000;
    const std::string start = "a 2 1 " + std::to_string(kAnnounced) + "\n";
    Load("a 1 1 1\n" + Signal16("I"), {1}); // releases what an earlier test has loaded
    const ECG_HEADER* header = nullptr;
    {
        const NarrowAddressSpace narrow(kGranted);
        header = LoadHeader(start + Signal16("I") + Signal16("II"), {});
    }
    ASSERT_NE(header, nullptr);
    const int64_t samples = header->NumberOfSamples;
    EXPECT_EQ((kAnnounced - samples) % 5, 0);
    EXPECT_LE(samples * 2 * 8, kGranted);
    EXPECT_GT(samples * 2 * 8, kGranted / 2);
    EXPECT_EQ(g_nSampleCount, static_cast<uint64_t>(samples));
    EXPECT_NE(g_pECGData[0], nullptr);
    EXPECT_NE(g_pECGData[1], nullptr);
}

TEST_F(LoadMIT, DoesNotShortenForTheSakeOfEarlierSamples) {
    if (kUnderSanitizer) {
        GTEST_SKIP() << "a sanitizer needs the whole address space for itself";
    }
    constexpr int64_t kSamples = 16 * 1024 * 1024; // 128 MiB
    const std::string header = "a 1 1 " + std::to_string(kSamples) + "\n" + Signal16("I");
    ASSERT_NE(LoadHeader(header, {}), nullptr);
    const ECG_HEADER* again = nullptr;
    {
        const NarrowAddressSpace narrow(kSamples * 4);
        again = LoadHeader(header, {});
    }
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(int64_t{again->NumberOfSamples}, kSamples);
    EXPECT_EQ(g_nSampleCount, static_cast<uint64_t>(kSamples));
}

TEST_F(LoadMIT, ClosesTheSignalFileWithTheCopy) {
    const size_t descriptors = CountOpenDescriptors();
    ASSERT_NE(LoadHeader("a 1 250 2\n" + Signal16("I"), {100, 200}), nullptr);
    EXPECT_EQ(CountOpenDescriptors(), descriptors + 1);
    m_header.reset();
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    FreeECGHeader(nullptr);
}

TEST_F(LoadMIT, LoadsAThousandTimesWithoutUsingUpAnything) {
    const size_t descriptors = CountOpenDescriptors();
    Load("a 1 250 2\n" + Signal16("I"), {100, 200});
    for (int i = 0; i < 1000; ++i) {
        m_header.reset(LoadMITHeader((m_directory / "a.hea").c_str()));
        ASSERT_EQ(LoadMITDatabase(m_header.get()), 1);
    }
    EXPECT_EQ(Channel(0), (Values{1, 2}));
    m_header.reset();
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
}

// ---- Mapping -----------------------------------------------------------------------------------

TEST_F(LoadMIT, TakesOverEditedLeads) {
    ECG_HEADER* header = LoadHeader("a 2 250 2\n" + Signal16("I") + Signal16("ABP"), {});
    ASSERT_NE(header, nullptr);
    header->Signal[0].Lead = ECG_LEAD_NONE;
    header->Signal[1].Lead = ECG_LEAD_V4;
    header->SamplingFrequency = 17;
    UpdateMappingLead(header);
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_I], -1);
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_V4], 1);
    EXPECT_EQ(int64_t{g_pECGHeader->SamplingFrequency}, 250);
}

TEST_F(LoadMIT, TakesOnlyAsManyLeadsAsTheRecordHas) {
    ASSERT_NE(LoadHeader("a 3 250 2\n" + Signal16("I") + Signal16("II") + Signal16("V1"), {}),
              nullptr);
    const Header larger = std::move(m_header);
    ASSERT_NE(LoadHeader("a 1 250 2\n" + Signal16("V5"), {}), nullptr);
    UpdateMappingLead(larger.get());
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_I], 0);
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_II], -1);
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_V1], -1);
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_V5], -1);
}

// ---- Samples -----------------------------------------------------------------------------------

TEST_F(LoadMIT, ReadsTheSamplesInMillivolts) {
    Load("a 2 250 3\n" + Signal16("I", "100(50)/mV") + Signal16("II", "3/mV"),
         {150, 10, 50, -10, -50, 1});
    EXPECT_EQ(g_WaveformType, MATERIAL_MIT);
    EXPECT_EQ(g_nSampleRate, 250u);
    EXPECT_EQ(g_nSampleCount, 3u);
    EXPECT_EQ(Channel(0), (Values{1, 0, -1}));
    EXPECT_EQ(Channel(1), (Values{10.0 / 3.0, -10.0 / 3.0, 1.0 / 3.0}));
    EXPECT_EQ(ValidateECGData(), 1);
}

TEST_F(LoadMIT, ReadsFormat212) {
    m_directory.Write("b.dat", EncodeFormat212({-2048, 2047, 1, -1}));
    m_header.reset(LoadMITHeader(
        m_directory.Write("b.hea", std::string("b 2 250 2\nb.dat 212 1000\nb.dat 212 500\n"))
            .c_str()));
    ASSERT_NE(m_header, nullptr);
    ASSERT_EQ(LoadMITDatabase(m_header.get()), 1);
    EXPECT_EQ(Channel(0), (Values{-2.048, 0.001}));
    EXPECT_EQ(Channel(1), (Values{4.094, -0.002}));
}

TEST_F(LoadMIT, TurnsMicrovoltsIntoMillivolts) {
    Load("a 2 250 2\n" + Signal16("I", "1/uV") + Signal16("II", "1/mV"), {1500, 2, -7, -3});
    EXPECT_EQ(Channel(0), (Values{1.5, -0.007}));
    EXPECT_EQ(Channel(1), (Values{2, -3}));
}

TEST_F(LoadMIT, PlaysSilenceWhereTheFileEnds) {
    // Two whole frames and half of a third.
    Load("a 2 250 5\n" + Signal16("I") + Signal16("II"), {100, 200, 300, 400, 500});
    EXPECT_EQ(Channel(0), (Values{1, 3, 0, 0, 0}));
    EXPECT_EQ(Channel(1), (Values{2, 4, 0, 0, 0}));
}

TEST_F(LoadMIT, ReadsNoMoreThanAnnounced) {
    Load("a 1 250 2\n" + Signal16("I"), {100, 200, 300});
    EXPECT_EQ(Channel(0), (Values{1, 2}));
}

TEST_F(LoadMIT, ReadsLongRecordsAndManySignalsAlike) {
    // Counts around the size of a batch; sample k of signal s is (k * 7 + s * 3) % 200 - 100.
    for (const int signals : {1, 3, 12, 2047, 2049}) {
        const int frames = 4100 / signals + 3;
        std::string header = "a " + std::to_string(signals) + " 250 " + std::to_string(frames);
        header += "\n";
        std::vector<int> samples;
        for (int s = 0; s < signals; ++s) {
            header += Signal16("X");
        }
        for (int k = 0; k < frames; ++k) {
            for (int s = 0; s < signals; ++s) {
                samples.push_back((k * 7 + s * 3) % 200 - 100);
            }
        }
        Load(header, samples);
        for (int s = 0; s < signals; ++s) {
            Values expected;
            for (int k = 0; k < frames; ++k) {
                expected.push_back(((k * 7 + s * 3) % 200 - 100) / 100.0);
            }
            ASSERT_EQ(Channel(s), expected) << signals << " signals, signal " << s;
        }
    }
}

TEST_F(LoadMIT, FailsWithoutAHeader) {
    Load("a 1 250 1\n" + Signal16("I"), {100});
    const EngineState before;
    EXPECT_EQ(LoadMITDatabase(nullptr), 0);
    ExpectUnchanged(before);
}

TEST_F(LoadMIT, FailsWhenMemoryForTheSamplesIsRefused) {
    ECG_HEADER* header = LoadHeader("a 1 250 1\n" + Signal16("I"), {100});
    ASSERT_NE(header, nullptr);
    for (const int64_t samples : {std::numeric_limits<int64_t>::max(), int64_t{-1}}) {
        header->NumberOfSamples = samples;
        header->SamplingFrequency = 500;
        EXPECT_EQ(LoadMITDatabase(header), 0);
        EXPECT_EQ(g_WaveformType, MATERIAL_MIT);
        EXPECT_EQ(g_nSampleCount, static_cast<uint64_t>(samples));
        EXPECT_EQ(g_nSampleRate, 500u);
        EXPECT_EQ(ValidateECGData(), 0);
    }
}

TEST_F(LoadMIT, SurvivesASignalCountThatTheHostHasChanged) {
    ECG_HEADER* header = LoadHeader("a 2 250 2\n" + Signal16("I") + Signal16("V1"), {1, 2, 3, 4});
    ASSERT_NE(header, nullptr);
    header->NumberOfSignals = 4;
    ASSERT_EQ(LoadMITDatabase(header), 1);
    EXPECT_EQ(Channel(1), (Values{0.02, 0.04}));
    EXPECT_EQ(Channel(3), (Values{0, 0}));
    header->NumberOfSignals = 1;
    EXPECT_EQ(LoadMITDatabase(header), 1);
    EXPECT_EQ(g_iECGSignalNumber, 1);
    header->NumberOfSignals = -4294967290;
    EXPECT_EQ(LoadMITDatabase(header), 1);
    EXPECT_EQ(ValidateECGData(), 0);
    header->NumberOfSignals = 4294967297;
    SetLastFailure(Failure());
    EXPECT_EQ(LoadMITDatabase(header), 0);
    EXPECT_EQ(LastFailure().code, RAVO_ERROR_MEMORY);
}

TEST_F(LoadMIT, LoadsAHeaderThatNoRecordStandsBehind) {
    const Header header(NewECGHeaderAHA(3, "1001"));
    EXPECT_EQ(LoadMITDatabase(header.get()), 1);
    EXPECT_EQ(Channel(0), (Values{0, 0, 0}));
}

// ---- Public records ----------------------------------------------------------------------------

TEST_F(LoadMIT, LoadsAnArrhythmiaRecord) {
    const std::string path = PublicRecord("100.hea");
    if (path.empty()) {
        GTEST_SKIP() << "the public record 100.hea is not on this machine";
    }
    m_header.reset(LoadMITHeader(path.c_str()));
    ASSERT_NE(m_header, nullptr);
    ASSERT_EQ(LoadMITDatabase(m_header.get()), 1);
    EXPECT_EQ(g_nSampleCount, 650000u);
    EXPECT_EQ(g_nSampleRate, 360u);
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_II], 0);
    EXPECT_EQ(g_ECGMappingLead[ECG_LEAD_V5], 1);
    EXPECT_EQ(g_pECGData[0][0], (995 - 1024) / 200.0);
    EXPECT_EQ(g_pECGData[1][0], (1011 - 1024) / 200.0);
    for (int i = 0; i < 2; ++i) {
        int64_t sum = 0;
        for (const double sample : Channel(i)) {
            sum += std::llround(sample * 200.0) + 1024;
        }
        const auto checksum = static_cast<int16_t>(static_cast<uint16_t>(sum & 0xFFFF));
        EXPECT_EQ(checksum, i == 0 ? -22131 : 20052);
    }
}
