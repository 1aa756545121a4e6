#include "lab/score/Align.h"

#include "lab/score/AlignFit.h"
#include "lab/score/Classes.h"

#include <algorithm>
#include <cmath>

namespace lab::score {
namespace {

// When two lists count as alike: unrelated lists agree in well below half of their beats at their
// best place, and about equally at several places.
constexpr std::size_t kFewestPairs = 50;
constexpr double kLeastAgreement = 0.6;
constexpr double kLeastLead = 0.05; // over the next best place
constexpr double kLeadOfOnePair =
    1.5;                        // the same, times the root of the pairs: few may agree by chance
constexpr double kReach = 0.06; // seconds within which beats agree
constexpr double kLeastReach = 0.005;

constexpr double kMostBeatsPerSecond = 10.0; // of either list, on average

constexpr double kStepsPerSecond = 10'000.0;
constexpr double kStepsPerPpm = 100.0;
constexpr double kMillion = 1e6;

std::vector<double> BeatTimes(const AnnotationList& list) {
    const double unit = list.unit.ToDouble();
    std::vector<double> times;
    for (const Annotation& annotation : list.annotations) {
        if (ClassOf(annotation.code) < kBeatClasses) {
            times.push_back(static_cast<double>(annotation.time) * unit);
        }
    }
    return times;
}

bool IsOfBeats(const std::vector<double>& times) {
    return times.size() >= kFewestPairs && static_cast<double>(times.size()) <=
                                               kMostBeatsPerSecond * (times.back() - times.front());
}

Rational InSteps(double value, double stepsPerUnit) {
    return {std::llround(value * stepsPerUnit), std::llround(stepsPerUnit)};
}

// The best fit at a different place; a fit without pairs when there is none. A search that begins
// near the best place often converges to it.
Fit FitElsewhere(const std::vector<double>& references, const std::vector<double>& tests,
                 const Candidates& candidates, const Fit& best) {
    for (const Place& other : candidates.others) {
        const Fit fit = FitPlace(references, tests, other);
        if (fit.pairs > 0 && AreApart(fit.place, best.place, candidates.from, candidates.to)) {
            return fit;
        }
    }
    return {};
}

// The standard errors are those of a least-squares line, which are smallest at its centre.
Alignment Describe(const Fit& fit, const std::vector<double>& tests) {
    const double root = std::sqrt(static_cast<double>(fit.pairs));
    const double slopeError = fit.scatter / (root * fit.spread);
    const auto errorAt = [&](double time) {
        return std::hypot(fit.scatter / root, slopeError * (time - fit.place.centre));
    };
    Alignment alignment;
    alignment.offset = InSteps(fit.place.lag - fit.place.slope * fit.place.centre, kStepsPerSecond);
    alignment.clockPpm = InSteps(fit.place.slope * kMillion, kStepsPerPpm);
    alignment.offsetError = errorAt(0.0);
    alignment.placingError = std::max(errorAt(tests.front()), errorAt(tests.back()));
    alignment.clockError = slopeError * kMillion;
    alignment.pairs = fit.pairs;
    alignment.scatter = fit.scatter;
    return alignment;
}

} // namespace

std::optional<Alignment> Align(const AnnotationList& reference, const AnnotationList& test) {
    const std::vector<double> references = BeatTimes(reference);
    const std::vector<double> tests = BeatTimes(test);
    if (!IsOfBeats(references) || !IsOfBeats(tests)) {
        return std::nullopt;
    }
    const Candidates candidates = SearchPlaces(references, tests);
    const Fit best = FitPlace(references, tests, candidates.best);
    if (best.pairs < kFewestPairs || best.spread <= 0.0) {
        return std::nullopt;
    }
    const Fit next = FitElsewhere(references, tests, candidates, best);
    Alignment alignment = Describe(best, tests);
    const auto agreement = [&](const Fit& fit, double reach) {
        return fit.pairs > 0 ? AgreementWithin(references, tests, fit.place, reach) : 0.0;
    };
    alignment.agreement = agreement(best, kReach);
    alignment.nextBest = agreement(next, kReach);
    // Lists with little scatter are judged by the beats that agree closely.
    const double close = std::clamp(3.0 * best.scatter, kLeastReach, kReach);
    const double lead = agreement(best, close) - agreement(next, close);
    const double leastLead =
        std::max(kLeastLead, kLeadOfOnePair / std::sqrt(static_cast<double>(best.pairs)));
    const bool isSure = alignment.agreement >= kLeastAgreement && lead >= leastLead;
    return isSure ? std::optional(alignment) : std::nullopt;
}

} // namespace lab::score
