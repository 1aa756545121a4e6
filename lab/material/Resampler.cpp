#include "lab/material/Resampler.h"

#include "lab/common/Failure.h"

#include <cmath>
#include <soxr.h>

namespace lab {
namespace {

constexpr std::size_t kBlock = 16384;

// Together they exceed the filter's length at the lower of the two rates.
constexpr int kTailPieces = 128;
constexpr std::size_t kTailPiece = 16;

soxr_t Create(double from, double to) {
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, SOXR_LINEAR_PHASE);
    soxr_error_t error = nullptr;
    const soxr_t stream = soxr_create(from, to, 1, &error, &io, &quality, nullptr);
    if (error != nullptr || stream == nullptr) {
        Fail(kMaterial, Format("%g samples per second", from),
             Format("cannot be resampled to %g: %s.", to, error == nullptr ? "no memory" : error));
    }
    return stream;
}

} // namespace

void Resampler::Close::operator()(soxr* stream) const {
    soxr_delete(stream);
}

Resampler::Resampler(const Rate& from, const Rate& to)
    : m_stream(Create(from.PerSecond(), to.PerSecond())),
      m_ratio(to.PerSecond() / from.PerSecond()) {}

Resampler::~Resampler() = default;
Resampler::Resampler(Resampler&&) noexcept = default;

// The filter assumes that the signal is 0 before it begins, so it gets one that begins at 0.
void Resampler::Push(const std::vector<double>& samples, std::vector<double>& out) {
    if (samples.empty()) {
        return;
    }
    if (m_in == 0) {
        m_first = samples[0];
    }
    m_last = samples.back();
    m_shifted.resize(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        m_shifted[i] = samples[i] - m_first;
    }
    m_in += static_cast<int64_t>(samples.size());
    Process(m_shifted.data(), m_shifted.size(), out);
}

void Resampler::Finish(std::vector<double>& out) {
    const auto wanted = static_cast<int64_t>(std::llround(static_cast<double>(m_in) * m_ratio));
    const auto piece =
        static_cast<std::size_t>(static_cast<double>(kTailPiece) * std::max(1.0, 1.0 / m_ratio));
    const std::vector<double> end(piece, m_last - m_first);
    for (int i = 0; i < kTailPieces && m_in > 0 && m_out < wanted; ++i) {
        Process(end.data(), end.size(), out);
    }
    if (m_in > 0 && m_out < wanted) {
        Process(nullptr, 0, out);
    }
    const auto surplus = static_cast<std::size_t>(std::max<int64_t>(m_out - wanted, 0));
    out.resize(out.size() - std::min(surplus, out.size()));
    m_out = wanted;
}

// A null `samples` ends the signal.
void Resampler::Process(const double* samples, std::size_t count, std::vector<double>& out) {
    std::size_t done = 0;
    std::size_t made = 0;
    do {
        const std::size_t before = out.size();
        out.resize(before + kBlock);
        std::size_t taken = 0;
        const soxr_error_t error =
            soxr_process(m_stream.get(), samples == nullptr ? nullptr : samples + done,
                         count - done, &taken, out.data() + before, kBlock, &made);
        out.resize(before + made);
        if (error != nullptr) {
            Fail(kMaterial, "resampling", Format("failed: %s.", error));
        }
        for (std::size_t i = before; i < out.size(); ++i) {
            out[i] += m_first;
        }
        done += taken;
        m_out += static_cast<int64_t>(made);
    } while (done < count || made == kBlock);
}

int64_t ResampledCount(int64_t samples, const Rate& from, const Rate& to) {
    return std::llround(static_cast<double>(samples) * (to.PerSecond() / from.PerSecond()));
}

// The middle one of three periods has neighbours on both sides.
std::vector<double> ResamplePeriod(const std::vector<double>& period, std::size_t count) {
    if (period.size() == count || period.empty()) {
        return period;
    }
    Resampler resampler(MakeRate(static_cast<int64_t>(period.size()), 1),
                        MakeRate(static_cast<int64_t>(count), 1));
    std::vector<double> out;
    for (int i = 0; i < 3; ++i) {
        resampler.Push(period, out);
    }
    resampler.Finish(out);
    const auto begin = out.begin() + static_cast<std::ptrdiff_t>(count);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

} // namespace lab
