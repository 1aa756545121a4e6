#pragma once

#include "lab/machine/Finding.h"
#include "lab/machine/Machine.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

// The serial ports that are there, and whether this user may use them.
namespace lab {

std::string PortPath(const Machine& machine, int port);

// The numbers of those that are there, in the order in which the library searches them: all, or
// only `wanted`.
std::vector<int> PortsPresent(const Machine& machine, std::optional<int> wanted);

Finding CheckPorts(const Machine& machine, std::optional<int> wanted);

// A permission that comes within the machine's patience is taken for one.
Finding CheckPermission(const Machine& machine, const std::string& path);

// Somebody who wants to use a port: the groups that he has been given, and those that his login has
// taken over.
struct User {
    std::string name;
    std::vector<gid_t> given;
    std::vector<gid_t> taken;
};

User CurrentUser();

// What gives `user` a node of this group and these permission bits.
std::string PermissionCure(const Machine& machine, const User& user, gid_t group, mode_t mode);

// What gives the port to whoever sits at the machine, and keeps modem probing away from it.
std::string RuleCure(const Machine& machine);

} // namespace lab
