#pragma once

#include "engine/Record.h"
#include "ravo/material.h"

// Loads a WFDB record into the engine.  Both functions stop output first and then hold
// g_CriticalSection.  A host calls LoadMITHeader, may edit the leads in the header that it gets and
// hand them back with UpdateMappingLead, calls LoadMITDatabase, and frees the header only then:
// the samples are read through it.

// Reads the record's header file, opens its signal file and makes it the loaded material, silent so
// far.  A record too long for memory is shortened in steps of five seconds; NumberOfSamples states
// the result.  Returns the caller's own copy of the engine's header, released with FreeECGHeader;
// the record's WFDB_HEADER belongs to it.  Null, and the engine as it was, when the header cannot
// be read, the signal file cannot be opened or memory for less than five seconds is refused.
ECG_HEADER* LoadMITHeader(const char* path) RAVO_EXCLUDES(g_CriticalSection);

// Reads the record's samples in millivolts.  A signal file that ends early is followed by silence.
// A channel that is 5 mV or more off zero in its first minute is centred.  1 on success; 0 for null
// and when memory is refused, which leaves the engine without samples.
int LoadMITDatabase(ECG_HEADER* header) RAVO_EXCLUDES(g_CriticalSection);
