#pragma once

#include "ravo/wfdb.h"

// The state of the one annotation reader of the process.  The functions that use it,
// WFDBLoadAnnotation, WFDBNextAnnotation and WFDBAnnotationSeekBegin, are declared in wfdb.h.
extern uint16_t g_iAnnotationWord;    // next annotation, already read from the file; 0 at the end
extern uint32_t g_iAnnotationTime;    // running time in frames
extern uint16_t g_iAnnotationChannel; // holds until the next CHN word
extern uint16_t g_iAnnotationNumber;  // holds until the next NUM word
