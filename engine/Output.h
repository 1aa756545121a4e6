#pragma once

// What the threads of the output share: their handles, the events by which they start and end each
// other, and what they are to play.
//
//   response reader   reads what the simulator sends: requests, delay reports, status records
//   play thread       answers each request with one packet buffer
//   preview thread    turns the same material into the host's preview, on a 10 ms timer
//
// The simulator's sample clock paces the play thread; nothing in the host does.

#include "platform/Event.h"

#include <cstdint>

// The output threads; 0 while they do not run.
extern unsigned long g_hPlayThread;
extern unsigned long g_hReceiveThread;
extern unsigned long g_hOutputThread; // makes the preview

extern CManualResetEvent g_hStopPlayEvent;      // end the play at the simulator's next request
extern CManualResetEvent g_hForceStopPlayEvent; // end the play at once; set only at exit
extern CManualResetEvent g_hStopReceiveEvent;   // the play thread has ended: end the reader
extern CAutoResetEvent g_hSendEvent;            // the simulator wants the next packet buffer

extern int32_t g_bIsOutputting; // the preview runs

// Time-out in milliseconds for reading the port.  While output runs, the reader polls.
constexpr unsigned int kStreamingReadTimeout = 0;
constexpr unsigned int kIdleReadTimeout = 1000;

// The run that plays its material once; values set before the threads start stay until they end.
struct OnceRun {
    bool isOn = false;
    uint64_t frames = 0;     // due; without end UINT64_MAX
    int32_t hasFinished = 0; // set by the play thread before the stop event
};
extern OnceRun g_OnceRun;

// Whether the event is signalled; consumes the signal of an event that resets itself.
bool IsSignalled(CEvent& event);

// The rate at which the loaded material plays.
uint32_t FramesPerSecond();

// The frames due from a start second on, to the material's end or for `seconds` when that is not 0;
// UINT64_MAX when there is no end.  0 when there are none: the start lies outside the material, or
// `seconds` is negative or not a number.
uint64_t FramesDueOnce(int startSecond, double seconds);

// The position of a start second, which wraps at 32 bits.  Seconds outside the record that would
// wrap to a position inside it start at the last position instead, and so stay outside.
uint32_t StartPosition(int second);
