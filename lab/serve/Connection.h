#pragma once

#include "lab/serve/Framing.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>

namespace lab::serve {

using SharedText = std::shared_ptr<const std::string>;

// One client's connection: what has been received of its request, and the data waiting to be sent.
class Connection {
  public:
    enum class Stage {
        kReading,   // the request is not complete yet
        kAnswering, // a handler works on it
        kWriting,   // the answer is being sent
        kViewing,   // receives events until it disconnects
        kDraining,  // answered; the client still has to read the answer before the socket is closed
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

    // Time since the stage was entered or, while sending, since bytes were last sent.
    std::chrono::steady_clock::duration Idle(std::chrono::steady_clock::time_point now) const {
        return now - m_since;
    }

    void Send(std::string text);

    void SendEvent(const SharedText& event);

    // Whether a viewer that does not read has reached the limit of waiting data.
    bool IsFull() const;

    // Bytes that wait to be sent.
    std::size_t Waiting() const { return m_waiting; }

    // Whether its machine has sent nothing for a while, not even an acknowledgement of the last
    // event. To be called about five times a second.
    bool HasVanished();

    // Drops the waiting events except one that is partly sent; then queues a note of how many were
    // skipped since the last note that was sent, and the state.
    void SkipToNow(const SharedText& state);

    bool HasOutput() const { return !m_output.empty(); }

    // Sends as much as the socket accepts. False when the client is gone.
    bool Flush();

  private:
    void Append(SharedText text);
    std::size_t DropWaiting();

    int m_socket;
    std::string m_localAddress;
    Framing m_framing;
    Stage m_stage = Stage::kReading;
    std::chrono::steady_clock::time_point m_since;
    std::deque<SharedText> m_output;
    std::size_t m_sent = 0;    // bytes of the first
    std::size_t m_waiting = 0; // bytes of all that are not sent
    std::size_t m_skipped = 0; // events that the note which waits tells of
    SharedText m_note;         // the last one
    int m_silentLooks = 0;     // consecutive checks without data received
};

// "event: NAME\ndata: DATA\n\n"
SharedText EventText(const char* name, const std::string& data);

} // namespace lab::serve
