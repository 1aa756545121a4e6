#pragma once

// The response reader: the thread that reads what the simulator sends while output runs.

#include <cstdint>

// The host's, called on the response reader; null for none.
extern void (*g_OutputDelayCB)(int delay);

// Whether the calling thread is the response reader, that is, runs the host's delay callback.
bool IsResponseReader();

// False, with the reason, where no export that stops, loads or starts anything may run: in a forked
// child, which has none of the library's threads and may have inherited a lock held, and on the
// delay callback, because a stop may be waiting for its thread while it holds the lock.  A loader
// called there would release what is being played.
bool IsCallAllowedHere();

// Discards the bytes that the simulator sent before the start command: none of them belong to this
// output, and a request in it would count as the first one.
void DiscardEarlierResponses();

// The time in nanoseconds for which the response reader has received nothing: no response at all
// (Silence) or no request (SilenceOfRequests).
void ForgetSilence();
int64_t Silence();
int64_t SilenceOfRequests();

// Acts on the first response in `data` and returns the position after it.  A request cut short by
// the end of the read counts as whole, so the position can lie past the end; a delay report or a
// status record cut short, and anything unknown, takes the rest of the read with it.
unsigned char* ResponseHandling(unsigned char* data, int length);

// Body of the thread; ends at g_hStopReceiveEvent.
void* ReadNotifyThread(void* ignored);
