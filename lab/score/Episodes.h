#pragma once

#include "lab/score/Fibrillation.h"

namespace lab::score {

// Of one side's episodes, how many there are, how many the other side has found, and their ticks.
struct EpisodeCounts {
    std::int64_t all = 0;
    std::int64_t matched = 0;
    Int128 duration = 0;
    Int128 shared = 0; // the ticks of `duration` that lie within the other side's episodes
};

// Counts the episodes of `side` that begin after the learning period. One is matched when it shares
// more than an instant with any of `other`.
EpisodeCounts CountEpisodes(const std::vector<Episode>& side, const std::vector<Episode>& other,
                            Int128 learning);

} // namespace lab::score
