#pragma once

#include "tests/support/Files.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

// The programs as a user sees them: arguments in, two streams and an exit status out.

struct Result {
    int status = -1; // 128 + N when ended by signal N
    std::string out;
    std::string err;
};

// A program that runs beside the test.
class Process {
  public:
    enum class As { kMyself, kOrdinaryUser };

    // Starts build/bin/PROGRAM, or the program of an absolute path, in `directory` (empty: the
    // test's own).
    Process(const std::string& program, const std::vector<std::string>& arguments,
            const std::string& directory = {}, As user = As::kMyself);
    ~Process(); // ends it by force if it is still running
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void Signal(int number) const;
    Result Wait();

  private:
    pid_t m_child = -1;
    std::string m_outPath;
    std::string m_errPath;
};

Result Ravo(const std::vector<std::string>& arguments, const std::string& directory = {});

// The same as an ordinary user: as the user nobody when the test runs as root. Status 126 when that
// user may not run it.
Result RavoAsOrdinaryUser(const std::vector<std::string>& arguments);

// Runs one of the programs through a shell that redirects its streams this way.
Result ByShell(const std::string& program, const std::vector<std::string>& arguments,
               const std::string& redirection);

Result MakeRecord(const std::vector<std::string>& arguments);

// The samples, interleaved, as a format 16 signal file holds them.
std::string Format16(const std::vector<int16_t>& samples);
