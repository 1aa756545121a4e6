#include "device/Protocol.h"

#include "device/Device.h"
#include "device/SearchReport.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

unsigned char g_DeviceHWInfo[64];
int32_t g_bIsISPSupported;
int32_t g_nDACBit;
char g_strHWInfo[32];
char g_strSerialNumber[32];

namespace {

constexpr size_t kFlashSize = sizeof g_DeviceHWInfo;
constexpr size_t kSerialSize = sizeof g_strSerialNumber;

// Positions in the flash table.
enum Flash : size_t {
    kDirection = 3,
    kModelLetter1 = 6,
    kModelLetter2 = 7,
    kNumberA = 8,
    kNumberB = 9,
    kNumberC = 10,
    kSerialHigh = 11,
    kSerialLow = 12,
    kHardwareValue3 = 13,
    kHardwareValue1 = 14,
    kHardwareValue2 = 15,
    kManufacturing = 48,
};
constexpr size_t kManufacturingSize = 16;
constexpr size_t kModelCodeSize = sizeof MODEL_INFORMATION_EX::ModelCode;

constexpr unsigned int kWideConverterAbove = 20; // number A
constexpr unsigned int kShortSerialBelow = 17;   // number C

bool Write(const unsigned char* bytes, int length) {
    return DeviceWriteData(const_cast<unsigned char*>(bytes), length, 1) == length;
}

unsigned int FlashByte(size_t position) {
    return LoadShared(g_DeviceHWInfo[position]);
}

void SetFlashByte(size_t position, uint32_t value) {
    StoreShared(g_DeviceHWInfo[position], value & 0xFFU);
}

unsigned int FlashSerialNumber() {
    return FlashByte(kSerialHigh) * 256 + FlashByte(kSerialLow);
}

bool IsExtendedProtocol() {
    return LoadShared(g_bIsISPSupported) != 0;
}

void SetSerialTexts(const char (&full)[kSerialSize], const char* shortText) {
    char padded[kSerialSize] = {};
    memcpy(padded, shortText, strnlen(shortText, kSerialSize - 1));
    StoreSharedBytes(g_strHWInfo, full, kSerialSize);
    StoreSharedBytes(g_strSerialNumber, padded, kSerialSize);
}

void FormSerialTexts() {
    const auto letter1 = static_cast<int>(FlashByte(kModelLetter1));
    const auto letter2 = static_cast<int>(FlashByte(kModelLetter2));
    const unsigned int numberC = FlashByte(kNumberC);
    char text[kSerialSize] = {};
    if (numberC < kShortSerialBelow) {
        snprintf(text, sizeof text, "T%c%02u%02u%03u", letter1, numberC, FlashByte(kNumberB),
                 FlashSerialNumber());
        SetSerialTexts(text, text + 2);
    } else {
        snprintf(text, sizeof text, "T%c%c%02u%02u-%02u%04u", letter1, letter2, FlashByte(kNumberA),
                 FlashByte(kNumberB), numberC, FlashSerialNumber());
        SetSerialTexts(text, text + 5);
    }
}

// The text's two-letter prefix is left out.
void TakeLegacySerialNumber() {
    MODEL_INFORMATION information{};
    if (DoGetModelInfo(&information)) {
        char serial[kSerialSize] = {};
        memcpy(serial, information.SerialNumber + 2, 7);
        SetSerialTexts({}, serial);
    }
}

} // namespace

bool SendCommand(unsigned char* request, int requestLength, unsigned char* reply, int replyLength) {
    if (DeviceWriteData(request, requestLength, 1) != requestLength) {
        return false;
    }
    SleepMicroseconds(10000);
    if (replyLength == 0 || reply == nullptr) {
        return true;
    }
    return DeviceReadData(reply, replyLength) == replyLength;
}

IdentityAnswer AskIdentity() {
    static const unsigned char kProbe = 0xAA;
    static const unsigned char kIdentity[5] = {'R', 'V', '2', '0', 0};
    IdentityAnswer answer{};
    answer.isAsked = Write(&kProbe, 1);
    if (!answer.isAsked) {
        return answer;
    }
    answer.length = std::max(0, DeviceReadData(answer.bytes, sizeof answer.bytes));
    answer.isTheSimulators =
        answer.length == sizeof kIdentity && memcmp(answer.bytes, kIdentity, sizeof kIdentity) == 0;
    return answer;
}

bool IsTargetDevice() {
    return AskIdentity().isTheSimulators;
}

bool DoGetModelInfo(MODEL_INFORMATION* information) {
    static const unsigned char kRequest = 'U';
    if (information == nullptr || !Write(&kRequest, 1)) {
        return false;
    }
    unsigned char reply[19] = {};
    const int count = DeviceReadData(reply, sizeof reply);
    // Silence (-1) is accepted: there are units that never answer, and they must still connect.
    if (count >= 0 && count < 18) {
        return false;
    }
    memset(information, ' ', sizeof *information);
    memcpy(information->ModelName, reply, 8);
    memcpy(information->SerialNumber, reply + 9, 9);
    return true;
}

