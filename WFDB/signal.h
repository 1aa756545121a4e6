#pragma once

#include "ravo/wfdb.h"
#include "WFDB/FrameReader.h"

// The reader for the format of the first signal; null for a null header and for formats other
// than 16 and 212.
SIGNAL_HANDLER* GetSignalHandler(WFDB_HEADER* header);

// 1 when samples can be read: the signal file is open and its format is known.
int IsReadableHeader(WFDB_HEADER* header);

// The same, with the reason set when they cannot.
bool RequireReadable(WFDB_HEADER* header);

// Reads one frame and turns its values back into ADC units.  1 on success, else 0.  Sets no
// reason: for its callers the end of a record is not a failure.
int GetNextSampleWithoutDAC(WFDB_HEADER* header, double* out);
