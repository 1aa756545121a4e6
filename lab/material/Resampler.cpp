#include "lab/material/Resampler.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <cmath>
#include <soxr.h>

namespace lab {
namespace {

constexpr std::size_t kBlock = 16384;

// More than half of the filter's length, at the lower of the two rates.
constexpr double kReach = 256.0;
constexpr double kLongestReach = 65536.0;

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

// The samples before the first one must resample to a whole number of samples; otherwise the signal
// would be delayed by a fraction of one. 0 where that takes too many of them.
std::size_t LeadOf(std::size_t reach, const Rate& from, const Rate& to) {
    constexpr double kMost = 4e6;
    const Rate back = MakeRate(to.numerator, 1) * from.denominator;
    const Rate ratio = MakeRate(back.numerator, from.numerator);
    const double most = kMost / std::max(1.0, to.PerSecond() / from.PerSecond());
    const auto step = static_cast<double>(ratio.denominator);
    const double lead = std::ceil(static_cast<double>(reach) / step) * step;
    return to.IsWhole() && lead <= most ? static_cast<std::size_t>(lead) : 0;
}

// The continuation after `end`, point-symmetric to the last sample.
std::vector<double> Reflected(const std::vector<double>& end) {
    std::vector<double> reflected;
    for (std::size_t i = 1; i < end.size(); ++i) {
        reflected.push_back(2.0 * end.back() - end[end.size() - 1 - i]);
    }
    return reflected;
}

} // namespace

void Resampler::Close::operator()(soxr* stream) const {
    soxr_delete(stream);
}

Resampler::Resampler(const Rate& from, const Rate& to)
    : m_stream(Create(from.PerSecond(), to.PerSecond())),
      m_ratio(to.PerSecond() / from.PerSecond()),
      m_reach(static_cast<std::size_t>(
          std::min(std::ceil(kReach * std::max(1.0, 1.0 / m_ratio)), kLongestReach))),
      m_lead(LeadOf(m_reach, from, to)),
      m_skipped(std::llround(static_cast<double>(m_lead) * m_ratio)) {}

Resampler::~Resampler() = default;
Resampler::Resampler(Resampler&&) noexcept = default;

void Resampler::Push(const std::vector<double>& samples, std::vector<double>& out) {
    m_in += static_cast<int64_t>(samples.size());
    KeepEnd(samples);
    if (m_hasStarted) {
        Feed(samples, out);
        return;
    }
    m_begin.insert(m_begin.end(), samples.begin(), samples.end());
    if (m_begin.size() > m_reach) {
        Start(out);
    }
}

// The filter assumes that the signal is 0 before it begins, so it gets one that begins at 0.
void Resampler::Start(std::vector<double>& out) {
    m_hasStarted = true;
    std::vector<double> before;
    if (m_lead > 0) {
        const std::size_t count = std::min(m_begin.size(), m_reach + 1);
        before = Reflected({m_begin.rend() - static_cast<std::ptrdiff_t>(count), m_begin.rend()});
        std::reverse(before.begin(), before.end());
        before.insert(before.begin(), m_lead - before.size(),
                      before.empty() ? m_begin[0] : before[0]);
    }
    m_level = before.empty() ? m_begin[0] : before[0];
    Feed(before, out);
    Feed(m_begin, out);
    m_begin = {};
}

void Resampler::KeepEnd(const std::vector<double>& samples) {
    m_end.insert(m_end.end(), samples.begin(), samples.end());
    const std::size_t surplus = m_end.size() - std::min(m_end.size(), m_reach + 1);
    m_end.erase(m_end.begin(), m_end.begin() + static_cast<std::ptrdiff_t>(surplus));
}

void Resampler::Feed(const std::vector<double>& samples, std::vector<double>& out) {
    m_shifted.resize(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        m_shifted[i] = samples[i] - m_level;
    }
    if (!m_shifted.empty()) {
        Process(m_shifted.data(), m_shifted.size(), out);
    }
}

void Resampler::Finish(std::vector<double>& out) {
    if (m_in == 0) {
        return;
    }
    if (!m_hasStarted) {
        Start(out);
    }
    const auto wanted = static_cast<int64_t>(std::llround(static_cast<double>(m_in) * m_ratio));
    const std::vector<double> after = Reflected(m_end);
    Feed(after, out);
    const auto piece =
        static_cast<std::size_t>(static_cast<double>(kTailPiece) * std::max(1.0, 1.0 / m_ratio));
    const std::vector<double> level(piece, after.empty() ? m_end.back() : after.back());
    for (int i = 0; i < kTailPieces && m_out < wanted; ++i) {
        Feed(level, out);
    }
    if (m_out < wanted) {
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
            out[i] += m_level;
        }
        const auto skipped = std::min(m_skipped, static_cast<int64_t>(made));
        out.erase(out.begin() + static_cast<std::ptrdiff_t>(before),
                  out.begin() + static_cast<std::ptrdiff_t>(before) + skipped);
        m_skipped -= skipped;
        done += taken;
        m_out += static_cast<int64_t>(made) - skipped;
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
