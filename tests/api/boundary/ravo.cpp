// The header of the device functions compiles on its own in C++.
#include "api/ravo.h"

int main() {
    MODEL_INFORMATION model{};
    const bool known = RAVOGetDeviceInformation(&model) && RAVOGetVersion() == 0x01000504U;
    return known && RAVOLoadMITHeader("no such record.hea") == nullptr ? 0 : 1;
}
