#pragma once

#include "lab/score/Timeline.h"

namespace lab::score {

// Ventricular fibrillation or flutter, from "[" to "]", both ends included.
struct Episode {
    Int128 begin = 0;
    Int128 end = 0;
};

// In order and apart. An unclosed "[" lasts to the last annotation of the list.
std::vector<Episode> EpisodesOf(const std::vector<Event>& events);

// The numbers of the beats among the events that lie in none of the episodes.
std::vector<std::uint32_t> BeatsOutside(const std::vector<Episode>& episodes,
                                        const std::vector<Event>& events);

} // namespace lab::score
