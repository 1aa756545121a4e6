#include "engine/loaders/LoadTarnwick.h"

#include "tests/engine/LoadedMaterial.h"
#include "tests/support/DecimalComma.h"
#include "tests/support/Files.h"

#include <cmath>
#include <limits>
#include <map>
#include <unistd.h>

namespace {

using Leads = std::map<int, std::vector<int>>;

constexpr const char* kNames[] = {"Lead I", "Lead II", "V1", "V2", "V3", "V4", "V5", "V6"};

std::string Encode(int rate, int count, const Leads& leads, const std::string& lineEnd = "\n") {
    std::string text =
        std::to_string(rate) + lineEnd + std::to_string(count) + lineEnd + "start" + lineEnd;
    for (const auto& [channel, samples] : leads) {
        text += kNames[channel] + lineEnd;
        for (const int sample : samples) {
            text += std::to_string(sample) + lineEnd;
        }
    }
    return text;
}

Channel WithZeros(Channel samples, size_t count) {
    samples.resize(count);
    return samples;
}

class LoadTarnwick : public testing::Test {
  protected:
    LoadedHeader Load(const std::string& content) {
        return LoadedHeader(LoadDatabaseTarnwick(m_directory.Write("a.txt", content).c_str()));
    }

    // Channel 2 of a record of three samples per lead.
    Channel LoadV1(const std::string& data) {
        EXPECT_NE(Load("500\n3\nstart\n" + data), nullptr);
        return GetChannel(2);
    }

    Scratch m_directory;
};

} // namespace

TEST_F(LoadTarnwick, ReadsEightLeads) {
    Leads leads;
    for (int channel = 0; channel < 8; ++channel) {
        for (int i = 0; i < 2000; ++i) {
            leads[channel].push_back((i * 31 + channel * 977) % 10001 - 5000);
        }
    }
    for (const char* lineEnd : {"\n", "\r\n", "\r", "\n\n"}) {
        ExpectAllChannelHeader(Load(Encode(360, 2000, leads, lineEnd)), "a", 360, 2000);
        ExpectMaterial(MATERIAL_TARNWICK, 360, 2000);
        for (int channel = 0; channel < 8; ++channel) {
            Channel expected;
            for (const int sample : leads[channel]) {
                expected.push_back(sample / 1000.0);
            }
            EXPECT_EQ(GetChannel(channel), expected) << channel;
        }
        EXPECT_EQ(ValidateECGData(), 1);
    }
}

TEST_F(LoadTarnwick, LeavesAbsentLeadsAtZero) {
    ExpectAllChannelHeader(Load("500\n1000\nSTART\nv1\n100\n-200\n"), "a", 500, 1000);
    ExpectMaterial(MATERIAL_TARNWICK, 500, 1000);
    for (int channel = 0; channel < 8; ++channel) {
        EXPECT_EQ(GetChannel(channel),
                  WithZeros(channel == 2 ? Channel{0.1, -0.2} : Channel(), 1000));
    }
}

TEST_F(LoadTarnwick, KnowsLeadNamesInEveryLetterCase) {
    ASSERT_NE(Load("500\n1\nstart\nlead ii\n1\nLEAD I\n2\nV6  \n3\nLead Ii\n4\n"), nullptr);
    EXPECT_EQ(GetChannel(0), Channel{0.002});
    EXPECT_EQ(GetChannel(1), Channel{0.004});
    EXPECT_EQ(GetChannel(7), Channel{0.003});
}

TEST_F(LoadTarnwick, TakesOtherLinesForValues) {
    EXPECT_EQ(LoadV1("V1\n1\n V1\n3\n"), (Channel{0.001, 0.0, 0.003}));
    EXPECT_EQ(LoadV1("V1\n1\nV7\n3\n"), (Channel{0.001, 0.0, 0.003}));
    EXPECT_EQ(LoadV1("V1\nLead  I\nLead III\nI\n"), (Channel{0.0, 0.0, 0.0}));
    EXPECT_EQ(LoadV1("V1\n1V1\n+2.5\n.5\n"), (Channel{0.001, 0.0025, 0.0005}));
    EXPECT_EQ(LoadV1("V1\n0x10\n1e3x\n  -7 8\n"), (Channel{0.016, 1.0, -0.007}));
    EXPECT_EQ(LoadV1("V1\n1e999\n-inf\n2\n"), (Channel{HUGE_VAL, -HUGE_VAL, 0.002}));
}

TEST_F(LoadTarnwick, LeavesTheBlanksOfSkippedLinesInFront) {
    EXPECT_EQ(LoadV1("V1\n1\n  \nV1\n3\n"), (Channel{0.001, 0.0, 0.003}));
    EXPECT_EQ(LoadV1("V1\n1\n\n\nV1\n3\n"), (Channel{0.003, 0.0, 0.0}));
}

TEST_F(LoadTarnwick, IgnoresValuesBeyondTheCount) {
    ASSERT_NE(Load("500\n3\nstart\nV5\n9\nV6\n1\n2\n3\n4\n"), nullptr);
    EXPECT_EQ(GetChannel(7), (Channel{0.001, 0.002, 0.003}));
    EXPECT_EQ(GetChannel(6), (Channel{0.009, 0.0, 0.0}));
}

TEST_F(LoadTarnwick, IgnoresValuesBeforeTheFirstLead) {
    EXPECT_EQ(LoadV1("7\n8\n9\n10\nV1\n1\n"), (Channel{0.001, 0.0, 0.0}));
    EXPECT_EQ(GetChannel(0), (Channel{0.0, 0.0, 0.0}));
}

