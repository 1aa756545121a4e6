#pragma once

#include "platform/Event.h"

#include <csignal>

// Threads, sleeping, timers, paths and a bounded copy, in the shape in which the library uses them.

// Set at each expiry of a timer on SIGUSR1 and SIGUSR2.
extern CAutoResetEvent g_hSigUsr1Event;
extern CAutoResetEvent g_hSigUsr2Event;

// Starts a joinable thread; its creator joins it.  The handle is unchanged when none starts.  The
// thread blocks every signal that it does not cause itself: a signal that the host blocks in its
// own threads, to wait for it, must not be delivered to one of the library's and end the process.
bool CreateThread(unsigned long* thread, void* (*start)(void*), void* argument);
// Does nothing: a thread handle needs no closing.
void CloseThread(unsigned long thread);
bool CloseHandle(long descriptor);

// Keeps SIGUSR1 and SIGUSR2 away from the calling thread.  Their handlers lock the timer events
// and interrupt blocking calls, so every thread that waits on those events or uses the port calls
// this first.
void BlockTimerSignals();

// Sleeps whole seconds as such and the remainder of milliseconds in MICROseconds: SleepEx(100)
// lasts 0.1 ms, SleepEx(1200) 1.0002 s.  Compatibility: the pace of the monitor and of the output
// threads is set by it.  A signal does not shorten the sleep.
void SleepEx(unsigned int milliseconds);

// Sleeps for the whole time, even when signals arrive.
void SleepMicroseconds(unsigned int microseconds);

// Both handlers leave errno as they found it.
void onSigUsr1Timer(int signal, siginfo_t* information, void* context);
void onSigUsr2Timer(int signal, siginfo_t* information, void* context);
void TimerSetHandler(int signal, void (*handler)(int, siginfo_t*, void*));

// Ignores SIGUSR1 and SIGUSR2 where their handlers are still the two above.  Used when the library
// is unloaded: a late tick must neither run unloaded code nor end the process.
void ReleaseTimerSignals();

// Starts a periodic timer that raises the signal every `milliseconds`, and installs the
// handler above when it is SIGUSR1 or SIGUSR2.  Expiries between two waits collapse into one.
// Null when the system refuses the timer.
void* CreateNewTimer(unsigned int milliseconds, unsigned int& signal);
// The result of timer_delete; -1 for null.
int DeleteTimer(unsigned int ignored, void*& timer);

// True whether or not the directory could be made: callers continue and notice the failure when
// they use it.
bool CreateDirectory(const char* path, void* ignored);

// Copies "/tmp" as strncpy does, which leaves a buffer of less than 5 bytes without terminator, and
// returns the length of the text the buffer then holds.
unsigned int GetTempPath(unsigned int size, char* buffer);

// Composes "directory/prefixXXX" and returns its length.  With three X the name stays as it is and
// no file is created; callers append to it.  The buffer must hold the whole name.
unsigned int GetTempFileName(const char* directory, const char* prefix, unsigned int ignored,
                             char* fileName);

// Copies a text whole, or not at all: 0 on success; -1, with the destination untouched, when it
// does not fit into size bytes.  A count at or below the text's length cuts it to count - 1
// characters.
int strncpy_s(char* destination, unsigned long size, const char* source, unsigned long count);
