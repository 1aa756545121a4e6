#pragma once

#include "lab/score/Rational.h"

#include <cstdint>
#include <vector>

namespace lab::score {

struct Annotation {
    Int128 time = 0; // in units of its list
    std::uint8_t code = 0;
    std::int16_t subtype = 0; // signed, from its low byte
};

// The annotations of one file in order of time; those of equal times keep the file's order.
struct AnnotationList {
    std::vector<Annotation> annotations;
    Rational unit = 1; // seconds
};

// Sorts by time where the file is not in order.
void PutInOrder(AnnotationList& list);

} // namespace lab::score
