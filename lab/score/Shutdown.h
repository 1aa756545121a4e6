#pragma once

#include "lab/score/Timeline.h"

namespace lab::score {

// The intervals in which one side reported no beats: from a noise annotation of subtype -1 up to,
// but not including, the next noise annotation, or to the end.
class Shutdowns {
  public:
    explicit Shutdowns(const std::vector<Event>& events);
    bool Contain(Int128 time) const;

  private:
    struct Change {
        Int128 time;
        bool isShutDown;
    };
    std::vector<Change> m_changes; // in order of time
};

} // namespace lab::score
