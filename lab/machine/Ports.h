#pragma once

#include "lab/machine/Finding.h"
#include "lab/machine/Machine.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

// The serial ports that exist, and whether this user may use them.
namespace lab {

std::string PortPath(const Machine& machine, int port);

// The numbers of the existing ports, in the order in which the library searches them: all, or only
// `wanted`.
std::vector<int> PortsPresent(const Machine& machine, std::optional<int> wanted);

Finding CheckPorts(const Machine& machine, std::optional<int> wanted);

// Waits for the machine's patience for a permission to be granted.
Finding CheckPermission(const Machine& machine, const std::string& path);

// A user who wants to use a port: the groups that are configured, and those that are active in this
// login.
struct User {
    std::string name;
    std::vector<gid_t> given;
    std::vector<gid_t> taken;
};

User CurrentUser();

// How `user` gets access to a node of this group and these permission bits.
std::string PermissionCure(const Machine& machine, const User& user, gid_t group, mode_t mode);

// The rule that gives the port to the user at the seat and keeps modem probing away from it.
std::string RuleCure(const Machine& machine);

} // namespace lab
