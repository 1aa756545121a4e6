#include "platform/Files.h"

#include "platform/LastError.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kCreate = O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr mode_t kReadWriteForAll = 0666; // as far as the process's mask allows

void SetFileFailure(RAVO_ERROR otherwise, const char* path, int error) {
    RAVO_ERROR code = otherwise;
    if (error == ENOENT || error == ENOTDIR) {
        code = RAVO_ERROR_NO_SUCH_FILE;
    } else if (error == ENOMEM) {
        code = RAVO_ERROR_MEMORY;
    }
    const char* description = strerrordesc_np(error);
    SetLastFailure(code, "%s: %s", path, description == nullptr ? "unknown error" : description);
}

void SetNotOrdinary(RAVO_ERROR code, const char* path) {
    SetLastFailure(code, "%s: not an ordinary file", path);
}

bool IsOrdinary(int descriptor) {
    struct stat information = {};
    return fstat(descriptor, &information) == 0 && S_ISREG(information.st_mode);
}

// Takes ownership of the descriptor, also on failure.
FILE* ToFile(int descriptor, const char* mode) {
    FILE* file = fdopen(descriptor, mode);
    if (file == nullptr) {
        close(descriptor);
    }
    return file;
}

// Merely opening a device can have an effect, so devices are not opened at all.
bool IsOpenable(const char* path, RAVO_ERROR otherwise) {
    struct stat information = {};
    if (path == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no path is given");
        return false;
    }
    if (stat(path, &information) == 0 && !S_ISREG(information.st_mode)) {
        SetNotOrdinary(otherwise, path);
        return false;
    }
    return true;
}

// Whether the link at `path` may be followed: in a folder that everybody may write to, a link that
// belongs to another user leads to a file of that user's choice.  False, with the reason, also when
// the link no longer exists.
bool RequireTrustedLink(const char* path) {
    struct stat information = {};
    if (lstat(path, &information) != 0) {
        SetWriteFailure(path, errno);
        return false;
    }
    const bool isTrusted = information.st_uid == geteuid() || information.st_uid == 0;
    if (!isTrusted || !S_ISLNK(information.st_mode)) {
        SetLastFailure(RAVO_ERROR_WRITE, "%s: a link that belongs to another user", path);
        return false;
    }
    return true;
}

// The descriptor, or -1 with the reason.
int OpenForWriting(const char* path) {
    int descriptor = open(path, kCreate | O_NOFOLLOW, kReadWriteForAll);
    if (descriptor < 0 && errno == ELOOP) {
        if (!RequireTrustedLink(path)) {
            return -1;
        }
        descriptor = open(path, kCreate, kReadWriteForAll);
    }
    if (descriptor < 0) {
        SetWriteFailure(path, errno);
    }
    return descriptor;
}

} // namespace

// The name may come to denote another file between the check and the opening: O_NONBLOCK does not
// wait for the other end of a pipe, and the descriptor is checked again.
FILE* OpenOrdinaryFile(const char* path) {
    if (!IsOpenable(path, RAVO_ERROR_NOT_READABLE)) {
        return nullptr;
    }
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) {
        SetReadFailure(path, errno);
        return nullptr;
    }
    if (!IsOrdinary(descriptor)) {
        SetNotOrdinary(RAVO_ERROR_NOT_READABLE, path);
        close(descriptor);
        return nullptr;
    }
    return ToFile(descriptor, "rb");
}

OwnedFile CreateOrdinaryFile(const char* path) {
    if (!IsOpenable(path, RAVO_ERROR_WRITE)) {
        return nullptr;
    }
    const int descriptor = OpenForWriting(path);
    if (descriptor < 0) {
        return nullptr;
    }
    if (!IsOrdinary(descriptor) || ftruncate(descriptor, 0) != 0) {
        SetNotOrdinary(RAVO_ERROR_WRITE, path);
        close(descriptor);
        return nullptr;
    }
    return OwnedFile(ToFile(descriptor, "wb"));
}

// The id of the process distinguishes two processes that create the same file.
CFileInTheMaking::CFileInTheMaking(std::string finalPath)
    : m_finalPath(std::move(finalPath)),
      m_path(m_finalPath + '.' + std::to_string(getpid()) + ".part") {}

CFileInTheMaking::~CFileInTheMaking() {
    if (!m_path.empty()) {
        unlink(m_path.c_str());
    }
}

bool CFileInTheMaking::Create() {
    unlink(m_path.c_str());
    m_file = CreateOrdinaryFile(m_path.c_str());
    return m_file != nullptr;
}

bool CFileInTheMaking::Close() {
    const bool onDisk = std::fflush(m_file.get()) == 0 && fsync(fileno(m_file.get())) == 0;
    const int error = errno;
    if (!CloseWritten(std::move(m_file), m_path.c_str())) {
        return false;
    }
    if (!onDisk) {
        SetWriteFailure(m_path.c_str(), error);
    }
    return onDisk;
}

bool CFileInTheMaking::Rename() {
    if (std::rename(m_path.c_str(), m_finalPath.c_str()) != 0) {
        SetWriteFailure(m_finalPath.c_str(), errno);
        return false;
    }
    m_path.clear();
    return true;
}

bool CloseWritten(OwnedFile file, const char* path) {
    errno = 0;
    const bool flushed = std::fflush(file.get()) == 0;
    const bool failed = std::ferror(file.get()) != 0;
    const int error = errno;
    if (std::fclose(file.release()) == 0 && flushed && !failed) {
        return true;
    }
    SetWriteFailure(path, error == 0 ? EIO : error);
    return false;
}

void SetReadFailure(const char* path, int error) {
    SetFileFailure(RAVO_ERROR_NOT_READABLE, path, error);
}

void SetWriteFailure(const char* path, int error) {
    SetFileFailure(RAVO_ERROR_WRITE, path, error);
}
