#pragma once

#include <pthread.h>

// Events and the waits on them.  A wait returns 0 (for the wait on several: the index of the event
// that ended it) when signalled and kWaitTimedOut when not.  Errors of the thread primitives are
// not reported; the only failure a caller sees is the time-out.
//
// Any thread may set, reset or wait; the timer signal handlers set events, too.  A thread that
// waits on an event set by a handler must therefore not run that handler: it would deadlock on its
// own lock.

constexpr int kWaitTimedOut = 110;                // ETIMEDOUT of Linux
constexpr unsigned int kWaitForever = 0xFFFFFFFF; // for WaitForMultipleObjects only

class CEvent {
  public:
    CEvent() = default;
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;

    virtual int SetEvent() = 0;
    virtual int ResetEvent() = 0;

    // Waits without time-out.  A thread cancelled in here leaves the event unlocked.
    virtual int Wait() = 0;

    // Waits until a deadline counted in whole seconds of the real-time clock: between
    // (milliseconds / 1000) - 1 and milliseconds / 1000 seconds, so that less than 1000 expires
    // practically at once.  0 only polls.
    //
    // An expired deadline leaves the event locked: the next thread that uses the event, the one
    // that waited included, blocks for ever.  The time-out of RAVOConnect is defined by this; a
    // poll never does it.
    virtual int WaitTimeout(unsigned int milliseconds) = 0;

  protected:
    // Events are destroyed as what they are, never through this base.
    ~CEvent() = default;
};

// One successful wait or poll consumes the signal; a poll clears the event even when it finds it
// clear.
class CAutoResetEvent final : public CEvent {
  public:
    explicit CAutoResetEvent(bool signalled);
    // glibc blocks in here while a thread is still waiting, so end the waiter first.
    ~CAutoResetEvent();

    int SetEvent() override;
    int ResetEvent() override;
    int Wait() override;
    int WaitTimeout(unsigned int milliseconds) override;

  private:
    pthread_mutex_t m_mutex;
    pthread_cond_t m_condition;
    bool m_signalled;
};

// Stays signalled until it is reset.  Setting it wakes one waiter; further waiters see the signal
// when they next look.
class CManualResetEvent final : public CEvent {
  public:
    explicit CManualResetEvent(bool signalled);
    // Destroys neither mutex nor condition, so that a waiter may outlive the event at exit.
    ~CManualResetEvent() = default;

    int SetEvent() override;
    int ResetEvent() override;
    int Wait() override;
    int WaitTimeout(unsigned int milliseconds) override;

  private:
    pthread_mutex_t m_mutex;
    pthread_cond_t m_condition;
    bool m_signalled;
};

// WaitTimeout of the concrete event.
int WaitForSingleObject(CEvent* event, unsigned int milliseconds);

// Waits for any of the events and returns its index; the lowest index wins and only the winner is
// consumed.  Polls busily, so that it can watch several events at once; the deadline is exact.
// Waiting for all is not supported and times out at once.
int WaitForMultipleObjects(unsigned int count, CEvent** events, int waitAll,
                           unsigned int milliseconds);
