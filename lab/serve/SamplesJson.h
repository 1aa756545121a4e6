#pragma once

#include "lab/material/Leads.h"

#include <array>
#include <string>
#include <vector>

namespace lab::serve {

// Millivolts of the twelve leads, rows of equal length.
using LeadRows = std::array<std::vector<double>, kLeadCount>;

// {"position":…,"rate":…,"leads":[…]}: the second of the first sample within the material, samples
// per second, and millivolts rounded to a microvolt.
std::string SamplesJson(double position, double rate, const LeadRows& leads);

} // namespace lab::serve
