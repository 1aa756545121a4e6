#pragma once

#include <cstddef>
#include <cstdint>

// What the search for the simulator found, port by port, so that "no simulator" has a reason.
//
// A report covers a whole round of the search and takes the place of the one before it when the
// round ends.  Any thread may read it; reading waits for nothing but the copying of an entry.

// What a probe of one port met with.  The numbers are part of the binary interface.
enum class ProbeFinding : int32_t {
    kSimulator = 1,   // it answers as the simulator does
    kAbsent,          // there is no such port; noted only where that port alone was asked for
    kCannotOpen,      // the system refuses to open it: SystemError
    kExclusive,       // another program has opened it for itself alone
    kLocked,          // process Owner holds its lock
    kLockUnreadable,  // its lock file names no owner, and is never removed
    kNoLockDirectory, // there is no lock directory
    kLockRefused,     // the lock file cannot be made: SystemError
    kCannotWrite,     // it takes nothing
    kNoAnswer,        // nobody answers
    kForeignAnswer,   // something else answers: Answer
    kLost,            // it went away while it was asked
    kNoFlashTable, // a simulator that sent no flash table: an older unit, or one that is too late
};

// Fixed size, for hosts: api/ravo.h has the same structure.
struct SearchEntry {
    int32_t port = 0;
    ProbeFinding finding = ProbeFinding::kAbsent;
    int32_t systemError = 0; // errno, 0 when the system refused nothing
    int32_t owner = 0;       // process id, 0 when unknown
    uint32_t answerLength = 0;
    unsigned char answer[12] = {};
    char ownerName[32] = {};
    char text[192] = {}; // all of it as one line, without line end
};

// Only one thread searches at a time; these are its.
void BeginSearchRound();
// Completes the entry's names and text and adds it.
void NoteProbe(SearchEntry entry);
void EndSearchRound();

// The last entry of a simulator that was found says from now on whether it has a flash table.
void NoteFlashTable(bool isThere);

// The entries of the last round that ended, in the order of the ports; false beyond the last one.
bool GetSearchEntry(size_t index, SearchEntry& entry);

// How the last round ended, by the port that tells the most; the later ones tell more.
enum class SearchResult {
    kNotConnected,  // there is no port
    kNotIdentified, // nobody answers, or not as the simulator does
    kRefused,       // the system lets nobody open or lock the port
    kBusy,          // another program holds it
    kFound,
};

// `text` gets one line for it.  `port` is the one asked for, -1 for all.
SearchResult SummariseSearch(int port, char* text, size_t size);
