#include "device/Protocol.h"

#include "OpenPort.h"

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

const std::string kReadFlash("\x12\x55\xAA\0\0", 5);

// A flash table of a unit with two letters and the long serial format.
std::string FlashTable() {
    std::string table(64, '\0');
    for (size_t i = 16; i < table.size(); ++i) {
        table[i] = static_cast<char>(100 + i);
    }
    table.replace(0, 16,
                  std::string("\x12\x55\xAA\x00\x44\x45"
                              "AB"
                              "\x15\x05\x11\x01\x00\x33\x31\x32",
                              16));
    return table;
}

void SetFlash(const std::string& table) {
    memcpy(g_DeviceHWInfo, table.data(), sizeof g_DeviceHWInfo);
}

template <size_t N>
void SetText(char (&field)[N], const std::string& text) {
    memset(field, 0, N);
    memcpy(field, text.data(), text.size());
}

class Protocol : public OpenPort {
  protected:
    void SetUp() override {
        OpenPort::SetUp();
        memset(g_DeviceHWInfo, 0, sizeof g_DeviceHWInfo);
        SetText(g_strHWInfo, "old");
        SetText(g_strSerialNumber, "old");
        g_bIsISPSupported = 0;
        g_nDACBit = 7;
        // A long time for a reply that never comes, but no loaded machine delays a reply this much.
        g_nDeviceReadTimeout = 700;
    }

    // Reads the flash table from a device that gives this answer.
    bool ReadFlash(const std::string& reply) {
        const Peer peer([&] {
            EXPECT_EQ(Device().Receive(5), kReadFlash);
            Device().Send(reply);
        });
        return ReadDeviceHWInfo();
    }

    // The same of a device without flash table.
    bool ReadLegacy(const std::string& flashReply, const std::string& modelReply) {
        const Peer peer([&] {
            EXPECT_EQ(Device().Receive(5), kReadFlash);
            Device().Send(flashReply);
            EXPECT_EQ(Device().Receive(1), "U");
            Device().Send(modelReply);
        });
        return ReadDeviceHWInfo();
    }
};

TEST_F(Protocol, CommandWaitsBetweenRequestAndReply) {
    const Peer peer([&] {
        EXPECT_EQ(Device().Receive(3), "abc");
        Device().Send("xyz");
    });
    unsigned char request[] = {'a', 'b', 'c'};
    unsigned char reply[3] = {};
    const auto start = Clock::now();
    EXPECT_TRUE(SendCommand(request, 3, reply, 3));
    EXPECT_GE(Clock::now() - start, milliseconds(10));
    EXPECT_EQ(Bytes(reply), "xyz");
}

TEST_F(Protocol, CommandWithoutReplyReadsNothing) {
    unsigned char request[] = {'a'};
    unsigned char reply[1] = {};
    Device().Send("x");
    EXPECT_TRUE(SendCommand(request, 1, reply, 0));
    EXPECT_TRUE(SendCommand(request, 1, nullptr, 1));
    EXPECT_EQ(reply[0], 0);
    EXPECT_EQ(DeviceReadData(reply, 1), 1);
}

TEST_F(Protocol, CommandFailsOnAShortReplyOrClosedPort) {
    unsigned char request[] = {'a'};
    unsigned char reply[3] = {};
    Device().Send("xy");
    EXPECT_FALSE(SendCommand(request, 1, reply, 3));
    EXPECT_FALSE(SendCommand(request, 1, reply, 3));
    DeviceClose();
    EXPECT_FALSE(SendCommand(request, 1, nullptr, 0));
}

TEST_F(Protocol, IdentityIsFiveBytesWithAClosingZero) {
    const std::string zero(1, '\0');
    const std::pair<std::string, bool> cases[] = {{kIdentity, true},     {"RV20x", false},
                                                  {"RV2" + zero, false}, {"RV20", false},
                                                  {"xRV20", false},      {"", false}};
    for (const auto& [reply, expected] : cases) {
        const Peer peer([&, &reply = reply] {
            EXPECT_EQ(Device().Receive(1), "\xAA");
            Device().Send(reply);
        });
        EXPECT_EQ(IsTargetDevice(), expected) << reply;
    }
    DeviceClose();
    EXPECT_FALSE(IsTargetDevice());
}

TEST_F(Protocol, ShortSerialFormat) {
    std::string table = FlashTable();
    table[6] = 'A';
    table[9] = 3;
    table[10] = 16;
    table[11] = 0;
    table[12] = 0x2A;
    EXPECT_TRUE(ReadFlash(table));
    EXPECT_STREQ(g_strHWInfo, "TA1603042");
    EXPECT_STREQ(g_strSerialNumber, "1603042");
    EXPECT_EQ(g_bIsISPSupported, 1);
    EXPECT_EQ(Bytes(g_DeviceHWInfo), table);
}

