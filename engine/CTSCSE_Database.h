#pragma once

#include <cstdint>

// The records of the compiled-in test database: constant data, generated when the library is
// built, either from the owner's licensed copy or as stand-ins from published definitions.

constexpr int kCTSCSERecords = 119;
constexpr int kCTSCSELeads = 8;

// CTSCSE_Database_<suffix>: one period of eight leads (I, II, V1 to V6) at 1000 samples per
// second in millivolts, lead after lead, not interleaved.
#define CTSCSE_RECORD(suffix, name, samples)                                                       \
    extern const double CTSCSE_Database_##suffix[kCTSCSELeads * (samples)];
#include "engine/CTSCSERecords.def"

// By CTSCSE_Database: data, name given to the loaded record, samples per lead of one period, and
// whether the data are the owner's licensed ones.
extern const double* const g_Database_CTSCSE[kCTSCSERecords];
extern const char* const g_Database_CTSCSE_Name[kCTSCSERecords];
extern const uint32_t g_Database_CTSCSE_SampleCount[kCTSCSERecords];
extern const bool g_Database_CTSCSE_Licensed[kCTSCSERecords];
