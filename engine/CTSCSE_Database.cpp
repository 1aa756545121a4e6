#include "engine/CTSCSE_Database.h"

const double* const g_Database_CTSCSE[kCTSCSERecords] = {
#define CTSCSE_RECORD(suffix, name, samples) CTSCSE_Database_##suffix,
#include "engine/CTSCSERecords.def"
};

const char* const g_Database_CTSCSE_Name[kCTSCSERecords] = {
#define CTSCSE_RECORD(suffix, name, samples) name,
#include "engine/CTSCSERecords.def"
};

const uint32_t g_Database_CTSCSE_SampleCount[kCTSCSERecords] = {
#define CTSCSE_RECORD(suffix, name, samples) samples,
#include "engine/CTSCSERecords.def"
};
