#pragma once

#include "lab/material/Record.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace lab {

// What the simulator's eight outputs carry, in millivolts, in the order I, II, V1 to V6. The chest
// outputs do not carry chest leads as such: the simulator adds the central terminal and scales.
struct Outputs {
    int64_t rate = 0; // frames per second
    std::array<std::vector<double>, kOutputCount> millivolts;

    std::size_t Frames() const { return millivolts[0].size(); }
};

using Leads = std::array<std::vector<double>, kLeadCount>;

// Reads a record of the outputs: eight signals in the order above, as ravo-emulator writes it.
Outputs ReadOutputs(const std::string& path);

// What the outputs should carry when the loaded `record` is played from `startSecond`, for `frames`
// frames; past its end, the samples that looping produces.
Outputs ExpectedOutputs(const Record& record, int startSecond, std::size_t frames);

// The whole second of the loaded record at which the play that produced `outputs` began.
int FindStart(const Record& record, const Outputs& outputs);

// The leads that the outputs represent.
Leads LeadsOf(const Outputs& outputs, const Record& record);

} // namespace lab
