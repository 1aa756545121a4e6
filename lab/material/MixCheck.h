#pragma once

#include <string>

namespace lab {

// Warns when a noise stress test wrapped samples that need more than 12 bits. `signal` and `mix`
// are the header paths of the record and of what the test made of it.
void WarnOfWrappedSamples(const std::string& signal, const std::string& mix);

} // namespace lab
