#include "tools/emulator/Timeline.h"

#include <algorithm>
#include <iterator>

namespace emulator {
namespace {

constexpr double kForEver = 1e9; // seconds, still within the clock's range
constexpr std::size_t kKeepSpans = 1'000'000;

} // namespace

Clock::time_point SampleClock::TimeOf(std::uint64_t taken) const {
    const std::chrono::duration<double> sinceEpoch(
        std::min(static_cast<double>(taken) / framesPerSecond, kForEver));
    return epoch + std::chrono::ceil<Clock::duration>(sinceEpoch);
}

std::optional<Clock::time_point> Timeline::FrameTime(std::uint64_t frame) const {
    const lab::MutexGuard lock(m_mutex);
    const auto next = std::upper_bound(
        m_spans.begin(), m_spans.end(), frame,
        [](std::uint64_t wanted, const Span& span) { return wanted < span.frame; });
    if (next == m_spans.begin()) {
        return std::nullopt;
    }
    const Span& span = *std::prev(next);
    const std::uint64_t within = frame - span.frame;
    return within < span.count ? std::optional(span.clock.TimeOf(span.taken + within))
                               : std::nullopt;
}

std::uint64_t Timeline::FramesLeftBy(Clock::time_point time) const {
    const lab::MutexGuard lock(m_mutex);
    const auto next = std::upper_bound(m_spans.begin(), m_spans.end(), time,
                                       [](Clock::time_point wanted, const Span& span) {
                                           return wanted < span.clock.TimeOf(span.taken);
                                       });
    if (next == m_spans.begin()) {
        return 0;
    }
    const Span& span = *std::prev(next);
    std::uint64_t from = 0;
    std::uint64_t to = span.count; // frames before `from` had left, those from `to` on had not
    while (from < to) {
        const std::uint64_t middle = from + (to - from) / 2;
        if (span.clock.TimeOf(span.taken + middle) <= time) {
            from = middle + 1;
        } else {
            to = middle;
        }
    }
    return span.leftBefore + from;
}

void Timeline::Left(std::uint64_t frame, std::size_t count, const SampleClock& clock,
                    std::uint64_t taken) {
    const lab::MutexGuard lock(m_mutex);
    if (!m_spans.empty()) {
        Span& last = m_spans.back();
        const bool continues = last.clock.epoch == clock.epoch &&
                               last.clock.framesPerSecond == clock.framesPerSecond &&
                               last.frame + last.count == frame && last.taken + last.count == taken;
        if (continues) {
            last.count += count;
            return;
        }
    }
    if (m_spans.size() < kKeepSpans) {
        const std::uint64_t before =
            m_spans.empty() ? 0 : m_spans.back().leftBefore + m_spans.back().count;
        m_spans.push_back({frame, count, before, taken, clock});
    }
}

} // namespace emulator
