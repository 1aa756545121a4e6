#include "lab/common/Failure.h"

#include "lab/common/StandardStreams.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace lab {
namespace {

// Well-formed enough to pass on: every lead byte is followed by as many continuations as it says.
bool IsUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const std::size_t more = byte < 0x80   ? 0
                                 : byte < 0xC2 ? text.size()
                                 : byte < 0xE0 ? 1
                                 : byte < 0xF0 ? 2
                                 : byte < 0xF5 ? 3
                                               : text.size();
        if (more >= text.size() - i) {
            return false;
        }
        for (std::size_t k = 0; k < more; ++k) {
            if (!IsContinuation(text[++i])) {
                return false;
            }
        }
    }
    return true;
}

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
    std::fflush(stdout); // the results first, where both go to the same place
    std::fprintf(stderr, "%s: %s\n", program.c_str(), failure.what());
}

void RequireWrittenResults() {
    const std::string reason = lab::OutputFailure();
    if (!reason.empty()) {
        Fail(kCannotWrite, "standard output", "cannot be written: " + reason + ".");
    }
}

std::string Printable(const std::string& text) {
    std::string safe = text;
    std::replace_if(
        safe.begin(), safe.end(),
        [](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte < 0x20 || byte == 0x7F;
        },
        '?');
    return safe;
}

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

std::string ToUtf8(const std::string& text) {
    if (IsUtf8(text)) {
        return text;
    }
    std::string converted;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            converted += c;
        } else {
            converted += static_cast<char>(0xC0 | (byte >> 6));
            converted += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return converted;
}

std::string Format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::vector<char> text(static_cast<std::size_t>(length < 0 ? 0 : length) + 1);
    std::vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    return text.data();
}

} // namespace lab
