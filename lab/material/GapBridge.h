#pragma once

#include "lab/material/Gap.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace lab {

// Bridges the missing samples of a signal that is to be resampled: a step at the edge of a gap
// would ring into the samples beside it. After resampling, the bridge is replaced by the
// substitute.
class GapBridge {
  public:
    // `ratio`: samples after resampling for one before it. The substitute is the last sample before
    // a gap when it `holds`, otherwise 0.
    GapBridge(double ratio, bool holds) : m_ratio(ratio), m_holds(holds) {}

    // Appends `samples` to `out` without NaN. Up to kLongest missing samples wait for the ones that
    // follow.
    void Bridge(const std::vector<double>& samples, std::vector<double>& out);

    // Appends the samples that still wait at the end of the signal.
    void Finish(std::vector<double>& out);

    // Puts substitutes into the resampled samples from place `begin` of `samples` on. Each call
    // continues where the previous one ended.
    void Substitute(std::vector<double>& samples, std::size_t begin);

    int64_t Missing() const { return m_missing; }                // before resampling
    const std::vector<Gap>& Gaps() const { return m_gaps; }      // after resampling, in order
    double Substitute() const { return m_holds ? m_last : 0.0; } // at the end

  private:
    // A ramp of this many samples has no edge that a filter's ringing would show.
    static constexpr int64_t kLongest = 4096;

    int64_t Resampled(int64_t sample) const;
    void Miss(std::vector<double>& out);
    void Reach(double sample, std::vector<double>& out);

    double m_ratio;
    bool m_holds;
    double m_last = 0.0; // the latest sample that is there
    int64_t m_taken = 0; // samples
    int64_t m_missing = 0;
    int64_t m_waiting = 0; // missing samples, up to now
    bool m_isInGap = false;
    bool m_hasBegun = false; // output has begun
    std::vector<Gap> m_gaps;
    std::vector<double> m_substitutes; // of each gap
    int64_t m_done = 0;                // resampled samples
    std::size_t m_gap = 0;             // the first gap that ends after them
};

} // namespace lab
