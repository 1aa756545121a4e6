#include "lab/common/Failure.h"

#include "lab/common/StandardStreams.h"

#include <cstdio>

namespace lab {
namespace {

std::string MessageOf(const std::string& where, const std::string& problem,
                      const std::string& cure) {
    const std::string next = cure.empty() ? "" : "\n      " + cure;
    const std::string subject = where.empty() ? "\"\"" : Printable(where);
    return subject + ": " + problem + next;
}

} // namespace

Failure::Failure(ExitStatus status, const std::string& where, const std::string& problem,
                 const std::string& cure)
    : std::runtime_error(MessageOf(where, problem, cure)), m_status(status), m_where(where),
      m_problem(problem), m_cure(cure) {}

void Fail(ExitStatus status, const std::string& where, const std::string& problem,
          const std::string& cure) {
    throw Failure(status, where, problem, cure);
}

void Warn(const std::string& sentence) {
    std::fprintf(stderr, "ravo: warning: %s\n", sentence.c_str());
}

void PrintFailure(const Failure& failure, const std::string& program) {
    std::fflush(stdout); // results first, in case both streams go to the same place
    std::fprintf(stderr, "%s: %s\n", program.c_str(), failure.what());
}

void RequireWrittenResults() {
    const std::string reason = lab::OutputFailure();
    if (!reason.empty()) {
        Fail(kCannotWrite, "standard output", "cannot be written: " + reason + ".");
    }
}

} // namespace lab
