#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace lab {

// Where the machine shows what it is, and how long what is passing may last. Tests show another
// machine.
struct Machine {
    std::string devices = "/dev";
    std::string locks = "/var/lock";
    std::string processes = "/proc";
    std::string system = "/sys";
    std::string udevData = "/run/udev/data";
    std::vector<std::string> udevRules = {"/etc/udev/rules.d", "/run/udev/rules.d",
                                          "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                          "/lib/udev/rules.d"};
    // Permissions lag a new node, and what udev starts opens it for an instant.
    std::chrono::milliseconds patience{2000};
};

// Looks until `isSo` is true, or for as long as the machine's patience. Returns the last answer.
template <typename Condition>
bool HappensSoon(const Machine& machine, const Condition& isSo) {
    constexpr std::chrono::milliseconds kPause{50};
    const auto end = std::chrono::steady_clock::now() + machine.patience;
    while (!isSo()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

} // namespace lab
