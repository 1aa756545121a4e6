#pragma once

// The one place that decides which of the library's global objects outlives which.  Objects are
// constructed in this order when the library is loaded and destroyed in the reverse order when it
// is unloaded or the process exits, regardless of the order in which the units were linked.  Within
// one level, the order of definition in the unit applies.
//
// The last object constructed is the first destroyed: it ends every thread that still runs, so
// that no event is destroyed while a thread waits on it (platform/Unload.h).
#define RAVO_CONSTRUCT_PLATFORM __attribute__((init_priority(1010)))
#define RAVO_CONSTRUCT_INSTANCE __attribute__((init_priority(1015)))
#define RAVO_CONSTRUCT_RECORD_LIBRARY __attribute__((init_priority(1020)))
#define RAVO_CONSTRUCT_MATERIAL __attribute__((init_priority(1025)))
#define RAVO_CONSTRUCT_DEVICE __attribute__((init_priority(1025)))
#define RAVO_CONSTRUCT_ENGINE_RELEASER __attribute__((init_priority(1030)))
#define RAVO_CONSTRUCT_ENGINE __attribute__((init_priority(1040)))
#define RAVO_CONSTRUCT_CONNECTION __attribute__((init_priority(1050)))
#define RAVO_CONSTRUCT_MONITOR __attribute__((init_priority(1060)))
#define RAVO_CONSTRUCT_SHUTDOWN __attribute__((init_priority(1070)))
