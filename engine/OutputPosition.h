#pragma once

// The position of the output, as proven by the simulator's own requests.  The threads of the output
// count what they send and read; any thread may read the result at any time without waiting.

#include <cstdint>

// The same fields in the same order as RAVO_OUTPUT_POSITION, which describes them.
struct OutputPosition {
    uint64_t FramesSent;
    uint64_t FramesPlayed;
    int64_t StartTime;
    int64_t FirstRequestTime;
    int64_t LastRequestTime;
    uint32_t Requests;
    uint32_t FramesPerRequest;
    double NominalRate;
    double MeasuredRate;
    uint32_t DelayReports;
    uint32_t DelayTotal;
};

// CLOCK_MONOTONIC in nanoseconds.
int64_t MonotonicNanoseconds();

// The start command was written at `time`: forgets the earlier output.
void BeginOutputPosition(int64_t time, double nominalRate, uint32_t framesPerRequest);

// Everything from here on is ignored before the first start.
void CountFramesSent(uint64_t frames);
void CountRequest(int64_t time);
void CountDelay(uint32_t delay);

// Frames that have left the outputs at `now`: those proved and, between two requests, those that
// the clock has played since.  The outputs hold one more buffer at most and then wait for the host.
uint64_t EstimateFramesPlayed(const OutputPosition& position, int64_t now);

// False before the first start.  Takes no lock and costs far less than a microsecond.
bool GetOutputPosition(OutputPosition& position);
