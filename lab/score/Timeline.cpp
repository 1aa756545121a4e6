#include "lab/score/Timeline.h"

#include <algorithm>

namespace lab::score {
namespace {

constexpr int kMillion = 1'000'000;

// The times of a list are in order, so its ends show whether every product fits.
std::vector<Event> Place(const AnnotationList& list, Int128 ticksPerUnit, Int128 shift) {
    std::vector<Event> events;
    if (list.annotations.empty()) {
        return events;
    }
    (void)Multiply(list.annotations.front().time, ticksPerUnit);
    (void)Multiply(list.annotations.back().time, ticksPerUnit);
    events.reserve(list.annotations.size());
    for (const Annotation& annotation : list.annotations) {
        events.push_back(
            {annotation.time * ticksPerUnit + shift, annotation.code, annotation.subtype});
    }
    return events;
}

} // namespace

double Timeline::Seconds(Int128 ticks) const {
    return static_cast<double>(static_cast<long double>(ticks) /
                               static_cast<long double>(ticksPerSecond));
}

Timeline MakeTimeline(const AnnotationList& reference, const AnnotationList& test,
                      const Rules& rules) {
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
    timeline.reference = Place(reference, ticks(reference.unit), 0);
    timeline.test = Place(test, ticks(testUnit), ticks(rules.offset));
    return timeline;
}

std::vector<Beat> BeatsOf(const std::vector<Event>& events) {
    std::vector<Beat> beats;
    beats.reserve(events.size());
    for (const Event& event : events) {
        const Class type = ClassOf(event.code);
        if (type < kBeatClasses) {
            beats.push_back({event.time, type});
        }
    }
    return beats;
}

} // namespace lab::score
