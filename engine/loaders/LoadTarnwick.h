#pragma once

#include "ravo/material.h"

// Loads a record in the simulator's own text format as material of type 4: the rate, the number of
// samples per lead, "start", then up to eight leads, each the lead's name and its samples in
// microvolts, one a line.  Leads that the file lacks stay 0.  Stops output first and holds
// g_CriticalSection.  The caller releases the header with FreeECGHeader.  Null when the file cannot
// be read, its third line is not "start" or rate or count is not a number of samples, all of which
// leave the engine as it was, and when memory is refused.
ECG_HEADER* LoadDatabaseTarnwick(const char* path);
