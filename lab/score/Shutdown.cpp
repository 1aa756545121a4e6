#include "lab/score/Shutdown.h"

#include "lab/score/Codes.h"

#include <algorithm>

namespace lab::score {

Shutdowns::Shutdowns(const std::vector<Event>& events) {
    for (const Event& event : events) {
        if (event.code == kNoise) {
            m_changes.push_back({event.time, event.subtype == -1});
        }
    }
}

// The last change at or before the time holds.
bool Shutdowns::Contain(Int128 time) const {
    const auto next =
        std::upper_bound(m_changes.begin(), m_changes.end(), time,
                         [](Int128 value, const Change& change) { return value < change.time; });
    return next != m_changes.begin() && std::prev(next)->isShutDown;
}

} // namespace lab::score
