#pragma once

#include "lab/machine/Finding.h"

#include <string>

namespace lab {

// The file that corrects a unit's 12-bit converters; units of 16 bits need none.
Finding CheckCalibration(int dacBits, const std::string& path);

// The file's first deviation from 4096 lines (one for each code) of 8 numbers (one for each
// output); empty when there is none.
std::string WrongShape(const std::string& path);

} // namespace lab
