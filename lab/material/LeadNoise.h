#pragma once

namespace lab {

// Adds to each of the twelve leads the effect of one noise, in millivolts, on every output.
void AddNoiseToLeads(double noise, double* leads);

} // namespace lab
