#include "lab/score/Runs.h"

#include <algorithm>

namespace lab::score {
namespace {

// Tells, for pairs of beats asked about in order of time, whether an episode lies between them.
class Partings {
  public:
    explicit Partings(const std::vector<Episode>& episodes)
        : m_next(episodes.begin()), m_end(episodes.end()) {}

    bool Between(const Beat& before, const Beat& after) {
        while (m_next != m_end && m_next->begin < before.time) {
            ++m_next;
        }
        return m_next != m_end && m_next->begin < after.time;
    }

  private:
    std::vector<Episode>::const_iterator m_next;
    std::vector<Episode>::const_iterator m_end;
};

// How many beats of the run lie in the span, its ends included.
std::size_t BeatsInside(const std::vector<Beat>& beats, const Run& run, Int128 from, Int128 to) {
    const auto begin = beats.begin() + static_cast<std::ptrdiff_t>(run.first);
    const auto end = begin + static_cast<std::ptrdiff_t>(run.Length());
    const auto isBefore = [](const Beat& beat, Int128 time) { return beat.time < time; };
    const auto isAfter = [](Int128 time, const Beat& beat) { return time < beat.time; };
    const auto first = std::lower_bound(begin, end, from, isBefore);
    return static_cast<std::size_t>(std::upper_bound(first, end, to, isAfter) - first);
}

bool IsMatched(const RunList& other, Int128 from, Int128 to, std::size_t fewest) {
    const auto isBefore = [&](const Run& run, Int128 time) {
        return other.beats[run.last].time < time;
    };
    auto run = std::lower_bound(other.runs.begin(), other.runs.end(), from, isBefore);
    for (; run != other.runs.end() && other.beats[run->first].time <= to; ++run) {
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

std::vector<Run> RunsOf(const std::vector<Beat>& beats, Class type,
                        const std::vector<Episode>& fibrillation) {
    std::vector<Run> runs;
    Partings partings(fibrillation);
    for (std::size_t i = 0; i < beats.size(); ++i) {
        if (beats[i].type != type) {
            continue;
        }
        const bool goesOn =
            i > 0 && beats[i - 1].type == type && !partings.Between(beats[i - 1], beats[i]);
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
    for (const Run& run : side.runs) {
        const Int128 begin = side.beats[run.first].time;
        const Int128 end = side.beats[run.last].time;
        if (run.Length() < kFewestBeats[kCouplet] || begin <= learning) {
            continue;
        }
        const std::size_t bin = BinOf(run);
        counts.all[bin] += 1;
        counts.matched[bin] +=
            IsMatched(other, begin - window, end + window, kFewestBeats[bin]) ? 1 : 0;
    }
    return counts;
}

} // namespace lab::score