TEST_F(Protocol, LongSerialFormat) {
    EXPECT_TRUE(ReadFlash(FlashTable()));
    EXPECT_STREQ(g_strHWInfo, "TAB2105-170256");
    EXPECT_STREQ(g_strSerialNumber, "05-170256");
    EXPECT_EQ(g_nDACBit, 1);
}

TEST_F(Protocol, LargestNumbersFit) {
    std::string table = FlashTable();
    table.replace(6, 7, "ZY\xFF\xFF\xFF\xFF\xFF");
    EXPECT_TRUE(ReadFlash(table));
    EXPECT_STREQ(g_strHWInfo, "TZY255255-25565535");
    EXPECT_STREQ(g_strSerialNumber, "5255-25565535");
    table.replace(8, 5, "\xFF\xFF\x10\xFF\xFF");
    EXPECT_TRUE(ReadFlash(table));
    EXPECT_STREQ(g_strHWInfo, "TZ1625565535");
    EXPECT_STREQ(g_strSerialNumber, "1625565535");
}

TEST_F(Protocol, ZeroLetterEndsTheFullTextOnly) {
    std::string table = FlashTable();
    table[6] = '\0';
    EXPECT_TRUE(ReadFlash(table));
    EXPECT_STREQ(g_strHWInfo, "T");
    EXPECT_STREQ(g_strSerialNumber, "05-170256");
}

TEST_F(Protocol, ConverterIsWideAbove20) {
    std::string table = FlashTable();
    table[8] = 20;
    EXPECT_TRUE(ReadFlash(table));
    EXPECT_EQ(g_nDACBit, 0);
    table[8] = 21;
    EXPECT_TRUE(ReadFlash(table));
    EXPECT_EQ(g_nDACBit, 1);
}

TEST_F(Protocol, FlashReadWaitsForTheDevice) {
    const auto start = Clock::now();
    EXPECT_TRUE(ReadFlash(FlashTable()));
    EXPECT_GE(Clock::now() - start, milliseconds(300));
}

TEST_F(Protocol, WrongHeaderIsNoFlashTable) {
    std::string table = FlashTable();
    table[0] = 0x13;
    g_bIsISPSupported = 1;
    EXPECT_FALSE(ReadFlash(table));
    EXPECT_EQ(g_bIsISPSupported, 0);
    EXPECT_EQ(g_nDACBit, 0);
    EXPECT_STREQ(g_strHWInfo, "");
    EXPECT_STREQ(g_strSerialNumber, "");
    EXPECT_EQ(Bytes(g_DeviceHWInfo), table);
}

TEST_F(Protocol, LegacyUnitGetsItsSerialFromItsModelText) {
    EXPECT_FALSE(ReadLegacy("", std::string("RAVO 1.0 TR1234567", 18) + '\0'));
    EXPECT_STREQ(g_strHWInfo, "");
    EXPECT_STREQ(g_strSerialNumber, "1234567");
    EXPECT_EQ(g_bIsISPSupported, 0);
    EXPECT_EQ(g_nDACBit, 0);
}

TEST_F(Protocol, TruncatedFlashTableCountsAsLegacy) {
    const std::string table = FlashTable();
    EXPECT_FALSE(ReadLegacy(table.substr(0, 40), "RAVO 1.0 TR7654321"));
    EXPECT_STREQ(g_strSerialNumber, "7654321");
    EXPECT_EQ(Bytes(g_DeviceHWInfo), table.substr(0, 40) + std::string(24, '\0'));
}

TEST_F(Protocol, SilentUnitHasAnEmptySerial) {
    EXPECT_FALSE(ReadLegacy("", ""));
    EXPECT_STREQ(g_strSerialNumber, "");
    EXPECT_STREQ(g_strHWInfo, "");
}

TEST_F(Protocol, ShortLegacyReplyGivesNoSerial) {
    EXPECT_FALSE(ReadLegacy("", "RAVO 1.0 TR123456"));
    EXPECT_STREQ(g_strSerialNumber, "");
}

TEST_F(Protocol, ClosedPortGivesNoSerial) {
    SetFlash(FlashTable());
    DeviceClose();
    EXPECT_FALSE(ReadDeviceHWInfo());
    EXPECT_STREQ(g_strHWInfo, "");
    EXPECT_STREQ(g_strSerialNumber, "");
    EXPECT_EQ(Bytes(g_DeviceHWInfo), FlashTable());
}

TEST_F(Protocol, LegacyModelTextIsCopiedAmongBlanks) {
    const Peer peer([&] {
        EXPECT_EQ(Device().Receive(1), "U");
        Device().Send("NAME5678-TR1234567!");
    });
    MODEL_INFORMATION information;
    memset(&information, 'z', sizeof information);
    EXPECT_TRUE(DoGetModelInfo(&information));
    EXPECT_EQ(std::string(information.ModelName, 16), "NAME5678        ");
    EXPECT_EQ(std::string(information.SerialNumber, 16), "TR1234567       ");
}

