#pragma once

#include "lab/score/Timeline.h"

#include <cstdint>

namespace lab::score {

constexpr std::uint32_t kNone = UINT32_MAX;

// Numbers of beats in their lists; kNone for the missing side of an unpaired beat.
struct Pair {
    std::uint32_t reference = kNone;
    std::uint32_t test = kNone;
};

// Every beat of either list once. The earliest unpaired beat is paired with the earliest unpaired
// one of the other side when that is within the window and no nearer to the beat after it.
std::vector<Pair> PairBeats(const Beats& reference, const Beats& test, Int128 window);

} // namespace lab::score
