#pragma once

#include "lab/score/Fibrillation.h"

#include <array>

namespace lab::score {

// Consecutive beats of one class: the numbers of the first and the last in their list.
struct Run {
    std::size_t first = 0;
    std::size_t last = 0;
    std::size_t Length() const { return last - first + 1; }
};

// The bins of run lengths and their lower limits.
enum RunBin : std::size_t { kCouplet, kShort, kLong };
constexpr std::size_t kRunBins = 3;
constexpr std::array<std::size_t, kRunBins> kFewestBeats = {2, 3, 6};

// All runs of the class, single beats included, in order. Fibrillation between two beats separates
// runs.
std::vector<Run> RunsOf(const Beats& beats, Class type, const std::vector<Episode>& fibrillation);

// The number of runs of one side in each bin, and how many of them the other side has found.
struct RunCounts {
    std::array<std::int64_t, kRunBins> all{};
    std::array<std::int64_t, kRunBins> matched{};
};

// One side's beats and their runs of one class.
struct RunList {
    const Beats& beats;
    const std::vector<Run>& runs;
};

// Counts the runs of `side` that begin after the learning period. One is matched when `other` has,
// over its span widened by the window, as many consecutive beats as the bin's lower limit.
RunCounts CountRuns(const RunList& side, const RunList& other, Int128 window, Int128 learning);

} // namespace lab::score
