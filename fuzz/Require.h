#pragma once

#include <cstdlib>

// Ends the run, which the fuzzer reports as a finding, if `condition` does not hold.
inline void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}
