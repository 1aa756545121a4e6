#pragma once

#include "tools/emulator/Settings.h"

#include <map>
#include <optional>

// The data that the simulator has to send, each piece with the earliest time at which it may be
// sent.
namespace emulator {

class Outbox {
  public:
    // A record of the stream.
    void Send(Bytes bytes, Clock::time_point now);

    // A reply to a command, corrupted by the current fault.
    void Reply(Bytes bytes, ReplyFault& fault, Clock::time_point now);

    // The next piece that may be sent at `now`, or null.
    const Bytes* Due(Clock::time_point now) const;
    // Records that the first `count` bytes of the piece that is due have been sent.
    void Said(std::size_t count);

    std::optional<Clock::time_point> NextDue() const;
    void Clear() { m_pieces.clear(); }

  private:
    std::multimap<Clock::time_point, Bytes> m_pieces;
};

} // namespace emulator