bool GetModelInfo(MODEL_INFORMATION* information) {
    if (information == nullptr) {
        return false;
    }
    static const char kModelName[] = "RAVO 2.0";
    memcpy(information->ModelName, kModelName, sizeof kModelName);

    char serial[kSerialSize];
    char* field = information->SerialNumber;
    unsigned long size = sizeof information->SerialNumber;
    if (IsExtendedProtocol()) {
        LoadSharedBytes(serial, g_strHWInfo, sizeof serial);
    } else {
        LoadSharedBytes(serial, g_strSerialNumber, sizeof serial);
        *field++ = 'T';
        *field++ = 'R';
        size -= 2;
    }
    strncpy_s(field, size, serial, ~0UL);
    return true;
}

bool GetModelInfo(MODEL_INFORMATION_EX* information) {
    if (information == nullptr || !IsExtendedProtocol()) {
        return false;
    }
    // Compatibility: the numbers A and B stand where the model letters might be expected.  Hosts
    // distinguish the variants of the unit by them.
    information->ModelCode[0] = 'R';
    information->ModelCode[1] = 'V';
    information->ModelCode[2] = static_cast<char>(FlashByte(kNumberA));
    information->ModelCode[3] = static_cast<char>(FlashByte(kNumberB));
    information->SerialNumber = FlashSerialNumber();
    information->NumberC = FlashByte(kNumberC);
    return true;
}

bool GetHWInfo(HW_INFORMATION_EX* information) {
    if (information == nullptr || !IsExtendedProtocol()) {
        return false;
    }
    information->Value1 = FlashByte(kHardwareValue1);
    information->Value2 = FlashByte(kHardwareValue2);
    information->Value3 = FlashByte(kHardwareValue3);
    return true;
}

bool DoReadDeviceHWInfo() {
    static const unsigned char kRequest[5] = {0x12, 0x55, 0xAA, 0x00, 0x00};
    SetSerialTexts({}, "");
    if (!Write(kRequest, sizeof kRequest)) {
        return false;
    }
    SleepMicroseconds(300000);
    unsigned char table[kFlashSize] = {};
    const int count = DeviceReadData(table, sizeof table);
    StoreSharedBytes(g_DeviceHWInfo, table, sizeof table);
    if (count != static_cast<int>(sizeof table)) {
        TakeLegacySerialNumber();
        return false;
    }
    if (memcmp(table, kRequest, 3) != 0) {
        return false;
    }
    FormSerialTexts();
    return true;
}

bool ReadDeviceHWInfo() {
    const bool supported = DoReadDeviceHWInfo();
    StoreShared(g_bIsISPSupported, supported ? 1 : 0);
    StoreShared(g_nDACBit, supported && FlashByte(kNumberA) > kWideConverterAbove ? 1 : 0);
    NoteFlashTable(supported);
    return supported;
}

bool DoUpdateFlashTable() {
    unsigned char table[kFlashSize];
    LoadSharedBytes(table, g_DeviceHWInfo, sizeof table);
    unsigned char reply[kFlashSize] = {};
    return Write(table, sizeof table) && DeviceReadData(reply, sizeof reply) == sizeof reply;
}

bool UpdateDeviceInformation(MODEL_INFORMATION_EX* model, HW_INFORMATION_EX* hardware) {
    if (model == nullptr || hardware == nullptr || !IsExtendedProtocol()) {
        return false;
    }
    for (size_t i = 0; i < kModelCodeSize; ++i) {
        SetFlashByte(kModelLetter1 + i, static_cast<unsigned char>(model->ModelCode[i]));
    }
    SetFlashByte(kNumberC, model->NumberC);
    SetFlashByte(kSerialHigh, model->SerialNumber >> 8U);
    SetFlashByte(kSerialLow, model->SerialNumber);
    SetFlashByte(kHardwareValue1, hardware->Value1);
    SetFlashByte(kHardwareValue2, hardware->Value2);
    SetFlashByte(kHardwareValue3, hardware->Value3);
    SetFlashByte(kDirection, 0xFF);
    return DoUpdateFlashTable() && DoReadDeviceHWInfo();
}

bool ReadMfgInfo(unsigned char* buffer, unsigned long size) {
    if (buffer == nullptr && size > 0) {
        return false;
    }
    LoadSharedBytes(buffer, g_DeviceHWInfo + kManufacturing, std::min(size, kManufacturingSize));
    return true;
}

bool WriteMfgInfo(const unsigned char* data, unsigned long size) {
    if (data == nullptr && size > 0) {
        return false;
    }
    // The direction marker stays as it was read, unlike in UpdateDeviceInformation.
    StoreSharedBytes(g_DeviceHWInfo + kManufacturing, data, std::min(size, kManufacturingSize));
    return DoUpdateFlashTable();
}

int NotifyToStopOutputing() {
    unsigned char command = 'S';
    return DeviceWriteData(&command, 1, 1);
}

bool APClose() {
    unsigned char command = 'C';
    return DeviceWriteData(&command, 1, 1) == 1;
}

unsigned char GetLinkID() {
    srand(static_cast<unsigned int>(time(nullptr)));
    unsigned char request[3] = {'D', 0x01, static_cast<unsigned char>(rand() & 0xFF)};
    unsigned char reply[3] = {};
    return SendCommand(request, sizeof request, reply, sizeof reply) ? reply[2] : 0;
}
