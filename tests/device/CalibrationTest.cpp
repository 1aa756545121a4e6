#include "device/Calibration.h"

#include "device/Protocol.h"
#include "OpenPort.h"
#include "tests/support/DecimalComma.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr double kUntouched = -77.0;
constexpr const char* kPath = "/usr/local/tarnwick/ravo/RAVO_DAC05-170256.txt";

using Table = std::vector<double>;

Table Untouched() {
    return Table(32768, kUntouched);
}

Table Current() {
    return {std::begin(g_DACError), std::end(g_DACError)};
}

class Calibration : public testing::Test {
  protected:
    void SetUp() override {
        std::fill(std::begin(g_DACError), std::end(g_DACError), kUntouched);
        strcpy(g_strSerialNumber, "05-170256");
        g_nDACBit = 0;
        g_bDACAvailable = 7;
        fs::create_directories(fs::path(kPath).parent_path());
    }
    void TearDown() override { fs::remove_all(kPath); }

    static void Load(const std::string& contents) {
        std::ofstream(kPath, std::ios::binary) << contents;
        LoadDACFile();
    }
};

TEST_F(Calibration, FileIsNamedAfterTheShortSerialNumber) {
    EXPECT_STREQ(GetDACFilePath(), kPath);
}

// The connect thread uses the port at the same time as a host.
TEST_F(Calibration, EachThreadHasItsOwnFileName) {
    const char* path = GetDACFilePath();
    strcpy(g_strSerialNumber, "05-999999");
    std::thread([] { GetDACFilePath(); }).join();
    EXPECT_STREQ(path, kPath);
}

TEST_F(Calibration, LineIsACodeAndItsNumbersAreTheChannels) {
    std::string contents;
    for (int line = 0; line < 10; ++line) {
        contents += "\n";
    }
    Load(contents + "1.5, -2,0.25\n");
    Table expected = Untouched();
    expected[10] = 1.5;
    expected[4096 + 10] = -2.0;
    expected[2 * 4096 + 10] = 0.25;
    EXPECT_EQ(Current(), expected);
    EXPECT_EQ(g_bDACAvailable, 1);
}

TEST_F(Calibration, WholeTableIsFilled) {
    std::string contents;
    Table expected(32768);
    for (size_t code = 0; code < 4096; ++code) {
        for (size_t channel = 0; channel < 8; ++channel) {
            const double error = static_cast<double>(code) / 8 - static_cast<double>(channel);
            expected[channel * 4096 + code] = error;
            contents += std::to_string(error) + (channel < 7 ? "," : "\r\n");
        }
    }
    Load(contents);
    EXPECT_EQ(Current(), expected);
}

TEST_F(Calibration, AnyRunOfCommasAndBlanksSeparates) {
    Load(" , ,1,, 2 ,3  4\n");
    Table expected = Untouched();
    expected[0] = 1;
    expected[4096] = 2;
    expected[2 * 4096] = 3;
    expected[3 * 4096] = 4;
    EXPECT_EQ(Current(), expected);
}

TEST_F(Calibration, LineEndsAreNoNumbers) {
    Load("1,\n2,\r\n\r\n3, \n4,");
    Table expected = Untouched();
    expected[0] = 1;
    expected[1] = 2;
    expected[3] = 3;
    expected[4] = 4;
    EXPECT_EQ(Current(), expected);
}

TEST_F(Calibration, TextThatIsNoNumberCountsAsZero) {
    Load("abc,1.5x,-,0x10,1e2,--3\n");
    Table expected = Untouched();
    expected[0] = 0;
    expected[4096] = 1.5;
    expected[2 * 4096] = 0;
    expected[3 * 4096] = 16;
    expected[4 * 4096] = 100;
    expected[5 * 4096] = 0;
    EXPECT_EQ(Current(), expected);
}

TEST_F(Calibration, LineOf255CharactersAndMoreContinuesAsTheNext) {
    // 253 blanks and "12" fill the buffer; "34" is read as the next line.
    Load(std::string(253, ' ') + "1234\n5\n");
    Table expected = Untouched();
    expected[0] = 12;
    expected[1] = 34;
    expected[2] = 5;
    EXPECT_EQ(Current(), expected);
}

TEST_F(Calibration, ExcessLinesLandInTheNextChannelWhileTheTableLasts) {
    std::string contents;
    for (int line = 0; line < 4096; ++line) {
        contents += "\n";
    }
    Load(contents + "9\n");
    Table expected = Untouched();
    expected[4096] = 9;
    EXPECT_EQ(Current(), expected);
}

TEST_F(Calibration, ExcessNumbersAndLinesAreDropped) {
    std::string contents = "0,1,2,3,4,5,6,7,8,9,10\n";
    Table expected = Untouched();
    for (size_t channel = 0; channel < 8; ++channel) {
        expected[channel * 4096] = static_cast<double>(channel);
    }
    for (int line = 1; line < 32767; ++line) {
        contents += "\n";
    }
    contents += "5,6\n7,8\n9,10\n";
    expected[32767] = 5;
    Load(contents);
    EXPECT_EQ(Current(), expected);
}

