#pragma once

#include "lab/common/Interrupt.h"
#include "lab/common/Mutex.h"
#include "tools/worker/Channel.h"

#include <deque>
#include <functional>
#include <thread>

namespace worker {

// Receives on a thread of its own, so that a stop and the interpreter's end are noticed while a
// request is being carried out.
class Inbox {
  public:
    // `interpreter` is the process that must continue to exist; 0 when only the other end of the
    // channel counts. `abandon` is called when the worker has not ended by itself soon after it
    // should have; it does not return.
    Inbox(const Channel& channel, const lab::Interrupt& interrupt, pid_t interpreter,
          std::function<void()> abandon);
    ~Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    // Waits for the next request. False when there will be none: the interpreter has ended, or a
    // signal requested the end.
    bool Next(Message& request);

  private:
    void Run();
    bool AwaitMessage() const;
    void Take(Message message);
    void End();

    const Channel& m_channel;
    const lab::Interrupt& m_interrupt;
    int m_interpreter; // a handle of the process, -1 for none
    std::function<void()> m_abandon;

    lab::Mutex m_lock;
    lab::Condition m_changed;
    std::deque<Message> m_requests RAVO_GUARDED_BY(m_lock);
    int64_t
        m_current RAVO_GUARDED_BY(m_lock) = -1; // number of the request that is being carried out
    bool m_hasEnded RAVO_GUARDED_BY(m_lock) = false;
    bool m_isLeft RAVO_GUARDED_BY(m_lock) = false; // the main thread has finished all its work
    std::thread m_thread;
};

} // namespace worker
