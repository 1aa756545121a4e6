#pragma once

#include "ravo/error.h"

#include <cstddef>
#include <mutex>

// Why the last failed call of each thread failed.  Everything here may be called at any time, even
// in the constructors of globals and while the process ends.  Nothing here allocates memory.

constexpr std::size_t kFailureTextSize = 1024;

struct Failure {
    RAVO_ERROR code = RAVO_ERROR_NONE;
    char text[kFailureTextSize] = {}; // UTF-8 as far as the paths in it are; always terminated
};

// Sets the calling thread's reason; the text as printf formats it, cut to fit.  The place that
// detects the failure sets it; its callers pass the failure on and do not touch the reason. errno
// keeps its value.
__attribute__((format(printf, 2, 3))) void SetLastFailure(RAVO_ERROR code, const char* format, ...);
void SetLastFailure(const Failure& failure);

const Failure& LastFailure();

// Restores the calling thread's reason at the end of the scope: for an attempt whose failure does
// not fail the call.
class CKeepLastFailure {
  public:
    CKeepLastFailure() : m_failure(LastFailure()) {}
    ~CKeepLastFailure() { SetLastFailure(m_failure); }
    CKeepLastFailure(const CKeepLastFailure&) = delete;
    CKeepLastFailure& operator=(const CKeepLastFailure&) = delete;

  private:
    Failure m_failure;
};

// A reason that one thread finds and an export on another returns.  Needs no constructor and no
// destructor at run time.
class CSharedFailure {
  public:
    // Stores the calling thread's reason.
    void Keep();
    void Clear();
    // Makes the stored reason that of the calling thread.  False, with nothing changed, when none
    // is stored.
    bool Fetch() const;

  private:
    mutable std::mutex m_mutex;
    Failure m_failure;
};

// Copies a text, cut between two characters of UTF-8 to fit into `size` bytes with its terminator.
void CopyTruncated(char* destination, std::size_t size, const char* text);
