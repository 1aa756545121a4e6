#pragma once

#include "lab/material/Leads.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace lab {

// What the library does not tell of a file in the simulator's own text format.
struct NativeText {
    std::vector<std::string> warnings;
    std::array<int64_t, kOutputCount> cut{}; // values that each lead has too few; they play as 0
};

NativeText InspectNativeText(const std::string& path);

} // namespace lab
