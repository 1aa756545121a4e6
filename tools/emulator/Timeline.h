#pragma once

#include "lab/common/Mutex.h"
#include "tools/emulator/Settings.h"

#include <optional>
#include <vector>

// When each frame left the outputs.  Any thread may read it; the sample clock fills it.
namespace emulator {

// A sample clock that has not been disturbed: frame number `taken` leaves at `epoch` plus `taken`
// periods.  Counting avoids the drift of summed periods.
struct SampleClock {
    Clock::time_point epoch;
    double framesPerSecond = 0.0; // above 0

    // Rounded up, so that the frame is due after a wait until then.
    Clock::time_point TimeOf(std::uint64_t taken) const;
};

class Timeline {
  public:
    // When frame `frame` left, which is counted from 0 in order of arrival over all starts.
    // Nothing when it has not left yet, was dropped by a stop, or was played at speed 0, where no
    // clock runs.
    std::optional<Clock::time_point> FrameTime(std::uint64_t frame) const;

    // How many frames had left by that time, over all starts.
    std::uint64_t FramesLeftBy(Clock::time_point time) const;

    // Called by the sample clock: `count` frames from `frame` on have left, with its own numbers
    // from `taken` on.
    void Left(std::uint64_t frame, std::size_t count, const SampleClock& clock,
              std::uint64_t taken);

  private:
    struct Span {
        std::uint64_t frame;
        std::uint64_t count;
        std::uint64_t leftBefore; // frames that had left before this span
        std::uint64_t taken;
        SampleClock clock;
    };

    mutable lab::Mutex m_mutex;
    std::vector<Span> m_spans RAVO_GUARDED_BY(m_mutex); // by frame, and so by time
};

} // namespace emulator
