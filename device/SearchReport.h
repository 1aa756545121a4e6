#pragma once

#include "ravo/search.h"

// The result of the search for the simulator, port by port, so that "no simulator" has a reason.
// RAVOGetSearchReport reads it.

// Only one thread searches at a time; these functions are for that thread.  When a round ends, it
// replaces the previous one; a new search has no previous round.
void ForgetSearchRounds();
void BeginSearchRound();
// Completes the entry's names and text and adds it.
void NoteProbe(RAVO_SEARCH_ENTRY entry);
void EndSearchRound();

// Whether the simulator that the last round found has a flash table.
void NoteFlashTable(bool isThere);

// Makes the last round's most informative entry the calling thread's reason of failure.
void SetSearchFailure();
