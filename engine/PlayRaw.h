#pragma once

// Starting and ending the output.

#include "engine/Preview.h"
#include "engine/Record.h"

// Stops the current output and plays the loaded material from `startSecond` on.  The callbacks may
// be null: `outputCallback` gets the preview on the callback thread, `delayCallback` the
// simulator's delay reports on the response reader.  Returns 1 when playing has started; 0 when
// nothing playable is loaded, no simulator is connected or it does not accept the start command.
int OutputWaveform(int startSecond,
                   void (*outputCallback)(double time, double recordTime, double* leads, bool end),
                   void (*delayCallback)(int delay)) RAVO_EXCLUDES(g_CriticalSection);

// The same, but plays the material once, to its end or for `seconds` when that is not 0, regardless
// of looping; material without end plays on when `seconds` is 0.  Output ends when the simulator
// has proved that the last frame has left its outputs, until when they hold that frame.  The
// preview follows the outputs.  Returns 0 also when `startSecond` lies outside the material or
// `seconds` is negative or no number.
int OutputOnce(int startSecond, double seconds,
               void (*outputCallback)(double time, double recordTime, double* leads, bool end),
               void (*delayCallback)(int delay)) RAVO_EXCLUDES(g_CriticalSection);

// Ends the output and returns when its threads have ended, even when another thread is ending it at
// the same time.  Called on the response reader, which cannot wait for itself, it only requests the
// end.  Takes neither the API lock nor the engine lock; a loader calls it with or without the
// latter.
void StopOutput() RAVO_EXCLUDES(g_OutputCriticalSection);
void StopOutputOnClosing() RAVO_EXCLUDES(g_OutputCriticalSection);

// Whether the preview is running.
bool IsOutputting() RAVO_EXCLUDES(g_CriticalSection);

// Ends the output when the process exits or the library is unloaded, on whatever thread that
// happens, and prevents any further start.  Unlike StopOutput it waits a bounded time; false when a
// thread of the output may still run.
bool EndOutputForGood();

// Starts the three threads at g_nStartPosition and asks for the first packet buffer.  False, with
// no thread left, when the system refuses one.
bool RunPlayThread();
