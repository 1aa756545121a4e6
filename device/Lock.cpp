#include "device/Lock.h"

#include "platform/SharedValue.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

int32_t g_nLockFile = -1;
char g_szLockFilePath[128];

namespace {

constexpr const char* kLockDirectory = "/var/lock";

// A descriptor for the length of a scope.
class LockFile {
  public:
    LockFile(const char* path, int flags)
        : m_descriptor(open(path, O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW | flags,
                            S_IRUSR | S_IWUSR)) {}
    ~LockFile() {
        if (m_descriptor != -1) {
            close(m_descriptor);
        }
    }
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;

    bool IsOpen() const { return m_descriptor != -1; }
    int Descriptor() const { return m_descriptor; }
    int Keep() {
        const int descriptor = m_descriptor;
        m_descriptor = -1;
        return descriptor;
    }

  private:
    int m_descriptor;
};

// Another host may have removed the file and made its own since it was opened.
bool IsFileAt(int descriptor, const char* path) {
    struct stat opened {};
    struct stat named {};
    return fstat(descriptor, &opened) == 0 && lstat(path, &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool IsOrdinary(int descriptor) {
    struct stat information {};
    return fstat(descriptor, &information) == 0 && S_ISREG(information.st_mode);
}

LockAttempt Failure(const char* path) {
    const int error = errno;
    struct stat directory {};
    const bool isThere = stat(kLockDirectory, &directory) == 0 && S_ISDIR(directory.st_mode);
    const bool isUnreadable = isThere && faccessat(AT_FDCWD, path, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
    if (!isThere) {
        return {LockOutcome::kNoDirectory, error, 0};
    }
    return {isUnreadable ? LockOutcome::kUnreadable : LockOutcome::kFailed, error, 0};
}

LockAttempt Claim(LockFile& file, const char* path) {
    const int32_t owner = getpid();
    errno = 0;
    if (write(file.Descriptor(), &owner, sizeof owner) != static_cast<ssize_t>(sizeof owner)) {
        const int error = errno;
        unlink(path);
        return {LockOutcome::kFailed, error, 0};
    }
    if (!IsFileAt(file.Descriptor(), path)) {
        return {LockOutcome::kFailed, ESTALE, 0};
    }
    StoreShared(g_nLockFile, file.Keep());
    return {LockOutcome::kTaken, 0, 0};
}

// Why a lock that exists cannot be taken; kTaken when it was stale and has been removed.
LockAttempt RemoveIfStale(const LockFile& file, const char* path) {
    int32_t owner = 0;
    if (!IsOrdinary(file.Descriptor()) ||
        read(file.Descriptor(), &owner, sizeof owner) < static_cast<ssize_t>(sizeof owner)) {
        return {LockOutcome::kUnreadable, 0, 0};
    }
    // Ids of 0 and -1 name groups of processes and so count as alive; an owner that this process
    // may not signal counts as gone.
    if (kill(owner, 0) == 0) {
        return {LockOutcome::kHeld, 0, owner};
    }
    // Of the hosts that find the same stale file only the one that holds it may remove it, and only
    // while it is still there: by then another host may have removed it and made its own.
    if (flock(file.Descriptor(), LOCK_EX | LOCK_NB) == 0 && IsFileAt(file.Descriptor(), path) &&
        unlink(path) != 0) {
        return {LockOutcome::kFailed, errno, 0};
    }
    return {LockOutcome::kTaken, 0, 0};
}

template <size_t N>
void SetSharedText(char (&shared)[N], const char* text) {
    char padded[N] = {};
    memcpy(padded, text, strnlen(text, N - 1));
    StoreSharedBytes(shared, padded, N);
}

} // namespace

LockAttempt TryLockDevice(int port) {
    char path[sizeof g_szLockFilePath];
    snprintf(path, sizeof path, "%s/tarnwick.ACM%d.lock", kLockDirectory, port);
    SetSharedText(g_szLockFilePath, path);

    LockAttempt obstacle = {LockOutcome::kHeld, 0, 0};
    for (int attempt = 0; attempt < 2; ++attempt) {
        LockFile created(path, O_CREAT | O_EXCL);
        if (created.IsOpen()) {
            return Claim(created, path);
        }
        if (errno != EEXIST) {
            return Failure(path);
        }
        const LockFile existing(path, 0);
        if (!existing.IsOpen()) {
            return Failure(path);
        }
        obstacle = RemoveIfStale(existing, path);
        if (obstacle.outcome == LockOutcome::kHeld) {
            return obstacle;
        }
    }
    // Another host recreated the file after each of two removals, or its owner cannot be
    // determined.
    return obstacle.outcome == LockOutcome::kTaken ? LockAttempt{LockOutcome::kHeld, 0, 0}
                                                   : obstacle;
}

bool LockDevice(int port) {
    return TryLockDevice(port).outcome == LockOutcome::kTaken;
}

void UnlockDevice() {
    ReleaseLock(DetachLock());
}

HeldLock DetachLock() {
    HeldLock lock{};
    lock.file = __atomic_exchange_n(&g_nLockFile, -1, __ATOMIC_RELAXED);
    if (lock.file != -1) {
        LoadSharedBytes(lock.path, g_szLockFilePath, sizeof lock.path);
        SetSharedText(g_szLockFilePath, "");
    }
    return lock;
}

void ReleaseLock(const HeldLock& lock) {
    if (lock.file == -1) {
        return;
    }
    if (IsFileAt(lock.file, lock.path)) {
        unlink(lock.path);
    }
    close(lock.file);
}
