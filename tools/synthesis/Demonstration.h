#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "builtin/Beat.h"

namespace synthesis {

// A synthetic rest ECG of eight leads.
struct Demonstration {
    int64_t rate;                                            // samples per second
    std::array<std::vector<int16_t>, kLeadCount> microvolts; // one array per lead
};

// A rest ECG of `seconds` seconds at about `beatsPerMinute`, whose rhythm follows the breathing. It
// holds a whole number of beats and of breaths, so that a loop has no seam.
Demonstration MakeDemonstration(int64_t rate, int seconds, double beatsPerMinute);

enum class SignalFormat { k16, k212 };

// Writes PATH.hea and PATH.dat; the record's name is the last part of PATH. False when a file
// cannot be written, or when a value does not fit into the format.
bool WriteRecord(const Demonstration& record, const std::string& path, SignalFormat format);

} // namespace synthesis
