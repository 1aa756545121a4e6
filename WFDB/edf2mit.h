#pragma once

#include "ravo/wfdb.h"

#include <cstdio>

// An EDF header in memory: the fixed part, followed by one entry per signal.  Fields are
// ASCII without terminator; after reading, their trailing blanks are zeros.

struct EDF_HEADER {
    char DataFormat[8]; // "0" and seven blanks
    char PatientID[80];
    char RecordingID[80];
    char RecordingDate[8];
    char RecordingTime[8];
    char NumberOfBytesInHeaderRecord[8];
    char FreeSpace[44];
    char NumberOfDataRecords[8]; // -1 while recording
    char DurationOfEachDataRecordInSeconds[8];
    char NumberOfSignals[4];
};

// The spelling is kept: callers name the type so.
struct EDF_SIGNSAL {
    char Label[16];
    char TransducerType[80];
    char PhysicalDimension[8];
    char PhysicalMinimum[8];
    char PhysicalMaximum[8];
    char DigitalMinimum[8];
    char DigitalMaximum[8];
    char Prefiltering[80];
    char NumberOfSamplesPerRecord[8];
    char FreeSpace[32];
};

static_assert(sizeof(EDF_HEADER) == 256 && sizeof(EDF_SIGNSAL) == 256, "as in the file");

// Replaces the trailing blanks of a field of `width` characters by zeros.
void TrimString(char* field, int width);

// Reads the header of an EDF file positioned at its start.  The caller releases the block with
// delete[].  Null when the file is not an EDF file, ends early or has no signal.
EDF_HEADER* ReadHeader(FILE* file);

// The frames per second of the converted record: a rate of which every signal's is a multiple,
// within the tolerance of gcd.  0 when a data record has no duration.
double CalcSamplingFrequency(EDF_HEADER* header);
