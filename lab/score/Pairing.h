#pragma once

#include "lab/score/Timeline.h"

#include <cstddef>

namespace lab::score {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// Numbers of beats in their lists; one of them is kNone for a beat that stays alone.
struct Pair {
    std::size_t reference = kNone;
    std::size_t test = kNone;
};

// Every beat of either list once. The earliest unpaired beat is paired with the earliest unpaired
// one of the other side when that is within the window and no nearer to the beat after it.
std::vector<Pair> PairBeats(const std::vector<Beat>& reference, const std::vector<Beat>& test,
                            Int128 window);

} // namespace lab::score
