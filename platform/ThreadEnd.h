#pragma once

#include "platform/Event.h"

// For threads that wait for something that may never happen: at the end of the process, when the
// library is unloaded, in a close.

// Joins `thread` if it ends within `milliseconds`.  False when it still runs, or is the
// calling thread; it then stays joinable.
bool JoinThreadWithin(unsigned long thread, unsigned int milliseconds);

// Re-creates the event at the end of the process: in a forked child an event has inherited its
// waiters, whose threads do not exist there; its destruction would wait for them for ever.
void ForgetWaiters(CAutoResetEvent& event);
