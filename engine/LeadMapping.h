#pragma once

// Which signal of the loaded record feeds which output lead.

#include "ravo/material.h"

// The output lead that a signal description names; ECG_LEAD_NONE when it names none.
ECG_Lead MappingLeadText(const char* description);

// The first signal of the loaded record that feeds `lead`, or -1.
int FindMappingLeadIndex(ECG_Lead lead);

// Derives g_ECGMappingLead from the leads in g_pECGHeader.
void UpdateMITMappingLeadIndex();

// Takes over the leads of a copy that the host has edited.  Does nothing before any load or for
// null.  The caller's API lock is the only protection; output may be running.
void UpdateMappingLead(ECG_HEADER* edited);
