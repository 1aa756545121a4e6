#include "lab/score/Episodes.h"

#include <algorithm>

namespace lab::score {
namespace {

// The ticks of `episode` within the others, which are in order and apart. `from` is the first that
// may overlap it; it is advanced.
Int128 SharedTicks(const Episode& episode, const std::vector<Episode>& others, std::size_t& from) {
    while (from < others.size() && others[from].end <= episode.begin) {
        ++from;
    }
    Int128 shared = 0;
    for (std::size_t i = from; i < others.size() && others[i].begin < episode.end; ++i) {
        shared += std::min(episode.end, others[i].end) - std::max(episode.begin, others[i].begin);
    }
    return shared;
}

} // namespace

EpisodeCounts CountEpisodes(const std::vector<Episode>& side, const std::vector<Episode>& other,
                            Int128 learning) {
    EpisodeCounts counts;
    std::size_t from = 0;
    for (const Episode& episode : side) {
        const Int128 shared = SharedTicks(episode, other, from);
        if (episode.begin <= learning) {
            continue;
        }
        counts.all += 1;
        counts.matched += shared > 0 ? 1 : 0;
        counts.duration += episode.end - episode.begin;
        counts.shared += shared;
    }
    return counts;
}

} // namespace lab::score
