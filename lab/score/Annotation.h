#pragma once

#include "lab/score/Rational.h"

#include <cstdint>
#include <vector>

namespace lab::score {

// A time as stored: an Int128 in two halves, since its alignment would make a list one third
// larger.
class Time {
  public:
    Time(Int128 value = 0)
        : m_low(static_cast<std::uint64_t>(value)), m_high(static_cast<std::int64_t>(value >> 64)) {
    }
    operator Int128() const {
        constexpr Int128 kTwoTo64 = static_cast<Int128>(1) << 64;
        return m_high * kTwoTo64 + m_low; // not by a shift, because it may be negative
    }

  private:
    std::uint64_t m_low;
    std::int64_t m_high;
};

struct Annotation {
    Time time; // in the time units of its list
    std::uint8_t code = 0;
    std::int16_t subtype = 0; // signed, taken from its low byte
};

// The annotations of one file in order of time; those of equal times keep the file's order.
struct AnnotationList {
    std::vector<Annotation> annotations;
    Rational unit = 1; // seconds
};

// Sorts by time where the file is not in order.
void PutInOrder(AnnotationList& list);

} // namespace lab::score
