#pragma once

#include <cstdlib>

// Ends the run, which the fuzzer takes for a finding, where `condition` does not hold.
inline void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}
