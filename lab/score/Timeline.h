#pragma once

#include "lab/score/Annotation.h"
#include "lab/score/Classes.h"

#include <cstddef>

namespace lab::score {

// The rules of a comparison. Exact seconds.
struct Rules {
    Rational learning = 300;       // beats at or before this time are ignored
    Rational window = {150, 1000}; // the greatest distance between the beats of a pair
    Rational offset = 0;           // added to test times
    Rational clockPpm = 0;         // the test's times are stretched by this many millionths
};

// One annotation on the axis that both sides share; its time is in ticks.
using Event = Annotation;

// The beats of one side that are compared, in order: a view of its events and of the numbers of
// those that are such beats.
class Beats {
  public:
    Beats(const std::vector<Event>& events, const std::vector<std::uint32_t>& numbers)
        : m_events(events), m_numbers(numbers) {}

    std::size_t Size() const { return m_numbers.size(); }
    Int128 Time(std::size_t beat) const { return m_events[m_numbers[beat]].time; } // ticks
    Class Type(std::size_t beat) const { return ClassOf(m_events[m_numbers[beat]].code); }

  private:
    const std::vector<Event>& m_events;
    const std::vector<std::uint32_t>& m_numbers;
};

// Both lists with every time a whole number of ticks, so that comparing is exact.
struct Timeline {
    std::vector<Event> reference;
    std::vector<Event> test;
    Int128 learning = 0;
    Int128 window = 0;
    Int128 ticksPerSecond = 1;

    double Seconds(Int128 ticks) const;
};

// Throws std::overflow_error when the times have no common tick of reasonable length.
Timeline MakeTimeline(AnnotationList reference, AnnotationList test, const Rules& rules);

} // namespace lab::score
