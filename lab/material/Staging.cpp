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

std::string MakeDirectory(const std::string& parent, const char* cure) {
    std::string pattern = parent + "/ravo.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        Fail(kCannotWrite, parent, Format("cannot be written: %s.", std::strerror(errno)), cure);
    }
    return pattern;
}

std::string SystemsTemporary() {
    std::error_code error;
    const fs::path path = fs::temp_directory_path(error);
    return error ? "/tmp" : path.string();
}

} // namespace

TemporaryDirectory::TemporaryDirectory()
    : m_path(MakeDirectory(SystemsTemporary(), "Set TMPDIR to a directory that can be written.")) {}

TemporaryDirectory::TemporaryDirectory(const std::string& parent)
    : m_path(MakeDirectory(parent, "Check its permissions and the room on its disk.")) {}

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
