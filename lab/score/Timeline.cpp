#include "lab/score/Timeline.h"

#include <utility>

namespace lab::score {
namespace {

constexpr int kMillion = 1'000'000;

// The times of a list are in order, so the first and the last show whether every product fits.
std::vector<Event> Place(AnnotationList list, Int128 ticksPerUnit, Int128 shift) {
    std::vector<Event> events = std::move(list.annotations);
    if (!events.empty()) {
        (void)Multiply(events.front().time, ticksPerUnit);
        (void)Multiply(events.back().time, ticksPerUnit);
    }
    for (Event& event : events) {
        event.time = event.time * ticksPerUnit + shift;
    }
    return events;
}

} // namespace

double Timeline::Seconds(Int128 ticks) const {
    return static_cast<double>(static_cast<long double>(ticks) /
                               static_cast<long double>(ticksPerSecond));
}

Timeline MakeTimeline(AnnotationList reference, AnnotationList test, const Rules& rules) {
    const Rational stretch = Rational(1) + rules.clockPpm * Rational(1, kMillion);
    const Rational testUnit = test.unit * stretch;
    Timeline timeline;
    for (const Rational& each :
         {reference.unit, testUnit, rules.offset, rules.learning, rules.window}) {
        timeline.ticksPerSecond = CommonMultiple(timeline.ticksPerSecond, each.Denominator());
    }
    const auto ticks = [&](const Rational& seconds) {
        return seconds.InUnitsOf(timeline.ticksPerSecond);
    };
    timeline.learning = ticks(rules.learning);
    timeline.window = ticks(rules.window);
    const Int128 ticksOfReference = ticks(reference.unit);
    timeline.reference = Place(std::move(reference), ticksOfReference, 0);
    timeline.test = Place(std::move(test), ticks(testUnit), ticks(rules.offset));
    return timeline;
}

} // namespace lab::score
