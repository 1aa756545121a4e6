#include "lab/score/Pairing.h"

namespace lab::score {
namespace {

Int128 Distance(Int128 one, Int128 other) {
    return one < other ? other - one : one - other;
}

// Whether the earlier beat, number `at` of its side, forms a pair with the other side's beat at
// `later`.
bool IsPair(const Beats& side, std::size_t at, Int128 later, Int128 window) {
    const Int128 distance = later - side.Time(at);
    const bool isNextNearer = at + 1 < side.Size() && Distance(side.Time(at + 1), later) < distance;
    return distance <= window && !isNextNearer;
}

} // namespace

std::vector<Pair> PairBeats(const Beats& reference, const Beats& test, Int128 window) {
    std::vector<Pair> pairs;
    pairs.reserve(reference.Size() + test.Size());
    std::uint32_t r = 0;
    std::uint32_t t = 0;
    while (r < reference.Size() && t < test.Size()) {
        const bool isReferenceFirst = reference.Time(r) <= test.Time(t);
        if (isReferenceFirst ? IsPair(reference, r, test.Time(t), window)
                             : IsPair(test, t, reference.Time(r), window)) {
            pairs.push_back({r++, t++});
        } else if (isReferenceFirst) {
            pairs.push_back({r++, kNone});
        } else {
            pairs.push_back({kNone, t++});
        }
    }
    for (; r < reference.Size(); ++r) {
        pairs.push_back({r, kNone});
    }
    for (; t < test.Size(); ++t) {
        pairs.push_back({kNone, t});
    }
    return pairs;
}

} // namespace lab::score
