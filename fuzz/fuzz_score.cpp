// The comparison: every beat outside the reference's fibrillation is judged once, and with the
// sides swapped the pairs are the same.
#include "fuzz/Require.h"
#include "lab/score/Compare.h"

#include <cstdint>
#include <numeric>

using namespace lab::score;

namespace {

// Three bytes per annotation: its side and code, and the time since the previous one.
void TakeLists(const uint8_t* data, size_t size, AnnotationList& reference, AnnotationList& test) {
    for (size_t at = 0; at + 3 <= size; at += 3) {
        const bool isReference = (data[at] & 0x80) != 0;
        AnnotationList& list = isReference ? reference : test;
        const Int128 before = list.annotations.empty() ? Time() : list.annotations.back().time;
        const auto code = static_cast<std::uint8_t>(data[at] & 0x3F);
        const auto subtype = static_cast<std::int16_t>((data[at] & 0x40) != 0 ? -1 : 0);
        list.annotations.push_back(
            {before + data[at + 1] + 256 * (data[at + 2] & 3), code, subtype});
    }
}

std::int64_t Total(const Figures& figures) {
    std::int64_t total = 0;
    for (const auto& row : figures.matrix) {
        total = std::accumulate(row.begin(), row.end(), total);
    }
    return total;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    AnnotationList reference;
    AnnotationList test;
    reference.unit = Rational(1, 1 + data[0]);
    test.unit = Rational(1, 1 + data[1]);
    TakeLists(data + 2, size - 2, reference, test);
    Rules rules;
    rules.learning = Rational(-1);
    const Comparison comparison = Compare(reference, test, rules);
    const Figures& figures = comparison.figures;
    std::size_t beats = 0;
    for (const Judgement& judgement : comparison.judgements) {
        beats += (judgement.pair.reference != kNone ? 1U : 0U) +
                 (judgement.pair.test != kNone ? 1U : 0U);
    }
    Require(beats == comparison.reference.size() + comparison.test.size());
    Require(Total(figures) == static_cast<std::int64_t>(comparison.judgements.size()));
    Require(figures.fibrillationSeconds.detected <= figures.fibrillationSeconds.reference);
    Require(figures.fibrillationSeconds.matched <= figures.fibrillationSeconds.test);
    const auto back =
        PairBeats(comparison.TestBeats(), comparison.ReferenceBeats(), comparison.timeline.window);
    const auto forth =
        PairBeats(comparison.ReferenceBeats(), comparison.TestBeats(), comparison.timeline.window);
    std::size_t pairs = 0;
    for (const Pair& pair : forth) {
        pairs += pair.reference != kNone && pair.test != kNone ? 1U : 0U;
    }
    for (const Pair& pair : back) {
        pairs -= pair.reference != kNone && pair.test != kNone ? 1U : 0U;
    }
    Require(pairs == 0);
    return 0;
}