TEST_F(LoadTarnwick, OverwritesALeadThatOccursAgain) {
    EXPECT_EQ(LoadV1("V1\n1\n2\n3\nV2\n4\nV1\n5\n"), (Channel{0.005, 0.002, 0.003}));
    EXPECT_EQ(GetChannel(3), (Channel{0.004, 0.0, 0.0}));
}

TEST_F(LoadTarnwick, TruncatesRateAndCount) {
    ExpectAllChannelHeader(Load("499.9\n2.9\n \t Start \nV1\n1\n"), "a", 499, 2);
    ExpectAllChannelHeader(Load("5e2 per second\n0x2\nstart\n"), "a", 500, 2);
    ExpectAllChannelHeader(Load("rate\ncount\nstart\n"), "a", 0, 0);
    ExpectAllChannelHeader(Load("2147483647.5\n1\nstart\n"), "a", 2147483647, 1);
}

TEST_F(LoadTarnwick, SkipsBlankLinesInTheHeader) {
    ExpectAllChannelHeader(Load("\n\n500\n\r\n  \n2\n\nstart\n"), "a", 500, 2);
}

TEST_F(LoadTarnwick, TakesAFileThatEndsInItsHeaderForZeros) {
    ExpectAllChannelHeader(Load("500\n3\n"), "a", 500, 3);
    EXPECT_EQ(GetChannel(7), Channel(3));
    ExpectAllChannelHeader(Load("500"), "a", 500, 0);
    ExpectMaterial(MATERIAL_TARNWICK, 500, 0);
    EXPECT_EQ(ValidateECGData(), 0);
    ExpectAllChannelHeader(Load(""), "a", 0, 0);
    ExpectAllChannelHeader(Load(" \r\n\t"), "a", 0, 0);
}

TEST_F(LoadTarnwick, SeesTheFirst255CharactersOfALine) {
    EXPECT_EQ(LoadV1("V1\n" + std::string(254, '0') + "12\n"), (Channel{0.001, 0.0, 0.0}));
    EXPECT_EQ(LoadV1("V1" + std::string(300, ' ') + "\n4\n"), (Channel{0.004, 0.0, 0.0}));
}

TEST_F(LoadTarnwick, RefusesBadHeadersAndKeepsTheEarlierRecord) {
    ASSERT_NE(Load("500\n2\nstart\nV1\n1\n"), nullptr);
    const std::string contents[] = {
        "500\n3\nbegin\n",        "500\n3\nstart now\n",
        "500\n3\nV1\n1\n",        "-1\n3\nstart\n",
        "-0.5\n3\nstart\n",       "500\n-3\nstart\n",
        "nan\n3\nstart\n",        "500\nnan\nstart\n",
        "inf\n3\nstart\n",        "500\n-inf\nstart\n",
        "2147483648\n3\nstart\n", "500\n2147483648\nstart\n",
        "500\n1e300\nstart\n",    "-1",
        "500\n1e999\n",           std::string(1000, '\xFF') + "\n\xFF\n\xFF\n",
    };
    for (const std::string& content : contents) {
        EXPECT_EQ(Load(content), nullptr) << content;
        ExpectMaterial(MATERIAL_TARNWICK, 500, 2);
        EXPECT_EQ(GetChannel(2), (Channel{0.001, 0.0}));
    }
    ExpectAllChannelHeader(Load("250\n1\nstart\n"), "a", 250, 1);
}

TEST_F(LoadTarnwick, FailsWhenMemoryIsRefused) {
    // Eight leads of sixteen gigabytes.
    const auto memory = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                        static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    if (memory >= uint64_t{1} << 37) {
        GTEST_SKIP() << "this machine has the memory for the largest record";
    }
    EXPECT_EQ(Load("500\n2147483647\nstart\nV1\n1\n"), nullptr);
    ExpectMaterial(MATERIAL_TARNWICK, 500, 2147483647);
    EXPECT_EQ(ValidateECGData(), 0);
    ExpectAllChannelHeader(Load("250\n1\nstart\n"), "a", 250, 1);
}

TEST_F(LoadTarnwick, RefusesWhatIsNoFile) {
    ASSERT_NE(Load("500\n2\nstart\nV1\n1\n"), nullptr);
    EXPECT_EQ(LoadDatabaseTarnwick((m_directory / "missing").c_str()), nullptr);
    EXPECT_EQ(LoadDatabaseTarnwick(m_directory.Path().c_str()), nullptr);
    EXPECT_EQ(LoadDatabaseTarnwick(""), nullptr);
    EXPECT_EQ(LoadDatabaseTarnwick(nullptr), nullptr);
    ExpectMaterial(MATERIAL_TARNWICK, 500, 2);
}

TEST_F(LoadTarnwick, NamesTheRecordAfterTheFile) {
    const std::string path = m_directory.Write("my.long.record.name.txt", "500\n1\nstart\n");
    const LoadedHeader header(LoadDatabaseTarnwick(path.c_str()));
    ExpectAllChannelHeader(header, "my.long.record.", 500, 1);
}

TEST_F(LoadTarnwick, KnowsLeadsInEveryLocale) {
    const DottedI locale;
    if (!locale.IsThere()) {
        GTEST_SKIP() << "localedef could not make the locale";
    }
    ASSERT_NE(Load("500\n1\nSTART\nlead i\n1000\nLEAD II\n2000\nv1\n3000\n"), nullptr);
    EXPECT_EQ(GetChannel(0), Channel{1.0});
    EXPECT_EQ(GetChannel(1), Channel{2.0});
    EXPECT_EQ(GetChannel(2), Channel{3.0});
}
