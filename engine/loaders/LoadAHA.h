#pragma once

#include "ravo/material.h"

// Loads a record of the AHA database, two leads at 250 samples per second, as material of type 2:
// as text when ".txt" occurs anywhere in `path`, else as a binary file when ".ecg" does, in any
// letter case.  Stops output first and holds g_CriticalSection.  The caller releases the header
// with FreeECGHeader.  Null on failure, which leaves type 2 over the earlier material's samples.
ECG_HEADER* LoadDatabaseAHA(const char* path);

// The two readers.  LoadDatabaseAHA has stopped output, holds the lock and has set the type.
ECG_HEADER* DoLoadDatabaseAHAFormatTxt(const char* path);
ECG_HEADER* DoLoadDatabaseAHAFormatECG(const char* path);
