#pragma once

#include "ravo/material.h"

// Loads a record of the CSE multilead database, eight leads at 500 samples per second, as material
// of type 1: as a binary file when ".dcd" occurs anywhere in `path`, in any letter case, else as
// text.  The caller releases the header with FreeECGHeader.  Null on failure; a file that turns out
// to be unusable only while its samples are read leaves type, rate and count of the new record.
// The noise of an earlier record stays switched on.
ECG_HEADER* LoadDatabaseCSE(const char* path);

// The two readers, each of which stops output first and holds g_CriticalSection.
ECG_HEADER* LoadDatabaseCSEInDCDFmt(const char* path);
ECG_HEADER* LoadDatabaseCSEInTxtFmt(const char* path);
