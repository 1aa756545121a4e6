#pragma once

#include "lab/machine/Finding.h"
#include "lab/machine/Machine.h"

#include <string>

namespace lab {

// Whether ModemManager runs, which probes every new port for a modem, and whether a rule excludes
// this one.
Finding CheckModemProbing(const Machine& machine, const std::string& path);

} // namespace lab
