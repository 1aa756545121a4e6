#pragma once

#include "lab/serve/Framing.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>

namespace lab::serve {

using SharedText = std::shared_ptr<const std::string>;

// One client's connection: what has come of its request, and what waits to be sent to it.
class Connection {
  public:
    enum class Stage {
        kReading,   // the request is not whole yet
        kAnswering, // a handler is at it
        kWriting,   // the answer is on its way
        kViewing,   // events go to it until it leaves
        kDraining,  // answered; the client has still to read that before the socket closes
    };

    explicit Connection(int socket); // takes the socket over
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int Socket() const { return m_socket; }
    const std::string& LocalAddress() const { return m_localAddress; }
    Framing& Request() { return m_framing; }

    Stage Now() const { return m_stage; }
    void Enter(Stage stage);

    // Since the stage was entered or, of what is sent, since bytes last went out.
    std::chrono::steady_clock::duration Idle(std::chrono::steady_clock::time_point now) const {
        return now - m_since;
    }

    void Send(std::string text);

    void SendEvent(const SharedText& event);

    // A viewer that does not read has as much waiting as is kept for it.
    bool IsFull() const;

    // Bytes that wait to be sent.
    std::size_t Waiting() const { return m_waiting; }

    // Looks whether nothing of its machine has come for a while, not even that the last event has
    // arrived. To be called about five times a second.
    bool HasVanished();

    // Drops what waits, all but an event that is partly sent; a note of how much was skipped and
    // the state follow.
    void SkipToNow(const SharedText& state);

    bool HasOutput() const { return !m_output.empty(); }

    // Sends what the socket takes. False when the client is gone.
    bool Flush();

  private:
    void Append(SharedText text);

    int m_socket;
    std::string m_localAddress;
    Framing m_framing;
    Stage m_stage = Stage::kReading;
    std::chrono::steady_clock::time_point m_since;
    std::deque<SharedText> m_output;
    std::size_t m_sent = 0;    // bytes of the first
    std::size_t m_waiting = 0; // bytes of all that are not sent
    int m_silentLooks = 0;     // one after the other that saw nothing come
};

// "event: NAME\ndata: DATA\n\n"
SharedText EventText(const char* name, const std::string& data);

} // namespace lab::serve
