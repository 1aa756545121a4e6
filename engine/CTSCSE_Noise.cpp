#include "engine/CTSCSE_Noise.h"

const int32_t* const g_Database_CTSCSE_Noise[kCTSCSENoises] = {
#define CTSCSE_NOISE(suffix) CTSCSE_Noise_##suffix,
#include "engine/CTSCSERecords.def"
};

const char* const g_Database_CTSCSE_NoiseName[kCTSCSENoises] = {
#define CTSCSE_NOISE(suffix) #suffix,
#include "engine/CTSCSERecords.def"
};
