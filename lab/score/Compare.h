#pragma once

#include "lab/score/Figures.h"
#include "lab/score/Pairing.h"

namespace lab::score {

// The outcome of one pair, or of one beat without a counterpart.
struct Judgement {
    Pair pair;
    Class row = kMissing;    // the reference's
    Class column = kMissing; // the test's
    bool isCounted = false;  // false up to the end of the learning period

    bool IsDisagreement() const { return isCounted && row != column; }
};

// One record's two lists compared.
struct Comparison {
    Timeline timeline;
    std::vector<std::uint32_t> reference; // the numbers of the beats outside its fibrillation
    std::vector<std::uint32_t> test;      // likewise, outside the reference's fibrillation
    std::vector<Judgement> judgements;    // in the order of pairing
    Figures figures;

    Beats ReferenceBeats() const { return {timeline.reference, reference}; }
    Beats TestBeats() const { return {timeline.test, test}; }
};

// Throws std::overflow_error as MakeTimeline does.
Comparison Compare(AnnotationList reference, AnnotationList test, const Rules& rules);

} // namespace lab::score
