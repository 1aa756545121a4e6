#pragma once

#include <cstdint>

// The noises of the compiled-in test database, generated like its records.

constexpr int kCTSCSENoises = 14;
constexpr int kCTSCSENoiseSamples = 10000;

// CTSCSE_Noise_<suffix>: ten seconds at 1000 values per second, in microvolts.
#define CTSCSE_NOISE(suffix) extern const int32_t CTSCSE_Noise_##suffix[kCTSCSENoiseSamples];
#include "engine/CTSCSERecords.def"

// By CTSCSE_Noise, without an entry for CTSCSE_NOISE_NONE.
extern const int32_t* const g_Database_CTSCSE_Noise[kCTSCSENoises];
extern const char* const g_Database_CTSCSE_NoiseName[kCTSCSENoises];
extern const bool g_Database_CTSCSE_NoiseLicensed[kCTSCSENoises];
