#pragma once

#include "lab/material/Leads.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace lab {

// Facts about a file in the simulator's own text format that the library does not report.
struct NativeText {
    std::vector<std::string> warnings;
    std::array<bool, kOutputCount> hasValues{};
    std::array<int64_t, kOutputCount> cut{}; // values that each lead lacks; they are played as 0
};

NativeText InspectNativeText(const std::string& path);

} // namespace lab