TEST_F(Calibration, NumbersUseThePointInAnyLocale) {
    const DecimalComma locale;
    if (!locale.IsThere()) {
        GTEST_SKIP() << "There is no localedef on this machine.";
    }
    Load("1.5\n");
    EXPECT_EQ(g_DACError[0], 1.5);
}

TEST_F(Calibration, EmptyFileIsAvailableAndChangesNothing) {
    Load("");
    EXPECT_EQ(Current(), Untouched());
    EXPECT_EQ(g_bDACAvailable, 1);
}

TEST_F(Calibration, GarbageIsSurvived) {
    std::string contents;
    unsigned int state = 1;
    for (int i = 0; i < 500000; ++i) {
        state = state * 1664525U + 1013904223U;
        contents += static_cast<char>(state >> 24U);
    }
    Load(contents);
    EXPECT_EQ(g_bDACAvailable, 1);
}

TEST_F(Calibration, ZeroByteEndsItsLine) {
    Load(std::string("1,2\0,3\n4\n", 9));
    Table expected = Untouched();
    expected[0] = 1;
    expected[4096] = 2;
    expected[1] = 4;
    EXPECT_EQ(Current(), expected);
}

TEST_F(Calibration, EntriesThatTheFileDoesNotReachKeepTheirValues) {
    Load("1\n2\n");
    Load("3\n");
    EXPECT_EQ(g_DACError[0], 3);
    EXPECT_EQ(g_DACError[1], 2);
}

TEST_F(Calibration, MissingFileIsNotAvailable) {
    LoadDACFile();
    EXPECT_EQ(g_bDACAvailable, 0);
    EXPECT_EQ(Current(), Untouched());
}

TEST_F(Calibration, ThatIsNoFileIsNotAvailable) {
    fs::create_directory(kPath);
    LoadDACFile();
    EXPECT_EQ(g_bDACAvailable, 0);
    fs::remove(kPath);
    g_bDACAvailable = 1;
    ASSERT_EQ(mkfifo(kPath, 0600), 0);
    LoadDACFile();
    EXPECT_EQ(g_bDACAvailable, 0);
}

ptrdiff_t OpenDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

TEST_F(Calibration, WideConverterIsNotCorrected) {
    g_nDACBit = 1;
    const ptrdiff_t before = OpenDescriptors();
    Load("1\n");
    EXPECT_EQ(g_bDACAvailable, 0);
    EXPECT_EQ(Current(), Untouched());
    EXPECT_EQ(OpenDescriptors(), before) << "the file is not even opened";
}

TEST_F(Calibration, LoadsLeaveNoStreamOpen) {
    const ptrdiff_t before = OpenDescriptors();
    Load("1\n");
    LoadDACFile();
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Calibration, LongestSerialNumberHasItsFile) {
    memset(g_strSerialNumber, '9', sizeof g_strSerialNumber - 1);
    g_strSerialNumber[sizeof g_strSerialNumber - 1] = '\0';
    EXPECT_EQ(std::string(GetDACFilePath()),
              "/usr/local/tarnwick/ravo/RAVO_DAC" + std::string(31, '9') + ".txt");
}

TEST(CalibrationTable, StartsWithoutErrors) {
    EXPECT_EQ(sizeof g_DACError, 262144U);
    EXPECT_EQ(sizeof g_nDACRawError, 131072U);
    EXPECT_EQ(g_hDACReadThread, ~0UL);
    EXPECT_EQ(g_hStopDACReadEvent.WaitTimeout(0), 110);
}

using StaticValue = OpenPort;

TEST_F(StaticValue, IsTwelvePlanesWithAllChannelsAlike) {
    std::string expected(64, '\0');
    expected.replace(0, 16, std::string("\x09\x01\0\0\0\0\0\0\xFF\0\xFF\0\0\xFF\0\xFF", 16));
    EXPECT_EQ(DACSendStaticValue(0x0A5), 64);
    EXPECT_EQ(Device().Receive(64), expected);
    EXPECT_EQ(Device().ReceivePending(), "");
}

TEST_F(StaticValue, IgnoresBitsAboveTheTwelfth) {
    EXPECT_EQ(DACSendStaticValue(0x5000 | 0x0A5), 64);
    const std::string high = Device().Receive(64);
    EXPECT_EQ(DACSendStaticValue(0x0A5), 64);
    EXPECT_EQ(Device().Receive(64), high);
    EXPECT_EQ(DACSendStaticValue(-1), 64);
    EXPECT_EQ(Device().Receive(64),
              std::string("\x09\x01\0\0", 4) + std::string(12, '\xFF') + std::string(48, '\0'));
}

TEST_F(StaticValue, OfAClosedPortIsNotSent) {
    DeviceClose();
    EXPECT_EQ(DACSendStaticValue(1), 0);
}

TEST(Compensation, IsNotImplemented) {
    EXPECT_FALSE(DACCompensation(nullptr));
}

} // namespace
