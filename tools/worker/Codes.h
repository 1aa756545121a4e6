#pragma once

#include "lab/material/Leads.h"

#include <array>
#include <cstdint>
#include <vector>

// The numbers that a staged record must hold so that the outputs of a 16-bit simulator play the
// codes nearest to the requested voltages. The library truncates a code to an integer, and the
// chest outputs carry lead and central terminal at once, so that rounding each lead by itself would
// leave them up to two codes away.
namespace worker {

// The eight leads of one instant in millivolts, in the order of the outputs.
using Instant = std::array<double, lab::kOutputCount>;

constexpr double kLimit = 5.0; // the limit of an output in millivolts

// Numbers of the staged record per millivolt: a little finer than the 6400 codes, so that each code
// has a number that the library's arithmetic maps to it.
constexpr double kStagedGain = 6500.0;
constexpr double kCodesPerMillivolt = 6400.0;

class CodeTable {
  public:
    CodeTable();

    // The numbers that the staged record has to hold instead, in millivolts: whole numbers over
    // kStagedGain.
    Instant Encode(const Instant& leads) const;

  private:
    double Limb(double millivolts) const;
    static double Chest(double wanted, double terminal);

    std::vector<int16_t> m_numbers; // by code, in ascending order
};

} // namespace worker
