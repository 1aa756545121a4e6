#include "lab/material/readers/Files.h"

#include "lab/common/Failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace lab {

std::string Extension(const std::string& path) {
    const auto slash = path.find_last_of('/');
    const auto dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return "";
    }
    std::string extension = path.substr(dot);
    for (char& c : extension) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    return extension;
}

std::string DirectoryOf(const std::string& path) {
    return path.substr(0, path.find_last_of('/') + 1);
}

std::string StemOf(const std::string& path) {
    const std::string name = path.substr(path.find_last_of('/') + 1);
    return name.substr(0, name.find_last_of('.'));
}

void RequireFile(const std::string& path, const std::string& cure) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        Fail(kMaterial, path, Format("cannot be opened: %s.", std::strerror(errno)), cure);
    }
    if (S_ISDIR(status.st_mode)) {
        Fail(kMaterial, path, "is a directory.", "Give the path of a file in it.");
    }
    // Opening a pipe would block until its writer opens it.
    if (!S_ISREG(status.st_mode)) {
        Fail(kMaterial, path, "is not an ordinary file.", "Save its contents to a file.");
    }
    if (::access(path.c_str(), R_OK) != 0) {
        Fail(kMaterial, path, Format("cannot be read: %s.", std::strerror(errno)),
             "Check its permissions.");
    }
}

ByteFile::ByteFile(const std::string& path, const std::string& cure) : m_path(path) {
    RequireFile(path, cure);
    // The file may have been replaced by a pipe in the meantime.
    m_descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status {};
    if (m_descriptor < 0 || ::fstat(m_descriptor, &status) != 0) {
        const int reason = errno;
        Fail(kMaterial, path, Format("cannot be opened: %s.", std::strerror(reason)), cure);
    }
    m_size = status.st_size;
}

ByteFile::~ByteFile() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

ByteFile::ByteFile(ByteFile&& other) noexcept
    : m_path(std::move(other.m_path)), m_descriptor(std::exchange(other.m_descriptor, -1)),
      m_size(other.m_size) {}

std::size_t ByteFile::ReadAt(int64_t position, void* out, std::size_t count) const {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t read = ::pread(m_descriptor, static_cast<char*>(out) + done, count - done,
                                     position + static_cast<int64_t>(done));
        if (read == 0) {
            break;
        }
        if (read < 0 && errno != EINTR) {
            Fail(kMaterial, m_path, Format("cannot be read: %s.", std::strerror(errno)));
        }
        done += read > 0 ? static_cast<std::size_t>(read) : 0;
    }
    return done;
}

std::string ReadText(const std::string& path, std::size_t most) {
    const ByteFile file(path);
    if (file.Size() > static_cast<int64_t>(most)) {
        Fail(kMaterial, path,
             Format("holds %lld bytes; a file of its kind has at most %zu.",
                    static_cast<long long>(file.Size()), most),
             "Is it the right file?");
    }
    std::string text(static_cast<std::size_t>(file.Size()), '\0');
    text.resize(file.ReadAt(0, text.data(), text.size()));
    return text;
}

} // namespace lab
