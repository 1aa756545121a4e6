#pragma once

#include "ravo/wfdb.h"

// Converts an AHA text file into the signal file RECORD.dat in `directory` and returns the header
// that describes it, which the caller releases with WFDBFreeHeader.  Null, and nothing is written,
// when `path` does not end in ".txt" or one of the two files cannot be opened.
WFDB_HEADER* ConvertAHARecord(const char* path, const char* directory);
