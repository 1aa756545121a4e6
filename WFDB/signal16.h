#pragma once

#include "WFDB/FrameReader.h"

// Format 16: two bytes a sample, low byte first, two's complement.
extern const SIGNAL_HANDLER g_SignalHandler16;
