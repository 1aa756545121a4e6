#pragma once

#include "platform/Event.h"

// Only for the end of the process and the unloading of the library, where the event that a thread
// waits for may never come.

// Joins `thread` if it ends within `milliseconds`.  False when it still runs, or is the
// calling thread; it then stays joinable.
bool JoinThreadWithin(unsigned long thread, unsigned int milliseconds);

// Makes the event anew.  In a forked child an event has inherited its waiters, whose threads do not
// exist there; its destruction would wait for them for ever.
void ForgetWaiters(CAutoResetEvent& event);
