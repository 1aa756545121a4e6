#pragma once

#include "ravo/wfdb.h"

// The amplitude of a record: beats or windows are measured one by one, and a trimmed mean is taken
// of them.  sigamp, WFDBSignalAmplitude and WFDBSignalAmplitudeEx are declared in wfdb.h.

extern int32_t g_nRunMax;           // beats or windows measured per signal
extern int32_t g_nMovingWindowSize; // frames per window

// 1 for each annotation code, 0 to 49, that marks a beat to be measured.
extern const uint8_t wfdb_mp1[50];

// Peak to peak in ADC units, within 50 ms on both sides of each annotated beat, into
// amp[signal][beat]. Every row has room for g_nRunMax values; the values of beats that are not
// found stay as they are.
void sigamp_p2p(WFDB_HEADER* header, double** amp);

// RMS deviation from the mean in ADC units, in consecutive windows, into amp[signal][window].  The
// first window is summed from the file's current position.
void sigamp_rms(WFDB_HEADER* header, double** amp);

// Orders doubles ascending for qsort: 1, -1 or 0.
int AmplitudeCompare(const void* left, const void* right);
