#pragma once

// Output: the start command, the three threads that play the loaded material, and the stop.
//
//   response reader   reads what the simulator sends: requests, delay reports, status records
//   play thread       answers each request with one packet buffer
//   display stream    turns the same material into the host's preview, on a 10 ms timer
//
// The simulator's sample clock paces the play thread; nothing in the host does.

#include "platform/Event.h"

#include <cstdint>

// The output threads; 0 while they do not run.
extern unsigned long g_hPlayThread;
extern unsigned long g_hReceiveThread;
extern unsigned long g_hOutputThread;

extern CManualResetEvent g_hStopPlayEvent;      // end the play at the simulator's next request
extern CManualResetEvent g_hForceStopPlayEvent; // end the play at once; set only at exit
extern CManualResetEvent g_hStopReceiveEvent;   // the play thread has ended: end the reader
extern CAutoResetEvent g_hSendEvent;            // the simulator wants the next packet buffer

extern int32_t g_bIsOutputting;  // the display stream runs
extern void* g_hOutputDataTimer; // its timer
extern void (*g_OutputDelayCB)(int delay);

// Stops what plays and plays the loaded material from `startSecond` on.  The callbacks may be
// null: `outputCallback` gets the preview on the callback thread, `delayCallback` the simulator's
// delay reports on the response reader.  Returns 1 when playing has started; 0 when nothing
// playable is loaded, no simulator is connected or it does not take the start command.
int OutputWaveform(int startSecond,
                   void (*outputCallback)(double time, double recordTime, double* leads, bool end),
                   void (*delayCallback)(int delay));

// The same, but plays the material once, to its end or for `seconds` when that is not 0, whatever
// looping says; material without end plays on when `seconds` is 0.  Output ends when the simulator
// has proved that the last frame has left its outputs, until when they hold that frame.  The
// preview follows the outputs.  Returns 0 also when `startSecond` lies outside the material or
// `seconds` is negative or no number.
int OutputOnce(int startSecond, double seconds,
               void (*outputCallback)(double time, double recordTime, double* leads, bool end),
               void (*delayCallback)(int delay));

// Ends the output and returns when its threads have gone, whoever else is ending it at the same
// time.  Called on the response reader, which cannot wait for itself, it only asks for the end.
// Takes neither the API lock nor the engine lock; a loader calls it with or without the latter.
void StopOutput();
void StopOutputOnClosing();

// Whether the display stream runs.
bool IsOutputting();

// Whether the calling thread is the response reader, that is, runs the host's delay callback.
bool IsResponseReader();

// Ends the output when the process exits or the library is unloaded, on whatever thread that
// happens, and lets none start any more.  Unlike StopOutput it waits a bounded time; false when a
// thread of the output may still run.
bool EndOutputForGood();

// Starts the three threads at g_nStartPosition and asks for the first packet buffer.  False, with
// no thread left, when the system refuses one.
bool RunPlayThread();

// Acts on the first response in `data` and returns the position behind it.  A request cut short by
// the end of the read counts as whole, so the position can lie past the end; a delay report or a
// status record cut short, and anything unknown, takes the rest of the read with it.
unsigned char* ResponseHandling(unsigned char* data, int length);

// Bodies of the threads.
void* PlayRawDataThread(void* ignored);
void* ReadNotifyThread(void* ignored);
void* OutputSignalThread(void* ignored);
