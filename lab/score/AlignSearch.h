#pragma once

#include <vector>

namespace lab::score {

// Where the test's beats may belong: the test's time t is the reference's t + lag + slope x (t -
// centre).
struct Place {
    double lag = 0.0;   // seconds
    double slope = 0.0; // seconds a second
    double centre = 0.0;
};

// The place at which most beats of half an hour around the middle of the test lie near one of the
// reference's, and the best ones that lie elsewhere, in order.
struct Candidates {
    Place best;
    std::vector<Place> others;
    double from = 0.0; // the test's half hour
    double to = 0.0;
};

// Whether two places are different ones: nowhere between the two times within 0.2 s of each other.
// Where lines cross, beats agree with both.
bool AreApart(const Place& one, const Place& other, double from, double to);

// Times in seconds, in order, at least one in each list.
Candidates SearchPlaces(const std::vector<double>& reference, const std::vector<double>& test);

} // namespace lab::score
