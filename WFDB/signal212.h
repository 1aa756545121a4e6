#pragma once

#include "WFDB/FrameReader.h"

// Format 212: two samples of 12 bits in three bytes.
extern const SIGNAL_HANDLER g_SignalHandler212;
