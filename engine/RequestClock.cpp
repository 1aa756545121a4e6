#include "engine/RequestClock.h"

#include <algorithm>

namespace {

constexpr int64_t kShortestStretch = 2000000000; // nanoseconds
constexpr int64_t kFewestIntervals = 4;

} // namespace

void RequestClock::Reset() {
    *this = RequestClock();
}

void RequestClock::AddRequest(int64_t time) {
    if (!m_isOnBeat) {
        m_isOnBeat = true;
        return;
    }
    if (m_requests == 0) {
        m_origin = time;
    }
    const Read read{m_requests++, time - m_origin};
    const auto isAboveLineToRead = [&read](const Read& before, const Read& corner) {
        return static_cast<double>(corner.time - before.time) *
                   static_cast<double>(read.request - before.request) >=
               static_cast<double>(read.time - before.time) *
                   static_cast<double>(corner.request - before.request);
    };
    while (m_corners >= 2 && isAboveLineToRead(m_hull[m_corners - 2], m_hull[m_corners - 1])) {
        --m_corners;
    }
    if (m_corners == kCapacity) {
        Thin();
    }
    m_hull[m_corners++] = read;
}

// Drops every second corner; the first one stays.
void RequestClock::Thin() {
    for (size_t i = 1; 2 * i < m_corners; ++i) {
        m_hull[i] = m_hull[2 * i];
    }
    m_corners = (m_corners + 1) / 2;
}

void RequestClock::Pause() {
    const Estimate stretch = EstimateStretch();
    m_sum += stretch.period * stretch.weight;
    m_weight += stretch.weight;
    m_corners = 0;
    m_requests = 0;
    m_isOnBeat = false;
}

double RequestClock::Period() const {
    const Estimate stretch = EstimateStretch();
    const double weight = m_weight + stretch.weight;
    return weight > 0.0 ? (m_sum + stretch.period * stretch.weight) / weight : 0.0;
}

// The edge over the middle of the stretch is the line closest to all reads together.  Its error
// falls with the square of the stretch's length: it spans more requests, and its ends are the
// earliest of more reads.
RequestClock::Estimate RequestClock::EstimateStretch() const {
    if (m_corners < 2) {
        return {};
    }
    const Read& last = m_hull[m_corners - 1];
    if (last.request < kFewestIntervals || last.time < kShortestStretch) {
        return {};
    }
    const Read* const end = m_hull.data() + m_corners;
    const Read* const after = std::find_if(m_hull.data() + 1, end, [&last](const Read& corner) {
        return 2 * corner.request > last.request;
    });
    const Read* const before = after - 1;
    const auto length = static_cast<double>(last.request);
    return {static_cast<double>(after->time - before->time) /
                static_cast<double>(after->request - before->request),
            length * length * length * length};
}
