#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace lab {

// The folders that describe the machine, and how long a temporary state may last. Tests substitute
// others.
struct Machine {
    std::string devices = "/dev";
    std::string locks = "/var/lock";
    std::string processes = "/proc";
    std::string system = "/sys";
    std::string udevData = "/run/udev/data";
    std::vector<std::string> udevRules = {"/etc/udev/rules.d", "/run/udev/rules.d",
                                          "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                          "/lib/udev/rules.d"};
    // udev sets the permissions of a new node late, and programs that it starts open the node
    // briefly.
    std::chrono::milliseconds patience{2000};
};

// Polls `isSo` until it is true or the machine's patience is over. Returns the last answer.
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
