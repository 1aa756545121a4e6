#include "tools/emulator/MakePort.h"

#include "tools/emulator/PseudoTerminal.h"
#include "tools/emulator/usb/UsbPort.h"

#include <cstdlib>
#include <string_view>

namespace emulator {

std::unique_ptr<Port> MakePort(const std::string& directory, int number) {
    const char* kind = std::getenv("RAVO_EMULATOR_PORT");
    if (kind != nullptr && std::string_view(kind) == "usb") {
        return std::make_unique<UsbPort>(directory, number);
    }
    return std::make_unique<PseudoTerminal>(directory, number);
}

} // namespace emulator
