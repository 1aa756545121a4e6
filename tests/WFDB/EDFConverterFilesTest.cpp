#include "WFDB/edf2mit.h"

#include "tests/WFDB/EDFConverterFixture.h"
#include "tests/WFDB/EDFFile.h"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/resource.h>

namespace {

// Of this process so far; -1 when the system does not report it.
long CountWriteCalls() {
    std::ifstream file("/proc/self/io");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("syscw: ", 0) == 0) {
            return std::stol(line.substr(std::strlen("syscw: ")));
        }
    }
    return -1;
}

} // namespace

TEST_F(EDFConverter, RefusesOtherExtensions) {
    const std::string content = TwoSignals().Encode();
    for (const char* name : {"record.EDF", "record.Edf", "record.bdf", "record", "record.edf.gz"}) {
        const std::string input = m_input.Write(name, content);
        EXPECT_EQ(edf2mit(input.c_str(), m_output.Path().c_str()), 0) << name;
    }
    EXPECT_TRUE(fs::is_empty(m_output.Path()));
}

TEST_F(EDFConverter, NamesTheRecordAfterTheFile) {
    const std::string content = TwoSignals().Encode();
    const std::string input = m_input.Write("a.fifteen.character.edf", content);
    EXPECT_EQ(WFDBConvertEDF(input.c_str(), (m_output.Path() + "/").c_str()), 1);
    // "a.fifteen.chara", cut at its last point.
    EXPECT_EQ(ReadLines(m_output / "a.fifteen.hea").at(0), "a.fifteen 2 4 8");
    EXPECT_TRUE(fs::exists(m_output / "a.fifteen.dat"));
    const std::string plain = m_input.Write("abcdefghijklmnop.edf", content);
    EXPECT_EQ(WFDBConvertEDF(plain.c_str(), m_output.Path().c_str()), 1);
    EXPECT_TRUE(fs::exists(m_output / "abcdefghijklmno.hea"));
}

TEST_F(EDFConverter, LimitsPathsTo255Characters) {
    const std::string input = m_input.Write("r.edf", TwoSignals().Encode());
    std::string directory = m_output.Path() + "/" + std::string(120, 'd');
    fs::create_directory(directory);
    directory += "/";
    directory += std::string(255 - directory.size() - std::strlen("/r.hea"), 'e');
    fs::create_directory(directory);
    EXPECT_EQ(edf2mit(input.c_str(), directory.c_str()), 1);
    EXPECT_TRUE(fs::exists(directory + "/r.hea"));
    fs::create_directory(directory + "x");
    EXPECT_EQ(edf2mit(input.c_str(), (directory + "x").c_str()), 0);
    EXPECT_TRUE(fs::is_empty(directory + "x"));
    EXPECT_EQ(edf2mit(input.c_str(), std::string(100000, 'd').c_str()), 0);
}

TEST_F(EDFConverter, ReplacesEarlierFiles) {
    m_output.Write("record.hea", std::string(10000, 'x'));
    m_output.Write("record.dat", std::string(10000, 'x'));
    EXPECT_EQ(Convert(TwoSignals()), 1);
    EXPECT_EQ(HeaderLines().size(), 3U);
    EXPECT_EQ(SignalBytes().size(), 32U);
}

TEST_F(EDFConverter, RefusesWhatIsNoEDFFile) {
    const std::string whole = TwoSignals().Encode();
    EDFFile otherVersion = TwoSignals();
    otherVersion.Version = "1";
    EDFFile bdf = TwoSignals();
    bdf.Version = "\xFF"
                  "BIOSEMI";
    const std::string contents[] = {
        "",
        "0",
        "0       ",
        whole.substr(0, 255),
        whole.substr(0, 256),
        whole.substr(0, 256 + 16),
        whole.substr(0, 256 + 511),
        otherVersion.Encode(),
        bdf.Encode(),
        std::string(5000, '\0'),
        std::string(5000, '\xFF'),
        std::string(5000, ' '),
        "0       " + std::string(5000, '9'),
    };
    for (const std::string& content : contents) {
        EXPECT_EQ(Convert(content), 0) << content.size();
    }
    for (const char* count : {"0", "-1", " ", "x", "9999", "-999", "3"}) {
        EDFFile file = TwoSignals();
        file.SignalCount = count;
        file.Samples.clear();
        EXPECT_EQ(Convert(file), 0) << count;
    }
    EXPECT_TRUE(fs::is_empty(m_output.Path()));
    EXPECT_EQ(Convert(TwoSignals()), 1);
}

