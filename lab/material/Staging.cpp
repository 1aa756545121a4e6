#include "lab/material/Staging.h"

#include "lab/common/Failure.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdlib.h>
#include <unistd.h>

namespace lab {
namespace {

namespace fs = std::filesystem;

// The readers take names of at most 15 characters, and blanks and dots end a name in a record's
// header.
std::string PlainStem(const std::string& path) {
    constexpr std::size_t kLongestName = 15;
    std::string stem = fs::path(path).stem().string().substr(0, kLongestName);
    for (char& c : stem) {
        const bool isPlain =
            (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-';
        c = isPlain ? c : '_';
    }
    return stem.empty() ? "record" : stem;
}

std::string MakeDirectory() {
    std::error_code error;
    std::string pattern = (fs::temp_directory_path(error) / "ravo.XXXXXX").string();
    if (error || ::mkdtemp(pattern.data()) == nullptr) {
        Fail(kCannotWrite, pattern, Format("cannot be created: %s.", std::strerror(errno)),
             "Set TMPDIR to a directory that can be written.");
    }
    return pattern;
}

} // namespace

TemporaryDirectory::TemporaryDirectory() : m_path(MakeDirectory()) {}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

Staging::Staging(const std::string& path, const std::string& extension)
    : m_path(m_directory.Path() + "/" + PlainStem(path) + extension) {
    std::error_code error;
    fs::create_symlink(fs::absolute(path), m_path, error);
    if (error) {
        Fail(kCannotWrite, m_path, Format("cannot be created: %s.", error.message().c_str()),
             "Set TMPDIR to a directory that can be written.");
    }
}

} // namespace lab
