#include "device/Calibration.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "platform/ConstructionOrder.h"
#include "platform/Files.h"
#include "platform/SharedValue.h"
#include "platform/Text.h"

#include <cstdlib>
#include <cstring>

double g_DACError[kDACErrorChannels * kDACErrorCodes];
int32_t g_bDACAvailable;
unsigned char g_nDACRawError[131072];
int32_t g_iDACCounter;
void (*g_DACCallback)(int*);
unsigned long g_hDACReadThread = ~0UL;
RAVO_CONSTRUCT_DEVICE CManualResetEvent g_hStopDACReadEvent(false);

namespace {

constexpr size_t kErrors = sizeof g_DACError / sizeof g_DACError[0];

void StripLineEnd(char* line) {
    size_t length = strlen(line);
    if (length == 0 || line[length - 1] != '\n') {
        return;
    }
    --length;
    if (length > 0 && line[length - 1] == '\r') {
        --length;
    }
    line[length] = '\0';
}

void StoreErrors(char* line, size_t code) {
    char* state = nullptr;
    size_t index = code;
    for (char* token = strtok_r(line, ", ", &state); token != nullptr && index < kErrors;
         token = strtok_r(nullptr, ", ", &state)) {
        g_DACError[index] = ClassicLocale::ToDouble(token);
        index += kDACErrorCodes;
    }
}

} // namespace

const char* GetDACFilePath() {
    static thread_local char path[256];
    char serial[sizeof g_strSerialNumber];
    LoadSharedBytes(serial, g_strSerialNumber, sizeof serial);
    snprintf(path, sizeof path, "/usr/local/tarnwick/ravo/RAVO_DAC%s.txt", serial);
    return path;
}

void LoadDACFile() {
    FILE* file = LoadShared(g_nDACBit) != 0 ? nullptr : OpenOrdinaryFile(GetDACFilePath());
    if (file != nullptr) {
        ReadDACErrors(file);
        fclose(file);
    }
    StoreShared(g_bDACAvailable, file != nullptr ? 1 : 0);
}

void ReadDACErrors(FILE* file) {
    char line[256];
    for (size_t code = 0; code < kErrors && fgets(line, sizeof line, file) != nullptr; ++code) {
        StripLineEnd(line);
        StoreErrors(line, code);
    }
}

int DACSendStaticValue(int code) {
    constexpr int kPlanes = 12;
    unsigned char command[64] = {0x09, 0x01, 0x00, 0x00};
    for (int plane = 0; plane < kPlanes; ++plane) {
        const unsigned int bit = (static_cast<unsigned int>(code) >> (kPlanes - 1 - plane)) & 1U;
        command[4 + plane] = bit != 0 ? 0xFF : 0x00;
    }
    return DeviceWriteData(command, sizeof command, 1);
}

bool DACCompensation(void (* /*callback*/)(int*)) {
    return false;
}
