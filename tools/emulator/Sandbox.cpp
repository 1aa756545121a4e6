#include "tools/emulator/Sandbox.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sched.h>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace emulator {
namespace {

constexpr const char* kMark = "RAVO_SANDBOX";
constexpr const char* kMountNamespace = "/proc/self/ns/mnt";
constexpr mode_t kOpenToAll = 01777;
constexpr mode_t kOwnersOnly = 0755;

constexpr std::array<std::string_view, 7> kEssentialNodes = {"null",    "zero", "full", "random",
                                                             "urandom", "tty",  "shm"};

void Require(bool succeeded, const std::string& what) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void WriteFile(const char* path, const std::string& text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    Require(file != -1, std::string("open ") + path);
    const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const int error = errno;
    close(file);
    errno = error;
    Require(written, std::string("write ") + path);
}

void EnterUserNamespace() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    Require(unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0, "user namespace");
    // The kernel lets an ordinary user map a group only after giving up setgroups.
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", user + " " + user + " 1");
    WriteFile("/proc/self/gid_map", group + " " + group + " 1");
}

void EnterMountNamespace() {
    // A container's root may lack the right to a plain mount namespace and yet be allowed one
    // within a user namespace, so the right is tested instead of the user id.
    if (unshare(CLONE_NEWNS) != 0) {
        EnterUserNamespace();
    }
    Require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
}

void MountMemory(const fs::path& directory, mode_t mode) {
    std::array<char, 32> options{};
    std::snprintf(options.data(), options.size(), "mode=%04o", static_cast<unsigned>(mode));
    Require(mount("tmpfs", directory.c_str(), "tmpfs", MS_NOSUID, options.data()) == 0,
            "tmpfs on " + directory.string());
}

// One entry of a directory that is about to be covered by a mount, held open so that it can be
// bound into the new one.
class HeldEntry {
  public:
    explicit HeldEntry(const fs::path& path) : m_path(path) {
        struct stat status = {};
        if (lstat(path.c_str(), &status) != 0) {
            return;
        }
        m_type = status.st_mode & S_IFMT;
        if (m_type == S_IFLNK) {
            m_target = fs::read_symlink(path);
        } else {
            m_handle = open(path.c_str(), O_PATH | O_CLOEXEC);
        }
    }
    ~HeldEntry() {
        if (m_handle != -1) {
            close(m_handle);
        }
    }
    HeldEntry(HeldEntry&& other) noexcept
        : m_path(std::move(other.m_path)), m_target(std::move(other.m_target)),
          m_type(other.m_type), m_handle(std::exchange(other.m_handle, -1)) {}
    HeldEntry(const HeldEntry&) = delete;
    HeldEntry& operator=(const HeldEntry&) = delete;
    HeldEntry& operator=(HeldEntry&&) = delete;

    void PutBack() const {
        if (m_type == S_IFLNK) {
            fs::create_symlink(m_target, m_path);
        } else if (m_handle != -1) {
            MakeMountPoint();
            const std::string source = "/proc/self/fd/" + std::to_string(m_handle);
            Require(mount(source.c_str(), m_path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
                    "bind " + m_path.string());
        }
    }

  private:
    void MakeMountPoint() const {
        if (m_type == S_IFDIR) {
            fs::create_directory(m_path);
        } else {
            std::ofstream{m_path};
        }
    }

    fs::path m_path;
    fs::path m_target;
    mode_t m_type = 0;
    int m_handle = -1;
};

// Mounts a memory file system over a directory and restores those of its entries that are to be
// kept.
void Rebuild(const fs::path& directory, const std::function<bool(const fs::path&)>& isKept) {
    std::vector<HeldEntry> kept;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (isKept(entry.path())) {
            kept.emplace_back(entry.path());
        }
    }
    MountMemory(directory, kOwnersOnly);
    for (const HeldEntry& entry : kept) {
        entry.PutBack();
    }
}

// Gives the process its own empty directory at a path that may be missing on the machine, or lead
// elsewhere by a link.  The directory above it is rebuilt, since nothing may be created on the
// machine itself, and since a mount on one of the machine's own directories vanishes when a process
// outside removes that directory.
void OwnDirectory(const fs::path& wanted, mode_t mode) {
    const fs::path path = fs::weakly_canonical(wanted.parent_path()) / wanted.filename();
    fs::path above = path.parent_path();
    while (!fs::is_directory(above)) {
        above = above.parent_path();
    }
    if (above == above.root_path()) {
        errno = ENOENT;
        Require(false, path.string());
    }
    const fs::path obstacle = above / *path.lexically_relative(above).begin();
    Rebuild(above, [&](const fs::path& entry) { return entry != obstacle; });
    fs::create_directories(path);
    MountMemory(path, mode);
}

void OwnDevices() {
    Rebuild("/dev", [](const fs::path& entry) {
        return std::find(kEssentialNodes.begin(), kEssentialNodes.end(),
                         entry.filename().string()) != kEssentialNodes.end();
    });
    fs::create_directory("/dev/pts");
    Require(mount("devpts", "/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC,
                  "newinstance,ptmxmode=0666,mode=0620") == 0,
            "devpts on /dev/pts");
    fs::create_symlink("pts/ptmx", "/dev/ptmx");
    fs::create_symlink("/proc/self/fd", "/dev/fd");
    fs::create_symlink("/proc/self/fd/0", "/dev/stdin");
    fs::create_symlink("/proc/self/fd/1", "/dev/stdout");
    fs::create_symlink("/proc/self/fd/2", "/dev/stderr");
}

std::string MountNamespaceId() {
    std::error_code error;
    return fs::read_symlink(kMountNamespace, error).string();
}

void Enter() {
    std::error_code noSuchDirectory;
    const fs::path workingDirectory = fs::current_path(noSuchDirectory);
    EnterMountNamespace();
    OwnDevices();
    OwnDirectory("/var/lock", kOpenToAll);
    OwnDirectory("/usr/local/tarnwick", kOwnersOnly);
    fs::create_directory("/usr/local/tarnwick/ravo");
    // A working directory below one of the rebuilt directories still refers to the covered one.
    fs::current_path(workingDirectory, noSuchDirectory);
    setenv(kMark, MountNamespaceId().c_str(), 1);
}

} // namespace

bool EnterSandbox(std::string& whyNot) {
    try {
        Enter();
        return true;
    } catch (const std::exception& error) {
        whyNot = std::string("This system does not allow a private /dev and /var/lock (") +
                 error.what() +
                 "). Run as root; or allow user namespaces (sysctl kernel.unprivileged_userns_clone"
                 "=1, and on systems that have it kernel.apparmor_restrict_unprivileged_userns=0); "
                 "in a container, start it with the capability SYS_ADMIN or without its system "
                 "call filter.";
        return false;
    }
}

bool IsInSandbox() {
    // The mark names the namespace: a process that inherited the environment but not the namespace
    // is not misled by it.
    const char* mark = std::getenv(kMark);
    return mark != nullptr && *mark != '\0' && MountNamespaceId() == mark;
}

} // namespace emulator