TEST_F(Protocol, SilentModelRequestSucceedsWithZerosAmongBlanks) {
    MODEL_INFORMATION information;
    memset(&information, 'z', sizeof information);
    EXPECT_TRUE(DoGetModelInfo(&information));
    EXPECT_EQ(std::string(information.ModelName, 16), std::string(8, '\0') + std::string(8, ' '));
    EXPECT_EQ(std::string(information.SerialNumber, 16),
              std::string(9, '\0') + std::string(7, ' '));
}

TEST_F(Protocol, ShortModelReplyFailsAndLeavesTheRecord) {
    Device().Send("12345678901234567");
    MODEL_INFORMATION information;
    memset(&information, 'z', sizeof information);
    EXPECT_FALSE(DoGetModelInfo(&information));
    EXPECT_EQ(std::string(information.ModelName, 16), std::string(16, 'z'));
    Device().Send("123456789012345678");
    EXPECT_TRUE(DoGetModelInfo(&information));
    EXPECT_FALSE(DoGetModelInfo(nullptr));
    DeviceClose();
    EXPECT_FALSE(DoGetModelInfo(&information));
}

TEST_F(Protocol, ModelNameIsFixedAndTerminated) {
    MODEL_INFORMATION information;
    memset(&information, 'z', sizeof information);
    EXPECT_TRUE(GetModelInfo(&information));
    EXPECT_EQ(std::string(information.ModelName, 16), std::string("RAVO 2.0\0zzzzzzz", 16));
    EXPECT_FALSE(GetModelInfo(static_cast<MODEL_INFORMATION*>(nullptr)));
}

TEST_F(Protocol, SerialNumberOfALegacyUnitCarriesItsPrefix) {
    SetText(g_strSerialNumber, "1234567");
    MODEL_INFORMATION information;
    memset(&information, 'z', sizeof information);
    EXPECT_TRUE(GetModelInfo(&information));
    EXPECT_EQ(std::string(information.SerialNumber, 16), std::string("TR1234567\0zzzzzz", 16));
}

TEST_F(Protocol, SerialNumberTooLongLeavesTheField) {
    MODEL_INFORMATION information;
    memset(&information, 'z', sizeof information);
    SetText(g_strSerialNumber, "12345678901234");
    EXPECT_TRUE(GetModelInfo(&information));
    EXPECT_EQ(std::string(information.SerialNumber, 16), "TRzzzzzzzzzzzzzz");
    g_bIsISPSupported = 1;
    memset(&information, 'z', sizeof information);
    SetText(g_strHWInfo, "TZY255255-255655");
    EXPECT_TRUE(GetModelInfo(&information));
    EXPECT_EQ(std::string(information.SerialNumber, 16), std::string(16, 'z'));
    SetText(g_strHWInfo, "TAB2105-1702567");
    EXPECT_TRUE(GetModelInfo(&information));
    EXPECT_EQ(std::string(information.SerialNumber, 16), std::string("TAB2105-1702567\0", 16));
}

TEST_F(Protocol, ExtendedModelReportsNumbersInsteadOfLetters) {
    SetFlash(FlashTable());
    MODEL_INFORMATION_EX model{};
    EXPECT_FALSE(GetModelInfo(&model));
    g_bIsISPSupported = 1;
    EXPECT_TRUE(GetModelInfo(&model));
    EXPECT_EQ(std::string(model.ModelCode, 4), "RV\x15\x05");
    EXPECT_EQ(model.SerialNumber, 256U);
    EXPECT_EQ(model.NumberC, 17U);
    EXPECT_FALSE(GetModelInfo(static_cast<MODEL_INFORMATION_EX*>(nullptr)));
}

TEST_F(Protocol, HardwareValuesHaveTheirOwnOrder) {
    SetFlash(FlashTable());
    HW_INFORMATION_EX hardware{};
    EXPECT_FALSE(GetHWInfo(&hardware));
    g_bIsISPSupported = 1;
    EXPECT_TRUE(GetHWInfo(&hardware));
    EXPECT_EQ(hardware.Value1, 0x31U);
    EXPECT_EQ(hardware.Value2, 0x32U);
    EXPECT_EQ(hardware.Value3, 0x33U);
    EXPECT_FALSE(GetHWInfo(nullptr));
}

