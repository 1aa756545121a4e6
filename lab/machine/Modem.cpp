#include "lab/machine/Modem.h"

#include "lab/common/Failure.h"
#include "lab/machine/Ports.h"
#include "lab/machine/Processes.h"

#include <cerrno>
#include <fstream>
#include <optional>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace lab {
namespace {

// udev's record of the device "major:minor": lines of "E:KEY=value" among others.
bool IsIgnored(const Machine& machine, const std::string& number) {
    std::ifstream entry(machine.udevData + "/c" + number);
    for (std::string line; std::getline(entry, line);) {
        if (line == "E:ID_MM_DEVICE_IGNORE=1" || line == "E:ID_MM_PORT_IGNORE=1") {
            return true;
        }
    }
    return false;
}

// The number of the USB device whose interface the port is.
std::string UsbDeviceOf(const Machine& machine, const std::string& number) {
    std::string usb;
    std::ifstream file(machine.system + "/dev/char/" + number + "/device/../dev");
    std::getline(file, usb);
    return usb;
}

// The mark may be set on the port or on the USB device to which the port belongs.
bool IsLeftAlone(const Machine& machine, const std::string& path) {
    struct stat node {};
    if (::stat(path.c_str(), &node) != 0) {
        return false;
    }
    const std::string number = Format("%u:%u", major(node.st_rdev), minor(node.st_rdev));
    return IsIgnored(machine, number) || IsIgnored(machine, UsbDeviceOf(machine, number));
}

} // namespace

Finding CheckModemProbing(const Machine& machine, const std::string& path) {
    const std::optional<Process> manager = FindProcess(machine, "ModemManager");
    if (!manager) {
        return {State::kOk, "modem probing", "none", "ModemManager does not run", ""};
    }
    if (IsLeftAlone(machine, path)) {
        return {State::kOk, "modem probing", "ignored",
                Describe(*manager) + " leaves the port alone", ""};
    }
    return {State::kWarning, "modem probing", "probing",
            Describe(*manager) + " was not told to leave the port alone, and may hold it for 20 "
                                 "seconds after it has appeared",
            RuleCure(machine)};
}

} // namespace lab
