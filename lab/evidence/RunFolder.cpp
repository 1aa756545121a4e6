#include "lab/evidence/RunFolder.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kFileMode = 0644;
constexpr const char* kJournal = "journal.jsonl";

// Whether the folder holds only what a run that ended at its very beginning leaves.
bool IsUntouched(const fs::path& folder) {
    std::error_code error;
    const fs::directory_iterator entries(folder, error);
    return std::all_of(begin(entries), end(entries), [](const fs::directory_entry& entry) {
        std::error_code ignored;
        return entry.path().filename() == kJournal && fs::file_size(entry.path(), ignored) == 0;
    });
}

void MakeFolder(const std::string& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error && !fs::is_directory(path)) {
        FailToWrite(path, error.value());
    }
}

bool WriteAll(int file, const std::string& content) {
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t count = ::write(file, content.data() + done, content.size() - done);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

} // namespace

void FailToWrite(const std::string& path, int error) {
    const char* cure = error == ENOSPC || error == EDQUOT
                           ? "Make room and continue with --resume: what is in the journal is kept."
                       : error == EACCES || error == EROFS || error == EPERM
                           ? "Make the folder writable, or give --output another one."
                           : "Check the path and the disk, and continue with --resume.";
    Fail(kCannotWrite, path, Format("cannot be written: %s.", std::strerror(error)), cure);
}

RunFolder::RunFolder(const std::string& path, bool mayHoldRun) : m_path(path) {
    MakeFolder(path);
    m_handle = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_handle == -1) {
        FailToWrite(path, errno);
    }
    if (::flock(m_handle, LOCK_EX | LOCK_NB) != 0) {
        const bool isInUse = errno == EWOULDBLOCK;
        ::close(m_handle);
        if (!isInUse) {
            FailToWrite(path, errno);
        }
        Fail(kCannotWrite, path, "is in use by another run.",
             "Wait until that has ended, or give --output another folder.");
    }
    const bool holdsRun = ::faccessat(m_handle, kJournal, F_OK, 0) == 0;
    if (!IsUntouched(path) && !(mayHoldRun && holdsRun)) {
        ::close(m_handle);
        Fail(kCannotWrite, path, holdsRun ? "is not empty." : "holds files but no run.",
             holdsRun ? "Continue its run with --resume, or give --output another folder."
                      : "Give --output another folder.");
    }
}

RunFolder::~RunFolder() {
    ::close(m_handle);
}

bool RunFolder::IsInPlace() const {
    struct stat open {};
    struct stat named {};
    return ::fstat(m_handle, &open) == 0 && ::stat(m_path.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

void RunFolder::Replace(const std::string& name, const std::string& content) const {
    const std::string temporary = "." + name + ".new";
    const int file =
        ::openat(m_handle, temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode);
    if (file == -1) {
        FailToWrite(m_path + "/" + name, errno);
    }
    const bool isWritten = WriteAll(file, content) && ::fsync(file) == 0;
    const int writeError = errno;
    const bool isClosed = ::close(file) == 0;
    if (!isWritten || !isClosed ||
        ::renameat(m_handle, temporary.c_str(), m_handle, name.c_str()) != 0) {
        const int error = isWritten ? errno : writeError;
        ::unlinkat(m_handle, temporary.c_str(), 0);
        FailToWrite(m_path + "/" + name, error);
    }
    Sync();
}

void RunFolder::Sync() const {
    if (::fsync(m_handle) != 0 && errno != EINVAL) { // some file systems cannot sync folders
        FailToWrite(m_path, errno);
    }
}

} // namespace lab