TEST_F(Protocol, UpdateWritesTheTableAndReadsItBack) {
    SetFlash(FlashTable());
    g_bIsISPSupported = 1;
    MODEL_INFORMATION_EX model{{'W', 'X', 'Y', 'Z'}, 0x9ABCDEF0U, 0x112U};
    HW_INFORMATION_EX hardware{0x1A1U, 0x1A2U, 0x1A3U};
    std::string expected = FlashTable();
    expected[3] = '\xFF';
    expected.replace(6, 10, "WXYZ\x12\xDE\xF0\xA3\xA1\xA2");
    std::string readBack = FlashTable();
    readBack[12] = 2;
    {
        const Peer peer([&] {
            EXPECT_EQ(Device().Receive(64), expected);
            Device().Send(std::string(64, 'i'));
            EXPECT_EQ(Device().Receive(5), kReadFlash);
            Device().Send(readBack);
        });
        EXPECT_TRUE(UpdateDeviceInformation(&model, &hardware));
    }
    EXPECT_STREQ(g_strHWInfo, "TAB2105-170258");
    EXPECT_EQ(Bytes(g_DeviceHWInfo), readBack);
    EXPECT_EQ(g_nDACBit, 7) << "is only found out when connecting";
}

TEST_F(Protocol, UpdateThatIsNotAnsweredFails) {
    SetFlash(FlashTable());
    MODEL_INFORMATION_EX model{};
    HW_INFORMATION_EX hardware{};
    EXPECT_FALSE(UpdateDeviceInformation(&model, &hardware));
    EXPECT_EQ(Device().ReceivePending(), "") << "legacy units have no table";
    g_bIsISPSupported = 1;
    Device().Send(std::string(63, 'i'));
    EXPECT_FALSE(UpdateDeviceInformation(&model, &hardware));
    EXPECT_EQ(Device().ReceivePending().size(), 64U);
    EXPECT_FALSE(UpdateDeviceInformation(nullptr, &hardware));
    EXPECT_FALSE(UpdateDeviceInformation(&model, nullptr));
}

TEST_F(Protocol, ManufacturersBytesAreReadFromMemory) {
    SetFlash(FlashTable());
    unsigned char bytes[20];
    memset(bytes, 'z', sizeof bytes);
    EXPECT_TRUE(ReadMfgInfo(bytes, 20));
    EXPECT_EQ(Bytes(bytes), FlashTable().substr(48) + "zzzz");
    memset(bytes, 'z', sizeof bytes);
    EXPECT_TRUE(ReadMfgInfo(bytes, 2));
    EXPECT_EQ(Bytes(bytes), FlashTable().substr(48, 2) + std::string(18, 'z'));
    EXPECT_TRUE(ReadMfgInfo(nullptr, 0));
    EXPECT_FALSE(ReadMfgInfo(nullptr, 1));
    EXPECT_EQ(Device().ReceivePending(), "");
}

TEST_F(Protocol, ManufacturersBytesAreWrittenUpTo16WithTheMarkerAsItWas) {
    std::string table = FlashTable();
    table[3] = 0x77;
    SetFlash(table);
    const std::string data = "abcdefghijklmnopqrst";
    std::string expected = table;
    expected.replace(48, 16, data.substr(0, 16));
    const Peer peer([&] {
        EXPECT_EQ(Device().Receive(64), expected);
        Device().Send(std::string(64, 'i'));
    });
    EXPECT_TRUE(WriteMfgInfo(reinterpret_cast<const unsigned char*>(data.data()), 20));
    EXPECT_EQ(Bytes(g_DeviceHWInfo), expected);
}

TEST_F(Protocol, ManufacturersBytesWithoutAnswerFail) {
    const unsigned char data = 'a';
    EXPECT_FALSE(WriteMfgInfo(&data, 1));
    EXPECT_EQ(Device().ReceivePending().size(), 64U);
    EXPECT_FALSE(WriteMfgInfo(nullptr, 1));
    EXPECT_EQ(Device().ReceivePending(), "");
}

TEST_F(Protocol, ControlCommandsAreSingleBytes) {
    EXPECT_EQ(NotifyToStopOutputing(), 1);
    EXPECT_TRUE(APClose());
    EXPECT_EQ(Device().Receive(2), "SC");
    EXPECT_EQ(Device().ReceivePending(), "");
    DeviceClose();
    EXPECT_EQ(NotifyToStopOutputing(), 0);
    EXPECT_FALSE(APClose());
}

TEST_F(Protocol, LinkIdIsTheThirdByte) {
    std::string request;
    {
        const Peer peer([&] {
            request = Device().Receive(3);
            Device().Send("\x01\x02\xA7");
        });
        EXPECT_EQ(GetLinkID(), 0xA7);
    }
    EXPECT_EQ(request.substr(0, 2), "D\x01");
    Device().Send("\x01\x02");
    EXPECT_EQ(GetLinkID(), 0);
    DeviceClose();
    EXPECT_EQ(GetLinkID(), 0);
}

} // namespace
