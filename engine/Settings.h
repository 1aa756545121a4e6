#pragma once

// Settings that the host may change at any time, also while output runs.  Unlike the loaded
// material, which only changes while output is stopped, every setting is read with LoadShared.

#include "engine/Record.h"

#include <cstdint>

extern int32_t g_NoiseOn;      // add the noise to material of type 1
extern double g_fVoltageRange; // full scale of the outputs, plus and minus
extern int32_t g_bPlayLoop;    // start over at the end of the material

void SetOutputVoltageRange(double range) RAVO_EXCLUDES(g_CriticalSection);
void EnableNoise(bool on) RAVO_EXCLUDES(g_CriticalSection);
void SetOutputLoop(bool loop) RAVO_EXCLUDES(g_CriticalSection);
