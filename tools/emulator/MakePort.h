#pragma once

#include "tools/emulator/Port.h"

#include <memory>
#include <string>

namespace emulator {

// A pseudo-terminal; or, with RAVO_EMULATOR_PORT=usb in the environment, a USB device.
std::unique_ptr<Port> MakePort(const std::string& directory, int number);

} // namespace emulator
