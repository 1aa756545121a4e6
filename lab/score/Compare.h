#pragma once

#include "lab/score/Figures.h"
#include "lab/score/Pairing.h"

namespace lab::score {

// What became of one pair, or of one beat without a counterpart.
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
    std::vector<Beat> reference; // those outside the reference's fibrillation
    std::vector<Beat> test;
    std::vector<Judgement> judgements; // in the order of pairing
    Figures figures;
};

// Throws std::overflow_error as MakeTimeline does.
Comparison Compare(AnnotationList reference, AnnotationList test, const Rules& rules);

} // namespace lab::score
