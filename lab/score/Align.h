#pragma once

#include "lab/score/Annotation.h"

#include <cstddef>
#include <optional>

namespace lab::score {

// How the test's clock relates to the reference's, found from the two lists alone: the reference's
// time of a test's time t is t + t x clockPpm / 10^6 + offset.
struct Alignment {
    Rational offset;   // seconds, in steps of 0.1 ms
    Rational clockPpm; // in steps of 0.01 ppm

    // How certain the result is.
    double offsetError = 0.0;  // standard error in seconds, at the test's second 0
    double placingError = 0.0; // largest standard error at any of the test's beats, in seconds
    double clockError = 0.0;   // standard error in ppm
    std::size_t pairs = 0;     // beats that agree within 60 ms
    double agreement = 0.0;    // their share of all beats where the lists overlap
    double nextBest = 0.0;     // the share at the best different place
    double scatter = 0.0;      // root mean square distance of the pairs in seconds
};

// Finds offsets of up to an hour and clocks that differ by up to 500 ppm, with some margin. Nothing
// unless the lists match well enough at exactly one place.
std::optional<Alignment> Align(const AnnotationList& reference, const AnnotationList& test);

} // namespace lab::score
