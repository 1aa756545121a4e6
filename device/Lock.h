#pragma once

#include <cstdint>

// The lock file that keeps two hosts of one machine from using the same port:
// "/var/lock/tarnwick.ACM<port>.lock" holds the owner's process id as 4 binary bytes.
//
// Other users may write to its directory, so nothing in there is trusted: a link is not followed,
// nothing but an ordinary file is read, and a file is removed only when it is known to be the one
// that was looked at.

extern int32_t g_nLockFile; // the held lock file, -1 when none
extern char g_szLockFilePath[128];

enum class LockOutcome {
    kTaken,
    kHeld,        // by the living process `owner`
    kUnreadable,  // less than 4 bytes, not an ordinary file or not readable; never touched
    kNoDirectory, // there is no lock directory
    kFailed,      // the system refused the file
};

struct LockAttempt {
    LockOutcome outcome;
    int error;     // errno of a refusal, else 0
    int32_t owner; // as the file names it; 0 and below name groups of processes
};

// A lock whose owner has died is taken over; of several hosts that try at once, one succeeds.
LockAttempt TryLockDevice(int port);

// The same, returning only whether the lock was taken.
bool LockDevice(int port);
void UnlockDevice();

// The lock on its own, for a thread that releases it while others may already take the next one.
struct HeldLock {
    int32_t file;
    char path[sizeof g_szLockFilePath];
};
HeldLock DetachLock();
void ReleaseLock(const HeldLock& lock);
