#pragma once

#include "lab/machine/Finding.h"
#include "lab/machine/Machine.h"

#include <optional>
#include <string>
#include <vector>

// The other programs on the machine, and which of them have the port open.
namespace lab {

struct Process {
    int id = 0;
    std::string name; // "?" when it cannot be read
};

// "ModemManager (process 712)"
std::string Describe(const Process& process);

Process ProcessOf(const Machine& machine, int id);

std::optional<Process> FindProcess(const Machine& machine, const std::string& name);

Finding CheckUse(const Machine& machine, const std::string& path);

} // namespace lab
