#pragma once

#include "lab/material/readers/SourceRecord.h"

#include <cstdint>
#include <vector>

namespace lab {

// The scale of a signal written in 16 bits: sample = value * gain + baseline.
struct Scale {
    double gain = 1000.0; // per unit of the values
    int32_t baseline = 0;
};

// Finds the scale of a signal before it is written.
class Survey {
  public:
    explicit Survey(const SourceSignal& signal) : m_signal(signal) {}

    void Look(const std::vector<double>& samples);
    int64_t Missing() const { return m_missing; }

    // The source's own whole numbers where they fit without the lowest, which marks a missing
    // sample; otherwise 16 bits over the signal's range.
    Scale Choose() const;

  private:
    SourceSignal m_signal;
    double m_least = 0.0;
    double m_most = 0.0;
    int64_t m_there = 0;
    int64_t m_missing = 0;
    bool m_isWhole = true; // in the source's numbers
};

} // namespace lab
