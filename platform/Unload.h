#pragma once

// How the library ends.
//
// A host need not announce that it is done: it may call exit on any thread, a callback of the
// library included, unload the library with dlclose, or fork and let the child exit, while output
// runs, a search is under way, or threads of its own are inside exported functions.
//
// The global objects are destroyed in the reverse order of platform/ConstructionOrder.h.  The first
// one is the Shutdown object of api/Connection.cpp.  It takes no lock that a thread of the library
// could hold and waits for none without a bound, in this order:
//
//   1. IsLibraryLeft() holds from here on: exported functions fail instead of touching anything.
//   2. The output is stopped and can no longer start (EndOutputForGood).
//   3. The connect thread ends, after telling the simulator if RAVOFree has not.
//   4. Threads of the host leave the wait of RAVOConnect.
//   5. The callback thread of the preview ends.
//   6. The timer signals are ignored: a late tick must neither run code that is gone nor end the
//      process.
//   7. Threads of the host leave the exported functions.
//   8. The fate of the material is decided (MaterialRelease of engine/Record.h): released if no
//      thread can still be using it, otherwise left alone.
//
// Then the monitor ends its thread (device/Monitor), the engine's events and the callback thread's
// owner go (engine/Preview), and last the material (engine/Record).  A thread that does not end in
// time is left alone; the data that it may be using is not released.
//
// A forked child has the library's memory, perhaps with locks held, but none of its threads.  There
// every exported function that needs a thread or a lock fails, and the destructors end no thread,
// release no material and forget the waiters that events have inherited.

// The longest time that each wait can take, in milliseconds.
constexpr unsigned int kStopPatience = 5000;     // step 2: a stop at the slowest sample clock
constexpr unsigned int kForcedPatience = 4000;   // step 2: once forced, for each thread
constexpr unsigned int kSearchPatience = 30000;  // step 3: while several silent ports are probed
constexpr unsigned int kListenerPatience = 3000; // step 3: the listener may wait for this thread
constexpr unsigned int kWakePatience = 1000;     // step 4, twice: to be woken, to leave
constexpr unsigned int kCallbackPatience =
    3000;                                      // step 5: the host may not return from its callback
constexpr unsigned int kExportPatience = 1000; // step 7: a thread may be loading a record

// Whether this process is a child forked from the one that loaded the library.
bool IsForkedChild();

// False, with the reason, in such a child.
bool RequireLoadingProcess();

// Whether the process is exiting or the library is being unloaded.
bool IsLibraryLeft();

// Makes IsLibraryLeft() true, for the rest of the process.
void LeaveLibrary();
