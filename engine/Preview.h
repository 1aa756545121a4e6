#pragma once

// The preview: the material being played, as the host sees it.  The preview thread turns the loaded
// material into records of twelve leads and queues them; the callback thread hands them to the
// host's progress callback.

#include "engine/Record.h"
#include "platform/Event.h"
#include "platform/SimpleCriticalSection.h"

#include <vector>

// One instant of the preview.
struct OUTPUT_SIGNAL_DATA {
    double Time;       // seconds since output start
    double RecordTime; // position within the record in seconds
    double Leads[12];  // millivolts: I, II, III, aVR, aVL, aVF, V1 to V6
    bool End;          // the last record of a run
};

// Owns the callback thread, which lives from loading to unloading, and the sample buffer.
class CAutoFreeRescource {
  public:
    CAutoFreeRescource() = default;
    ~CAutoFreeRescource();
    CAutoFreeRescource(const CAutoFreeRescource&) = delete;
    CAutoFreeRescource& operator=(const CAutoFreeRescource&) = delete;

    void StartCallbackThread();

    // Ends the callback thread.  Gives up after a few seconds when the host does not return from
    // its callback, and at once on the callback thread itself, when the host calls exit from its
    // callback.
    void EndCallbackThread();

  private:
    unsigned long m_hThread = 0;
};

// Destroyed after every other object of the engine.
extern CAutoFreeRescource g_AutoFreeResource;

// Guards g_vecOutputSignalData and nothing else; taken after every other lock, and never held
// while the host is called.
extern CSimpleCriticalSection g_OutputCriticalSection RAVO_ACQUIRED_AFTER(g_CriticalSection);
extern std::vector<OUTPUT_SIGNAL_DATA>
    g_vecOutputSignalData RAVO_GUARDED_BY(g_OutputCriticalSection);
extern CAutoResetEvent g_hOutputDataEvent; // a record was queued
extern void (*g_OutputSignalCB)(double time, double recordTime, double* leads, bool end);

// Queues one record of twelve leads.  Throws std::bad_alloc when the queue cannot grow.
void AppendOutputSignalData(double time, double recordTime, double* leads, bool end)
    RAVO_EXCLUDES(g_OutputCriticalSection);

// Whether the queue can take another record.  Its limit is what the preview of the fastest usual
// material produces in 50 s: the time that a host has to catch up.
bool OutputSignalDataHasRoom() RAVO_EXCLUDES(g_OutputCriticalSection);

// Discards every record that has not been passed to the host yet.
void EmptyOutputSignalData() RAVO_EXCLUDES(g_OutputCriticalSection);

// Body of the preview thread, one of the output's three: queues the records of one run, on a timer,
// and ends the output where the material ends.
extern void* g_hOutputDataTimer;
void* OutputSignalThread(void* ignored);

// Body of the callback thread: hands the host the queued records in order, one at a time.
void* DoOutputThread(void* ignored);

// Calls back for every sample of `seconds` seconds of the loaded material from `startSecond` on,
// and once more with leads of 0 to mark the end of the samples.  On the caller's thread, without a
// lock.  Returns 0 when nothing playable is loaded or the callback is null.
int GetWaveformSignal(int startSecond, int seconds,
                      void (*callback)(double time, double* leads, bool end));