TEST_F(EDFConverter, RefusesPathsThatCannotBeUsed) {
    const std::string input = m_input.Write("record.edf", TwoSignals().Encode());
    const char* output = m_output.Path().c_str();
    fs::create_directory(m_input / "directory.edf");
    EXPECT_EQ(edf2mit((m_input / "missing.edf").c_str(), output), 0);
    EXPECT_EQ(edf2mit((m_input / "directory.edf").c_str(), output), 0);
    EXPECT_EQ(edf2mit(input.c_str(), (m_output / "missing").c_str()), 0);
    EXPECT_EQ(edf2mit("", output), 0);
    EXPECT_EQ(edf2mit(nullptr, output), 0);
    EXPECT_EQ(edf2mit(input.c_str(), nullptr), 0);
    EXPECT_TRUE(fs::is_empty(m_output.Path()));
    // The signal file is made first.
    fs::create_directory(m_output / "record.hea");
    EXPECT_EQ(edf2mit(input.c_str(), output), 0);
    EXPECT_TRUE(fs::exists(m_output / "record.dat"));
}

// Files of more than 5,000 bytes are refused by the system, which kills the process for the attempt
// unless it ignores the signal.
TEST_F(EDFConverter, LeavesNoPartOfARecordThatCouldNotBeWritten) {
    const std::string input = m_input.Write("record.edf", Long().Encode());
    const auto convert = [&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {5000, 5000};
        setrlimit(RLIMIT_FSIZE, &limit);
        char reason[256];
        const int result = edf2mit(input.c_str(), m_output.Path().c_str());
        const int code = RAVOGetLastError(reason, sizeof(reason));
        std::fprintf(stderr, "%d %d %s", result, code, reason);
        std::_Exit(0);
    };
    EXPECT_EXIT(convert(), testing::ExitedWithCode(0), "0 13 .*record.dat: File too large");
    EXPECT_TRUE(fs::is_empty(m_output.Path()));
}

TEST_F(EDFConverter, GivesNoNameToWhatAnInterruptedConversionWrote) {
    const std::string input = m_input.Write("record.edf", Long().Encode());
    const auto convert = [&] {
        const rlimit limit = {5000, 5000};
        setrlimit(RLIMIT_FSIZE, &limit);
        edf2mit(input.c_str(), m_output.Path().c_str());
    };
    EXPECT_EXIT(convert(), testing::KilledBySignal(SIGXFSZ), "");
    EXPECT_FALSE(fs::is_empty(m_output.Path())) << "nothing was interrupted";
    EXPECT_FALSE(fs::exists(m_output / "record.dat"));
    EXPECT_FALSE(fs::exists(m_output / "record.hea"));

    EXPECT_EQ(edf2mit(input.c_str(), m_output.Path().c_str()), 1);
    EXPECT_EQ(fs::file_size(m_output / "record.dat"), 10000U);
}

// At every moment the record is the old one, none, or the new one.
TEST_F(EDFConverter, ReplacesARecordAsAWhole) {
    EXPECT_EQ(Convert(TwoSignals()), 1);
    const fs::path header = m_output / "record.hea";
    const fs::path old = m_output / "old.hea";
    fs::create_hard_link(header, old);
    EXPECT_EQ(Convert(Long()), 1);
    EXPECT_EQ(ReadLines(old).at(0), "record 2 4 8"); // not written to, but replaced
    EXPECT_EQ(HeaderLines().at(0), "record 1 5000 5000");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_output.Path()), fs::directory_iterator()), 3);
}

TEST_F(EDFConverter, FlushesEveryValue) {
    EDFFile file;
    file.Signals.resize(1);
    file.Signals[0].SamplesPerRecord = "5000";
    file.Samples.resize(5000);
    const long before = CountWriteCalls();
    if (before < 0) {
        GTEST_SKIP() << "the system does not count write calls";
    }
    EXPECT_EQ(Convert(file), 1);
    EXPECT_GE(CountWriteCalls() - before, 5000);
}

TEST_F(EDFConverter, ClosesItsFiles) {
    const auto countDescriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = countDescriptors();
    for (int i = 0; i < 10; ++i) {
        Convert(TwoSignals());
        Convert("0       ");
    }
    EXPECT_EQ(countDescriptors(), before);
}
