#pragma once

#include <cstdint>

namespace lab {

// Samples that are missing: from `begin` to before `end`.
struct Gap {
    int64_t begin;
    int64_t end;
};

} // namespace lab
