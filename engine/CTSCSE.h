#pragma once

#include "ravo/builtin.h"
#include "ravo/material.h"

// Loads one record of the compiled-in test database, its period repeated ten times, with one noise
// or none.  The caller owns the returned header.  Null when an argument is out of range or memory
// is refused.
ECG_HEADER* LoadDatabaseCTS_CSE(CTSCSE_Database record, CTSCSE_Noise noise);

// Describes a record or a noise without loading it; false when there is none with that number.
bool DescribeBuiltinRecord(int record, RAVO_BUILTIN_RECORD* description);
bool DescribeBuiltinNoise(int noise, RAVO_BUILTIN_NOISE* description);

// Copies the samples of a noise; false when there is none with that number or nowhere to put them.
bool CopyBuiltinNoise(int noise, double* millivolts);
