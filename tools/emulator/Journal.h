#pragma once

#include "lab/common/Mutex.h"
#include "tools/emulator/Commands.h"
#include "tools/emulator/Settings.h"
#include "tools/emulator/Timeline.h"

#include <functional>
#include <map>
#include <vector>

// The simulator's history since its construction.  Everything here may be called from any thread.
namespace emulator {

struct Counters {
    std::uint64_t bytes = 0;        // taken from the line
    std::uint64_t unknownBytes = 0; // of these, the bytes that are part of no command
    std::uint64_t frames = 0;
    std::uint64_t packets = 0;
    std::uint64_t sequenceGaps = 0;
    std::uint64_t markers = 0;          // 'E' at byte 322 of a buffer
    std::uint64_t strayHeaderBytes = 0; // any other non-zero byte at offset 2 or 3 of a packet
    std::uint64_t packetsOutsidePlay = 0;
    std::uint64_t unaskedPackets = 0; // in excess of the first buffer and those requested
    std::uint64_t requests = 0;       // 'N' records
    std::uint64_t underruns = 0;
    std::uint64_t delayReports = 0; // 'X' records
    std::uint64_t delayMs = 0;      // their sum
    std::uint64_t statusRecords = 0;
    std::uint64_t starts = 0;
    std::uint64_t stops = 0;
    std::uint64_t closes = 0;
    std::uint64_t droppedFrames = 0; // still held when the host stopped
    std::uint64_t hostOpenings = 0;
    std::uint64_t hostClosings = 0;
    double playedSeconds = 0.0; // from each start to its stop
};

struct SeenStart {
    std::uint16_t reload = 0;
    std::uint8_t range = 0;
    double rate = 0.0; // frames per second by the unit's own sample clock
    std::size_t firstFrame = 0;
};

struct SeenCommand {
    Command command = Command::kUnknown;
    Bytes bytes;
};

class Journal {
  public:
    explicit Journal(const Settings& settings);

    Counters Count() const;
    // The frames kept, in order of arrival over all starts.
    std::vector<Codes> Frames() const;
    std::vector<SeenStart> Starts() const;
    // All commands except packets, limited to the first 10,000.
    std::vector<SeenCommand> Commands() const;
    std::uint64_t CountOf(Command command) const;
    std::vector<Codes> StaticValues() const;
    Bytes ReceivedBytes() const;
    // The time from each request to the last byte of its answering buffer.
    std::vector<std::chrono::microseconds> AnswerTimes() const;

    // When each frame left, as far as the simulator has looked at its clock; the functions of these
    // names in Simulator make it look first.
    std::optional<Clock::time_point> FrameTime(std::uint64_t frame) const {
        return m_timeline.FrameTime(frame);
    }
    std::uint64_t FramesLeftBy(Clock::time_point time) const {
        return m_timeline.FramesLeftBy(time);
    }

    // These wait until the condition holds, and return whether it did within the time.
    bool WaitFor(const std::function<bool(const Counters&)>& condition, Milliseconds timeout) const;
    bool WaitForFrames(std::uint64_t frames, Milliseconds timeout) const;
    bool WaitForStarts(std::uint64_t starts, Milliseconds timeout) const;
    bool WaitForStops(std::uint64_t stops, Milliseconds timeout) const;
    bool WaitForCommand(Command command, std::uint64_t times, Milliseconds timeout) const;

    // For the simulator's own use.
    void Update(const std::function<void(Counters&)>& change);
    void AddBytes(const std::uint8_t* bytes, std::size_t count);
    void AddFrames(const std::vector<Codes>& frames);
    void AddStart(SeenStart start);
    void AddCommand(Command command, const std::uint8_t* bytes, std::size_t length);
    void AddStaticValue(const Codes& codes);
    void AddAnswerTime(Clock::duration time);
    Timeline& FrameTimes() { return m_timeline; }

  private:
    // Waits until `isMet` holds; it is given the counters and how often each command was received.
    template <typename IsMet>
    bool WaitUntil(const IsMet& isMet, Milliseconds timeout) const;

    const std::size_t m_keepFrames;
    const bool m_keepBytes;

    mutable lab::Mutex m_mutex;
    mutable lab::Condition m_changed;
    Counters m_counters RAVO_GUARDED_BY(m_mutex);
    std::vector<Codes> m_frames RAVO_GUARDED_BY(m_mutex);
    std::vector<SeenStart> m_starts RAVO_GUARDED_BY(m_mutex);
    std::vector<SeenCommand> m_commands RAVO_GUARDED_BY(m_mutex);
    std::map<Command, std::uint64_t> m_countOf RAVO_GUARDED_BY(m_mutex);
    std::vector<Codes> m_staticValues RAVO_GUARDED_BY(m_mutex);
    Bytes m_bytes RAVO_GUARDED_BY(m_mutex);
    std::vector<std::chrono::microseconds> m_answerTimes RAVO_GUARDED_BY(m_mutex);
    Timeline m_timeline;
};

} // namespace emulator
