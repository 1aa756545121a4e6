#pragma once

#include "WFDB/FrameReader.h"
#include "WFDB/wfdb.h"

// The reader for the format of the first signal; null for a null header and for formats other
// than 16 and 212.
SIGNAL_HANDLER* GetSignalHandler(WFDB_HEADER* header);

// 1 when samples can be read: the signal file is open and its format is known.
int IsReadableHeader(WFDB_HEADER* header);

// Reads one frame and turns its values back into ADC units.  1 on success, else 0.
int GetNextSampleWithoutDAC(WFDB_HEADER* header, double* out);
