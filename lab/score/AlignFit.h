#pragma once

#include "lab/score/AlignSearch.h"

#include <cstddef>

namespace lab::score {

// A place refined by the beats that agree there.
struct Fit {
    Place place;
    std::size_t pairs = 0;
    double scatter = 0.0; // seconds, root mean square
    double spread = 0.0;  // seconds, root mean square distance of the pairs from the centre
};

// Follows the beats from the place outwards to both ends of the lists.
Fit FitPlace(const std::vector<double>& reference, const std::vector<double>& test, Place place);

// The share of all beats, where the lists overlap, that agree within `reach` seconds at the place.
double AgreementWithin(const std::vector<double>& reference, const std::vector<double>& test,
                       const Place& place, double reach);

} // namespace lab::score
