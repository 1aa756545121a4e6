#include "lab/machine/Processes.h"

#include "lab/common/Failure.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace lab {
namespace {

namespace fs = std::filesystem;

struct Holders {
    std::vector<Process> processes;
    int unseen = 0; // programs whose open files may not be inspected
};

std::string DirectoryOf(const Machine& machine, int id) {
    return machine.processes + "/" + std::to_string(id);
}

std::vector<int> ProcessIds(const Machine& machine) {
    std::vector<int> ids;
    std::error_code error;
    for (fs::directory_iterator entry(machine.processes, error), end; !error && entry != end;
         entry.increment(error)) {
        const int id = std::atoi(entry->path().filename().c_str());
        if (id > 0 && id != ::getpid()) {
            ids.push_back(id);
        }
    }
    return ids;
}

// A program that is being started by this one shares its open files until it begins to run.
bool IsOwnChild(const Machine& machine, int id) {
    std::ifstream file(DirectoryOf(machine, id) + "/status");
    const std::string parent = "PPid:\t" + std::to_string(::getpid());
    for (std::string line; std::getline(file, line);) {
        if (line == parent) {
            return true;
        }
    }
    return false;
}

// The kernel's own threads have no command line and no files.
bool IsProgram(const Machine& machine, int id) {
    return std::ifstream(DirectoryOf(machine, id) + "/cmdline").get() != EOF;
}

// Every mount of pseudo-terminals numbers its own from 0; all other device numbers are
// machine-wide.
bool IsSameDevice(const struct stat& a, const struct stat& b) {
    constexpr unsigned int kFirstPseudoTerminals = 136;
    constexpr unsigned int kLastPseudoTerminals = 143;
    const unsigned int kind = major(a.st_rdev);
    const bool isPseudo = kind >= kFirstPseudoTerminals && kind <= kLastPseudoTerminals;
    return S_ISCHR(a.st_mode) && S_ISCHR(b.st_mode) && a.st_rdev == b.st_rdev &&
           (!isPseudo || a.st_dev == b.st_dev);
}

enum class Look { kFree, kHolds, kForbidden };

Look LookAt(const std::string& files, const struct stat& device) {
    std::error_code error;
    for (fs::directory_iterator entry(files, error), end; !error && entry != end;
         entry.increment(error)) {
        struct stat file {};
        if (::stat(entry->path().c_str(), &file) == 0 && IsSameDevice(file, device)) {
            return Look::kHolds;
        }
    }
    return error == std::errc::permission_denied ? Look::kForbidden : Look::kFree;
}

Holders FindHolders(const Machine& machine, const struct stat& device) {
    Holders holders;
    for (const int id : ProcessIds(machine)) {
        const Look look = LookAt(DirectoryOf(machine, id) + "/fd", device);
        if (look == Look::kHolds && !IsOwnChild(machine, id)) {
            holders.processes.push_back(ProcessOf(machine, id));
        } else if (look == Look::kForbidden && IsProgram(machine, id)) {
            ++holders.unseen;
        }
    }
    return holders;
}

Finding HeldBy(const std::vector<Process>& processes) {
    std::string names;
    std::string ids;
    for (const Process& process : processes) {
        names += (names.empty() ? "" : ", ") + Describe(process);
        ids += " " + std::to_string(process.id);
    }
    const bool isModemManager = names.rfind("ModemManager ", 0) == 0;
    return {State::kFailed, "use", "held", "held by " + names,
            isModemManager ? "It probes new ports for up to 20 seconds: wait, and see the finding "
                             "about modem probing."
                           : "End it, or make it release the port: kill" + ids};
}

} // namespace

std::string Describe(const Process& process) {
    return Format("%s (process %d)", process.name.c_str(), process.id);
}

Process ProcessOf(const Machine& machine, int id) {
    std::string name;
    std::ifstream file(DirectoryOf(machine, id) + "/comm");
    std::getline(file, name);
    return {id, name.empty() ? "?" : Printable(name)};
}

std::optional<Process> FindProcess(const Machine& machine, const std::string& name) {
    for (const int id : ProcessIds(machine)) {
        const Process process = ProcessOf(machine, id);
        if (process.name == name) {
            return process;
        }
    }
    return std::nullopt;
}

Finding CheckUse(const Machine& machine, const std::string& path) {
    std::error_code error;
    const fs::directory_iterator processes(machine.processes, error);
    if (error) {
        return {State::kWarning, "use", "unknown",
                machine.processes + " cannot be read: " + error.message(), ""};
    }
    struct stat device {};
    Holders holders;
    if (::stat(path.c_str(), &device) == 0 && !HappensSoon(machine, [&] {
            holders = FindHolders(machine, device);
            return holders.processes.empty();
        })) {
        return HeldBy(holders.processes);
    }
    const std::string unseen =
        holders.unseen == 0
            ? ""
            : Format("; %d processes of other users could not be inspected", holders.unseen);
    return {State::kOk, "use", "free", "no program holds it" + unseen, ""};
}

} // namespace lab
