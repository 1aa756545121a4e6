#include "lab/machine/Ports.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr int kPorts = 128;
constexpr const char* kRule = "70-ravo.rules";

bool IsThere(const std::string& path) {
    struct stat node {};
    return ::lstat(path.c_str(), &node) == 0;
}

std::string ListOf(const Machine& machine, const std::vector<int>& ports) {
    std::string list;
    for (const int port : ports) {
        list += (list.empty() ? "" : " ") + PortPath(machine, port);
    }
    return list;
}

std::string DriverCure(const Machine& machine) {
    return fs::exists(machine.system + "/bus/usb/drivers/cdc_acm")
               ? "If it is plugged in, try another cable or USB port; `dmesg` shows whether it "
                 "arrives."
               : "If it is plugged in, the kernel's driver is not loaded: sudo modprobe cdc_acm";
}

std::string UserName(uid_t id) {
    const passwd* entry = ::getpwuid(id);
    return entry != nullptr ? entry->pw_name : std::to_string(id);
}

std::string GroupName(gid_t id) {
    const group* entry = ::getgrgid(id);
    return entry != nullptr ? entry->gr_name : std::to_string(id);
}

bool Contains(const std::vector<gid_t>& groups, gid_t id) {
    return std::find(groups.begin(), groups.end(), id) != groups.end();
}

std::vector<gid_t> GroupsGiven(const passwd& user) {
    int count = 0;
    ::getgrouplist(user.pw_name, user.pw_gid, nullptr, &count);
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    ::getgrouplist(user.pw_name, user.pw_gid, groups.data(), &count);
    return groups;
}

std::vector<gid_t> GroupsTaken() {
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(::getgroups(0, nullptr), 0)));
    ::getgroups(static_cast<int>(groups.size()), groups.data());
    groups.push_back(::getegid());
    return groups;
}

// Joining root's group is never the cure.
bool IsGroupTheWay(gid_t group, mode_t mode) {
    constexpr mode_t kReadAndWrite = S_IRGRP | S_IWGRP;
    return group != 0 && (mode & kReadAndWrite) == kReadAndWrite;
}

bool MayUse(const std::string& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) == 0;
}

Finding Denied(const Machine& machine, const std::string& path) {
    const User user = CurrentUser();
    struct stat node {};
    if (::stat(path.c_str(), &node) != 0) {
        return {State::kFailed, "permission", "no-device",
                Format("leads nowhere: %s", std::strerror(errno)),
                "Plug the simulator in again; what is left of the name: rm " + path};
    }
    return {State::kFailed, "permission", "permission-denied",
            Format("%s may not use it: it is for %s and the group %s, mode %04o", user.name.c_str(),
                   UserName(node.st_uid).c_str(), GroupName(node.st_gid).c_str(),
                   node.st_mode & 07777U),
            PermissionCure(machine, user, node.st_gid, node.st_mode)};
}

} // namespace

std::string PortPath(const Machine& machine, int port) {
    return machine.devices + Format("/ttyACM%d", port);
}

std::vector<int> PortsPresent(const Machine& machine, std::optional<int> wanted) {
    std::vector<int> ports;
    for (int port = wanted.value_or(0); port < (wanted ? *wanted + 1 : kPorts); ++port) {
        if (IsThere(PortPath(machine, port))) {
            ports.push_back(port);
        }
    }
    return ports;
}

Finding CheckPorts(const Machine& machine, std::optional<int> wanted) {
    const std::vector<int> ports = PortsPresent(machine, wanted);
    if (!ports.empty()) {
        return {State::kOk, "ports", "present", ListOf(machine, ports), ""};
    }
    const std::string cure = "Plug the simulator in and switch it on.\n" + DriverCure(machine) +
                             "\nWithout a simulator, run ravo under ravo-emulator.";
    const std::vector<int> others = PortsPresent(machine, std::nullopt);
    if (wanted && !others.empty()) {
        return {State::kFailed, "ports", "no-device",
                "there is no " + PortPath(machine, *wanted) + ", but there is " +
                    ListOf(machine, others),
                cure};
    }
    return {State::kFailed, "ports", "no-device",
            "there is no " + (wanted ? PortPath(machine, *wanted) : machine.devices + "/ttyACM*"),
            cure};
}

Finding CheckPermission(const Machine& machine, const std::string& path) {
    if (!HappensSoon(machine, [&] { return MayUse(path); })) {
        return Denied(machine, path);
    }
    struct stat node {};
    if (::stat(path.c_str(), &node) == 0 && !S_ISCHR(node.st_mode)) {
        const bool isFolder = S_ISDIR(node.st_mode);
        return {State::kFailed, "permission", "not-a-device",
                isFolder ? "is a folder, not a device" : "is a file, not a device",
                "Delete it (sudo rm " + std::string(isFolder ? "-r " : "") + path +
                    ") and plug the simulator in again."};
    }
    return {State::kOk, "permission", "granted", "may be read and written", ""};
}

User CurrentUser() {
    User user;
    user.taken = GroupsTaken();
    const passwd* entry = ::getpwuid(::geteuid());
    user.given = entry != nullptr ? GroupsGiven(*entry) : user.taken;
    user.name = UserName(::geteuid());
    return user;
}

std::string PermissionCure(const Machine& machine, const User& user, gid_t group, mode_t mode) {
    if (!IsGroupTheWay(group, mode)) {
        return RuleCure(machine);
    }
    const std::string name = GroupName(group);
    if (Contains(user.given, group) && !Contains(user.taken, group)) {
        return user.name + " is in the group " + name +
               ", but not yet in this login: log out and in again.";
    }
    return "Join the group and log in again: sudo usermod -aG " + name + " " + user.name +
           "\nOr: " + RuleCure(machine);
}

std::string RuleCure(const Machine& machine) {
    for (const std::string& directory : machine.udevRules) {
        const std::string rule = directory + "/" + kRule;
        if (fs::exists(rule)) {
            return rule + " gives the port to the user at the machine's own screen and keeps "
                          "modem probing away from it: plug the simulator in again.";
        }
    }
    return std::string("Install the udev rule ") + kRule +
           ", which gives the port to the user at the machine's own screen and keeps modem probing "
           "away from it; then plug the simulator in again.";
}

} // namespace lab
