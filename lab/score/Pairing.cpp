#include "lab/score/Pairing.h"

namespace lab::score {
namespace {

Int128 Distance(Int128 one, Int128 other) {
    return one < other ? other - one : one - other;
}

// Whether the earlier beat, number `at` of its side, is a pair with the other side's beat at
// `later`.
bool IsPair(const std::vector<Beat>& side, std::size_t at, Int128 later, Int128 window) {
    const Int128 distance = later - side[at].time;
    const bool isNextNearer = at + 1 < side.size() && Distance(side[at + 1].time, later) < distance;
    return distance <= window && !isNextNearer;
}

} // namespace

std::vector<Pair> PairBeats(const std::vector<Beat>& reference, const std::vector<Beat>& test,
                            Int128 window) {
    std::vector<Pair> pairs;
    pairs.reserve(reference.size() + test.size());
    std::uint32_t r = 0;
    std::uint32_t t = 0;
    while (r < reference.size() && t < test.size()) {
        const bool isReferenceFirst = reference[r].time <= test[t].time;
        if (isReferenceFirst ? IsPair(reference, r, test[t].time, window)
                             : IsPair(test, t, reference[r].time, window)) {
            pairs.push_back({r++, t++});
        } else if (isReferenceFirst) {
            pairs.push_back({r++, kNone});
        } else {
            pairs.push_back({kNone, t++});
        }
    }
    for (; r < reference.size(); ++r) {
        pairs.push_back({r, kNone});
    }
    for (; t < test.size(); ++t) {
        pairs.push_back({kNone, t});
    }
    return pairs;
}

} // namespace lab::score
