#pragma once

#include "lab/material/Leads.h"

#include <array>
#include <cstdint>
#include <vector>

// Which numbers a staged record must hold so that the outputs of a 16-bit simulator play the codes
// next to the voltages that are asked for. The library truncates a code to an integer, and
// the chest outputs carry lead and central terminal at once, so that rounding each lead by itself
// would leave them up to two codes away.
namespace worker {

// The eight leads of one instant in millivolts, in the order of the outputs.
using Instant = std::array<double, lab::kOutputCount>;

constexpr double kLimit = 5.0; // millivolts that an output reaches

// Numbers of the staged record to the millivolt: a little finer than the 6400 codes, so that each
// code has a number that the library's arithmetic maps to it.
constexpr double kStagedGain = 6500.0;
constexpr double kCodesPerMillivolt = 6400.0;

class CodeTable {
  public:
    CodeTable();

    // What the staged record is to hold instead, in millivolts: whole numbers over kStagedGain.
    Instant Encode(const Instant& leads) const;

  private:
    double Limb(double millivolts) const;
    static double Chest(double wanted, double terminal);

    std::vector<int16_t> m_numbers; // by code, from the lowest on
};

} // namespace worker
