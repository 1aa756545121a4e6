#pragma once

#include "ravo/wfdb.h"

#include <cstdio>
#include <string>
#include <vector>

// The noise stress test.  The functions that set it up and run it are declared in wfdb.h.

// One noise record of the test.
struct NOISE_ITEM {
    std::string NoiseFilePath;          // as given, with or without ".hea"
    double SignalNoiseRatio;            // decibels
    WFDB_HEADER* WFDBHeader;            // open while a test runs, else null
    std::vector<double> Ratio;          // per output signal: the factor of the noise
    std::vector<double> EffectiveRatio; // the factor currently in effect: 0 or Ratio
    std::vector<double> Noise;          // the current noise frame in ADC units, baseline included
    std::vector<double> Output;         // one per output signal; unused
};

// The output frame under construction; every vector has one entry per output signal.
struct NST_FRAME {
    std::vector<double> Signal;  // last signal frame in ADC units, baseline removed
    std::vector<int32_t> Output; // last values written
    std::vector<int32_t> Offset; // subtracted, so that a segment continues from the last value
};

// The test that NSTOutput runs; kept from one run to the next.
extern std::string g_strSignalFilePath;
extern std::string g_strOutputFilePath;
extern std::vector<NOISE_ITEM> g_vecNoiseItem;

// True when signal, noise and output are all set, so that NSTOutput has something to run.
bool IsNoiseTestConfigured();

// Open a record for the test; null when its header or signal file cannot be read.  The signal
// record (the spelling is kept) also gets its annotation file, if there is one: its amplitude is
// then that of its beats.  The caller releases the header.
WFDB_HEADER* DoProcessNSTLoadSingal(const char* path);
WFDB_HEADER* DoProcessNSTLoadNoise(const char* path);

// Computes the item's Ratio and leaves both records at their start.
void DoProcessNSTGetNoiseRatio(WFDB_HEADER* signal, NOISE_ITEM& item);

// The factors for one noise record at `snr` decibels, one per output signal, to be released with
// WFDBMemFree; null when memory is refused.  Leaves both records where the measurement ended.
double* DoProcessNSTGetNoiseRatio(WFDB_HEADER* signal, WFDB_HEADER* noise, double snr);

// Mix and write up to `frames` frames: 1 when all are written, 0 when the signal ends or a noise
// record cannot be read.  Noise records are repeated; with a single one the output then starts
// again from its last value, less the baseline.
int DoProcessNSTAddNoise(FILE* file, WFDB_HEADER* signal, std::vector<NOISE_ITEM>& noise,
                         NST_FRAME& frame, int32_t frames);
int DoProcessNSTAddNoise(FILE* file, WFDB_HEADER* signal, NOISE_ITEM& noise, NST_FRAME& frame,
                         int32_t frames);
