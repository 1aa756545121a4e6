#pragma once

#include "engine/Material.h"

extern "C" {

// The directory of the converted records.  The host sets it; the string stays the host's.
extern __attribute__((visibility("default"))) char* g_pszRepository;

// Loads an EDF file by way of a WFDB record of the same name in the repository, into which it is
// converted unless that record is there already, even if the file has changed since.  As with
// LoadMITHeader, whose header is returned, the samples are loaded with LoadMITDatabase; that sets
// the type of material to 3, so the caller then sets g_WaveformType to `type` again.  Stops output
// first.  Null when there is no record to load.
__attribute__((visibility("default"))) ECG_HEADER* LoadDatabaseEDF(const char* path,
                                                                   WaveformType type);

} // extern "C"
