#pragma once

#include "lab/common/Text.h"

#include <stdexcept>
#include <string>

namespace lab {

// The meaning of each exit status for scripts. A number keeps its meaning once it is published.
enum ExitStatus {
    kDone = 0,
    kUsage = 1,        // the command line is wrong
    kMaterial = 2,     // a file cannot be read, or holds nothing that can be played
    kNoSimulator = 3,  // no simulator was found in time
    kOutputLost = 4,   // output ended before it should: simulator lost or stalled
    kDifferent = 5,    // a comparison exceeded its tolerance
    kCannotWrite = 6,  // a result could not be written
    kInterrupted = 128 // plus the signal's number
};

// Ends a command. It is thrown, so that everything opened so far is released. what() is the whole
// message: where, problem, and the cure on a line of its own.
class Failure : public std::runtime_error {
  public:
    Failure(ExitStatus status, const std::string& where, const std::string& problem,
            const std::string& cure = {});

    ExitStatus Status() const { return m_status; }
    const std::string& Where() const { return m_where; }
    const std::string& Problem() const { return m_problem; }
    const std::string& Cure() const { return m_cure; }

  private:
    ExitStatus m_status;
    std::string m_where;
    std::string m_problem;
    std::string m_cure;
};

// `where` is the file or thing concerned, `problem` what is wrong with it (a sentence without its
// subject), `cure` what to do, which may be empty.
[[noreturn]] void Fail(ExitStatus status, const std::string& where, const std::string& problem,
                       const std::string& cure = {});

// Notes go to standard error; standard output carries results only.
void Warn(const std::string& sentence);
void PrintFailure(const Failure& failure, const std::string& program = "ravo");

// Fails when output written to standard output was lost.
void RequireWrittenResults();

} // namespace lab
