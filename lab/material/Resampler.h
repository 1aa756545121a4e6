#pragma once

#include "lab/material/readers/Numbers.h"

#include <cstdint>
#include <memory>
#include <vector>

struct soxr;

namespace lab {

// Brings one signal to another rate, band-limited, with linear phase and its delay removed: the
// pass band is flat within 0.1 dB up to 0.4 of the lower rate, images and aliases lie below -80 dB.
// Beyond its ends the signal is assumed to continue point-symmetrically to its first and its last
// sample, without a step or a bend there.
class Resampler {
  public:
    Resampler(const Rate& from, const Rate& to);
    ~Resampler();
    Resampler(Resampler&&) noexcept;
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    // Appends to `out` all samples that `samples` and the earlier ones determine. None may be NaN.
    void Push(const std::vector<double>& samples, std::vector<double>& out);

    // Appends the rest.
    void Finish(std::vector<double>& out);

  private:
    void Start(std::vector<double>& out);
    void KeepEnd(const std::vector<double>& samples);
    void Feed(const std::vector<double>& samples, std::vector<double>& out);
    void Process(const double* samples, std::size_t count, std::vector<double>& out);

    struct Close {
        void operator()(soxr* stream) const;
    };

    std::unique_ptr<soxr, Close> m_stream;
    double m_ratio;         // output samples for each input sample
    std::size_t m_reach;    // samples beyond either end that influence the output
    std::size_t m_lead = 0; // samples fed before the first one
    int64_t m_skipped = 0;  // output samples that these produce, still to be dropped
    bool m_hasStarted = false;
    std::vector<double> m_begin; // of the signal, until it suffices to start
    std::vector<double> m_end;   // the latest samples
    double m_level = 0.0;        // of the first sample that the filter gets
    int64_t m_in = 0;
    int64_t m_out = 0;
    std::vector<double> m_shifted;
};

// The number of samples at the new rate for a number at the old one.
int64_t ResampledCount(int64_t samples, const Rate& from, const Rate& to);

// One period of a periodic signal, resampled to `count` samples.
std::vector<double> ResamplePeriod(const std::vector<double>& period, std::size_t count);

} // namespace lab
