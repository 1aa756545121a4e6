#include "lab/score/Runs.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace lab::score {
namespace {

// Tells whether an episode lies between two beats; queries must be in order of time.
class Partings {
  public:
    explicit Partings(const std::vector<Episode>& episodes)
        : m_next(episodes.begin()), m_end(episodes.end()) {}

    bool Between(Int128 before, Int128 after) {
        while (m_next != m_end && m_next->begin < before) {
            ++m_next;
        }
        return m_next != m_end && m_next->begin < after;
    }

  private:
    std::vector<Episode>::const_iterator m_next;
    std::vector<Episode>::const_iterator m_end;
};

// The first number from `first` to `end` for which `holds` does not; it does for all before that.
template <typename Predicate>
std::size_t FirstWithout(std::size_t first, std::size_t end, Predicate holds) {
    while (first < end) {
        const std::size_t middle = first + (end - first) / 2;
        if (holds(middle)) {
            first = middle + 1;
        } else {
            end = middle;
        }
    }
    return first;
}

// How many beats of the run lie in the span, its ends included.
std::size_t BeatsInside(const Beats& beats, const Run& run, Int128 from, Int128 to) {
    const std::size_t end = run.last + 1;
    const std::size_t first =
        FirstWithout(run.first, end, [&](std::size_t beat) { return beats.Time(beat) < from; });
    return FirstWithout(first, end, [&](std::size_t beat) { return beats.Time(beat) <= to; }) -
           first;
}

// For each bin, the runs that are long enough to match a run of that bin.
using LongEnough = std::array<std::vector<Run>, kRunBins>;

LongEnough RunsByBin(const std::vector<Run>& runs) {
    LongEnough all;
    for (std::size_t bin = 0; bin < kRunBins; ++bin) {
        std::copy_if(runs.begin(), runs.end(), std::back_inserter(all[bin]),
                     [&](const Run& run) { return run.Length() >= kFewestBeats[bin]; });
    }
    return all;
}

// Every run of `other` has at least that many beats. Only the two that cross an end of the span may
// have fewer within it, so the search is short however many runs there are.
bool IsMatched(const RunList& other, Int128 from, Int128 to, std::size_t fewest) {
    const auto isBefore = [&](const Run& run, Int128 time) {
        return other.beats.Time(run.last) < time;
    };
    auto run = std::lower_bound(other.runs.begin(), other.runs.end(), from, isBefore);
    for (; run != other.runs.end() && other.beats.Time(run->first) <= to; ++run) {
        if (BeatsInside(other.beats, *run, from, to) >= fewest) {
            return true;
        }
    }
    return false;
}

std::size_t BinOf(const Run& run) {
    return run.Length() >= kFewestBeats[kLong]    ? kLong
           : run.Length() >= kFewestBeats[kShort] ? kShort
                                                  : kCouplet;
}

} // namespace

std::vector<Run> RunsOf(const Beats& beats, Class type, const std::vector<Episode>& fibrillation) {
    std::vector<Run> runs;
    Partings partings(fibrillation);
    for (std::size_t i = 0; i < beats.Size(); ++i) {
        if (beats.Type(i) != type) {
            continue;
        }
        const bool goesOn = i > 0 && beats.Type(i - 1) == type &&
                            !partings.Between(beats.Time(i - 1), beats.Time(i));
        if (goesOn) {
            runs.back().last = i;
        } else {
            runs.push_back({i, i});
        }
    }
    return runs;
}

RunCounts CountRuns(const RunList& side, const RunList& other, Int128 window, Int128 learning) {
    RunCounts counts;
    const LongEnough others = RunsByBin(other.runs);
    for (const Run& run : side.runs) {
        const Int128 begin = side.beats.Time(run.first);
        const Int128 end = side.beats.Time(run.last);
        if (run.Length() < kFewestBeats[kCouplet] || begin <= learning) {
            continue;
        }
        const std::size_t bin = BinOf(run);
        counts.all[bin] += 1;
        counts.matched[bin] +=
            IsMatched({other.beats, others[bin]}, begin - window, end + window, kFewestBeats[bin])
                ? 1
                : 0;
    }
    return counts;
}

} // namespace lab::score
