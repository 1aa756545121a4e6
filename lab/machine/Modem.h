#pragma once

#include "lab/machine/Finding.h"
#include "lab/machine/Machine.h"

#include <string>

namespace lab {

// Whether ModemManager runs, which asks every new port for a modem, and was told to leave this one
// alone.
Finding CheckModemProbing(const Machine& machine, const std::string& path);

} // namespace lab
