#pragma once

#include "lab/material/Record.h"
#include "lab/session/PlayRequest.h"

#include "api/ravo.h"

#include <cstdint>

// The length of a play of the loaded record, and its start.
namespace lab {

// Second of the loaded record at which the play starts: a record begins at a second with a fraction
// when the request does.
double StartInRecord(const PlayRequest& request, const Record& record);

// Seconds of material: as requested, but not past the end unless it loops; infinite without end.
double SecondsDue(const PlayRequest& request, const Record& record);

// Frames of that time, at least one; 0 without end.
int64_t FramesDue(const PlayRequest& request, const Record& record);

// Where in the loaded record the simulator is after `played` seconds from `start`. Native text
// repeats from its beginning, everything else from the start position.
double PositionAfter(const Record& record, double start, double played);

// Whether it plays once: it has an end and does not loop.
bool PlaysOnce(const PlayRequest& request, const Record& record);

// Starts the output; noise that the library adds restarts when it plays once. False when the
// simulator does not accept the start command.
bool StartOutput(const PlayRequest& request, const Record& record, RAVO_DELAY delay);

} // namespace lab
