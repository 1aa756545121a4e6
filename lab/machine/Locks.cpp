#include "lab/machine/Locks.h"

#include "lab/common/Failure.h"
#include "lab/machine/Processes.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lab {
namespace {

std::string LockPath(const Machine& machine, int port) {
    return machine.locks + Format("/tarnwick.ACM%d.lock", port);
}

// The process id in the lock file; 0 without a file.
int32_t OwnerOf(const Machine& machine, int port) {
    const int file =
        ::open(LockPath(machine, port).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file == -1) {
        return 0;
    }
    int32_t owner = 0;
    const ssize_t length = ::read(file, &owner, sizeof owner);
    ::close(file);
    return length == sizeof owner ? owner : 0;
}

Finding Bad(const char* code, const std::string& sentence, const std::string& cure) {
    return {State::kFailed, "lock", code, sentence, cure};
}

Finding Unreadable(const std::string& path) {
    const int reason = errno;
    return Bad("lock-unreadable",
               Format("%s may not be read: %s", path.c_str(), std::strerror(reason)),
               "See who holds the port: sudo ravo doctor\n"
               "If no program does, the library still never removes this file: sudo rm " +
                   path);
}

Finding Short(const std::string& path, ssize_t length) {
    return Bad("lock-short",
               Format("%s holds %zd of the 4 bytes of a process number", path.c_str(),
                      length < 0 ? 0 : length),
               "The library never removes such a file: sudo rm " + path);
}

// 0 and negative numbers denote groups of processes, and such a group always exists.
Finding Garbled(const std::string& path, int32_t owner) {
    return Bad("lock-garbled", Format("%s names no process: %d", path.c_str(), owner),
               "The library treats its owner as alive and never removes it: sudo rm " + path);
}

Finding Alive(const Machine& machine, const std::string& path, int32_t owner) {
    const Process process = ProcessOf(machine, owner);
    return Bad("lock-alive", path + " belongs to " + Describe(process),
               Format("End it: kill %d\n", process.id) +
                   "If it has nothing to do with the simulator, its number was once that of a "
                   "program that crashed: sudo rm " +
                   path);
}

// An owner that the library may not signal counts as gone, too.
Finding Dead(const std::string& path, int32_t owner) {
    return {State::kWarning, "lock", "lock-dead",
            Format("%s was left by process %d, which has ended", path.c_str(), owner),
            "Nothing to do: the library takes it over."};
}

Finding OwnedBy(const Machine& machine, const std::string& path, int32_t owner) {
    if (::kill(owner, 0) != 0) {
        return Dead(path, owner);
    }
    return owner > 0 ? Alive(machine, path, owner) : Garbled(path, owner);
}

} // namespace

Finding CheckLockDirectory(const Machine& machine) {
    const std::string& path = machine.locks;
    struct stat directory {};
    if (::stat(path.c_str(), &directory) != 0 || !S_ISDIR(directory.st_mode)) {
        return {State::kFailed, "lock directory", "lock-directory-missing",
                path + " is not a directory",
                "Create it: sudo mkdir -m 1777 -p $(realpath -m " + path + ")"};
    }
    if (::faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        const int reason = errno;
        return {State::kFailed, "lock directory", "lock-directory-denied",
                Format("%s may not be written: %s", path.c_str(), std::strerror(reason)),
                "Let every user write there, as is usual: sudo chmod 1777 " + path};
    }
    return {State::kOk, "lock directory", "writable", path + " may be written", ""};
}

// The file is opened and read as the library does it, so that whatever fails there fails here.
Finding CheckLock(const Machine& machine, int port) {
    const std::string path = LockPath(machine, port);
    struct stat entry {};
    if (::lstat(path.c_str(), &entry) != 0 && errno == ENOENT) {
        return {State::kOk, "lock", "free", "there is no lock file", ""};
    }
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file == -1) {
        return Unreadable(path);
    }
    int32_t owner = 0;
    const ssize_t length = ::read(file, &owner, sizeof owner);
    ::close(file);
    return length < static_cast<ssize_t>(sizeof owner) ? Short(path, length)
                                                       : OwnedBy(machine, path, owner);
}

std::string LockHolder(const Machine& machine, int port) {
    const int32_t owner = OwnerOf(machine, port);
    const bool isOther = owner > 0 && owner != ::getpid();
    return isOther && ::kill(owner, 0) == 0 ? Describe(ProcessOf(machine, owner)) : "";
}

void RemoveOwnLocks(const Machine& machine) {
    constexpr int kPorts = 128;
    for (int port = 0; port < kPorts; ++port) {
        if (OwnerOf(machine, port) == ::getpid()) {
            ::unlink(LockPath(machine, port).c_str());
        }
    }
}

PortLock::PortLock(const Machine& machine, int port)
    : m_path(LockPath(machine, port)),
      m_file(::open(m_path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
    const int32_t owner = ::getpid();
    if (IsTaken() && ::write(m_file, &owner, sizeof owner) != sizeof owner) {
        ::close(m_file);
        ::unlink(m_path.c_str());
        m_file = -1;
    }
}

PortLock::~PortLock() {
    if (IsTaken()) {
        ::close(m_file);
        ::unlink(m_path.c_str());
    }
}

} // namespace lab
