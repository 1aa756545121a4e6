#pragma once

#include "tools/emulator/Settings.h"
#include "tools/emulator/Timeline.h"

#include <optional>

// The frames that the simulator holds, and the sample clock that takes them out.
namespace emulator {

// The rate that the 16-bit timer gives, which counts at 6 MHz from the reload value upwards and
// needs some counts more to be reloaded.
double ClockRate(std::uint16_t reload, Unit unit);

class Playout {
  public:
    // framesPerSecond in real time; 0 takes every frame at once.  The timeline, which may be null,
    // records when each frame leaves, the first one as number firstFrame.
    Playout(double framesPerSecond, std::size_t framesPerPacket, std::size_t capacityPackets,
            Timeline* timeline = nullptr, std::uint64_t firstFrame = 0);

    // The speed may change while frames are held.
    void SetRate(double framesPerSecond, Clock::time_point now);

    // Postpones all frames still to come by `time`.
    void PutOff(Clock::duration time);

    std::size_t RoomPackets() const;
    std::size_t HeldFrames() const { return m_held; }
    bool IsDry() const { return m_isDry; }

    // One packet has arrived.  The clock starts with the first whole buffer.  Returns how long the
    // outputs had to hold their value before that, if they had run dry.
    std::optional<Clock::duration> Add(Clock::time_point now);

    // Removes the frames that are due.
    void Advance(Clock::time_point now);

    // To be called when the line is empty: an output that has no frame although one is due has run
    // dry.  Returns whether that has just happened. (Frames on the line that were not fetched in
    // time are the emulator's own delay and not an underrun.)
    bool NoticeDry(Clock::time_point now);

    // When there will be room for one more buffer, and when the last frame held will be overdue;
    // nothing when this is already the case or the clock is stopped.
    std::optional<Clock::time_point> WhenRoomForBuffer() const;
    std::optional<Clock::time_point> WhenDry() const;

  private:
    void Take(std::size_t frames);
    Clock::time_point DueTime(std::size_t framesAhead) const;

    // Frame number m_taken since its epoch is the next.
    SampleClock m_clock;
    std::size_t m_framesPerPacket;
    std::size_t m_capacityPackets;
    Timeline* m_timeline;
    std::uint64_t m_nextFrame;
    std::size_t m_held = 0;
    bool m_isRunning = false;
    bool m_isDry = false;
    std::uint64_t m_taken = 0;
};

} // namespace emulator
