#pragma once

namespace lab {

// Adds to the twelve leads what one noise, in millivolts, on every output means for each of them.
void AddNoiseToLeads(double noise, double* leads);

} // namespace lab
