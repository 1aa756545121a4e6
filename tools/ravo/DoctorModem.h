#pragma once

#include "tools/ravo/Finding.h"
#include "tools/ravo/Machine.h"

#include <string>

namespace cli {

// Whether ModemManager runs, which asks every new port for a modem, and was told to leave this one
// alone.
Finding CheckModemProbing(const Machine& machine, const std::string& path);

} // namespace cli
