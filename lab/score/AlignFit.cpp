#include "lab/score/AlignFit.h"

#include <algorithm>
#include <cmath>

namespace lab::score {
namespace {

constexpr double kWideReach = 0.1; // in seconds, while the place is not yet exact
constexpr double kReach = 0.06;    // seconds
constexpr double kFirstHalf = 900.0;
constexpr int kRounds = 4; // iterations that settle the line at each width
constexpr std::size_t kFewestPairs = 10;

struct Agreement {
    double time; // time of the test's beat, before it is moved
    double lag;  // by which the reference's beat comes later
};

std::vector<double> Moved(const std::vector<double>& test, const Place& place) {
    std::vector<double> moved;
    moved.reserve(test.size());
    for (const double time : test) {
        moved.push_back(time + place.lag + place.slope * (time - place.centre));
    }
    return moved;
}

std::size_t Nearest(const std::vector<double>& times, double time) {
    const auto next = std::lower_bound(times.begin(), times.end(), time);
    const auto at = static_cast<std::size_t>(next - times.begin());
    const bool isBefore = next == times.end() || (at > 0 && time - times[at - 1] < *next - time);
    return isBefore ? at - 1 : at;
}

// Beats that are each other's nearest and within reach, for the test's beats between two times.
std::vector<Agreement> Agree(const std::vector<double>& reference, const std::vector<double>& test,
                             const std::vector<double>& moved, double reach, double from,
                             double to) {
    std::vector<Agreement> agreements;
    for (std::size_t i = 0; i < test.size(); ++i) {
        if (test[i] < from || test[i] > to) {
            continue;
        }
        const double beat = reference[Nearest(reference, moved[i])];
        if (std::fabs(beat - moved[i]) <= reach && Nearest(moved, beat) == i) {
            agreements.push_back({test[i], beat - test[i]});
        }
    }
    return agreements;
}

// The line of least squares through the lags; keeps the centre at the beats' mean time.
void FitLine(Fit& fit, const std::vector<Agreement>& agreements) {
    const auto count = static_cast<double>(agreements.size());
    double time = 0.0;
    double lag = 0.0;
    for (const Agreement& each : agreements) {
        time += each.time / count;
        lag += each.lag / count;
    }
    double squares = 0.0;
    double products = 0.0;
    for (const Agreement& each : agreements) {
        squares += (each.time - time) * (each.time - time);
        products += (each.time - time) * (each.lag - lag);
    }
    const double slope = squares > 0.0 ? products / squares : 0.0;
    double residues = 0.0;
    for (const Agreement& each : agreements) {
        const double residue = each.lag - lag - slope * (each.time - time);
        residues += residue * residue;
    }
    fit.place = {lag, slope, time};
    fit.pairs = agreements.size();
    fit.scatter = std::sqrt(residues / count);
    fit.spread = std::sqrt(squares / count);
}

double CountBetween(const std::vector<double>& times, double from, double to) {
    const auto first = std::lower_bound(times.begin(), times.end(), from);
    return static_cast<double>(std::upper_bound(first, times.end(), to) - first);
}

double ShareOf(std::size_t pairs, const std::vector<double>& reference,
               const std::vector<double>& moved) {
    const double from = std::max(reference.front(), moved.front()) - kReach;
    const double to = std::min(reference.back(), moved.back()) + kReach;
    const double beats =
        from < to ? CountBetween(reference, from, to) + CountBetween(moved, from, to) : 0.0;
    return beats > 0.0 ? 2.0 * static_cast<double>(pairs) / beats : 0.0;
}

} // namespace

Fit FitPlace(const std::vector<double>& reference, const std::vector<double>& test, Place place) {
    Fit fit;
    fit.place = place;
    const double centre = place.centre;
    const double furthest = std::max(test.back() - centre, centre - test.front());
    bool isWhole = false;
    for (double half = kFirstHalf; !isWhole; half *= 2.0) {
        isWhole = half >= furthest;
        for (int round = 0; round < kRounds; ++round) {
            const auto agreements =
                Agree(reference, test, Moved(test, fit.place), round == 0 ? kWideReach : kReach,
                      centre - half, centre + half);
            if (agreements.size() < kFewestPairs) {
                return {};
            }
            FitLine(fit, agreements);
        }
    }
    return fit;
}

double AgreementWithin(const std::vector<double>& reference, const std::vector<double>& test,
                       const Place& place, double reach) {
    const std::vector<double> moved = Moved(test, place);
    const auto agreements = Agree(reference, test, moved, reach, test.front(), test.back());
    return ShareOf(agreements.size(), reference, moved);
}

} // namespace lab::score
