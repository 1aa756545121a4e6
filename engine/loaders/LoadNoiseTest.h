#pragma once

#include "engine/Material.h"

// Both run a noise stress test into a temporary record, load that record like any MIT record and
// delete its files.  The caller releases the result with FreeECGHeader.  Output is stopped; the
// test runs under g_CriticalSection.  The temporary name is the same for every process: two
// processes that do this at the same time spoil each other's record.

// The test configured with WFDBNoiseTestExSetSignal and WFDBNoiseTestExAddNoise.  Null when nothing
// is configured, without touching any file, and when the test or the loading fails.
WFDB_API ECG_HEADER* LoadDatabaseNoiseTest();

// A test with one noise record at `snr` decibels.  Goes on only when the test FAILED, so that it
// yields null and leaves the mixed record in the temporary directory when the test succeeds; hosts
// pick the files up there.
WFDB_API ECG_HEADER* LoadDatabaseNoiseTest(const char* signal, const char* noise, int snr);
