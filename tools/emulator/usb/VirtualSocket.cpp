#include "tools/emulator/usb/VirtualSocket.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <glob.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace emulator::usb {
namespace {

const std::string kController = "/sys/devices/platform/vhci_hcd.0/";
constexpr int kPlaces = 8; // on every controller's hub for devices below USB 3
constexpr int kFullSpeed = 2;

constexpr auto kPatience = std::chrono::seconds(40); // longer than a close waits for its output

// The state of a place in the controller's table.
constexpr int kFree = 4;

int StateOf(int place) {
    std::ifstream table(kController + "status");
    std::string word;
    std::getline(table, word); // headings
    int number = -1;
    int state = -1;
    while (table >> word >> number >> state) {
        if (number == place) {
            return state;
        }
        std::getline(table, word);
    }
    return -1;
}

bool Plug(int place, int socket) {
    const int file = open((kController + "attach").c_str(), O_WRONLY | O_CLOEXEC);
    if (file == -1) {
        throw std::system_error(errno, std::generic_category(),
                                "no virtual USB host controller: load vhci-hcd, as root");
    }
    const std::string line = std::to_string(place) + " " + std::to_string(socket) + " " +
                             std::to_string(place + 2) + " " + std::to_string(kFullSpeed);
    const bool isPlugged = write(file, line.data(), line.size()) > 0;
    close(file);
    return isPlugged;
}

bool WaitFor(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace

VirtualSocket::VirtualSocket(int socket) {
    for (int place = 0; place < kPlaces; ++place) {
        if (StateOf(place) == kFree && Plug(place, socket)) {
            m_place = place;
            return;
        }
    }
    throw std::system_error(EBUSY, std::generic_category(),
                            "the virtual USB host controller has no free place");
}

std::string VirtualSocket::AwaitTerminal() const {
    if (!WaitFor([this] { return !Terminal().empty(); })) {
        throw std::system_error(ENODEV, std::generic_category(),
                                "the kernel makes no terminal of the device: load cdc-acm");
    }
    return Terminal();
}

void VirtualSocket::AwaitRelease() const {
    WaitFor([this] { return Terminal().empty() && IsFree(); });
}

std::string VirtualSocket::Terminal() const {
    const std::string pattern =
        kController + "usb*/*-" + std::to_string(m_place + 1) + "/*:1.0/tty/ttyACM*";
    glob_t found = {};
    std::string name;
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0) {
        name = found.gl_pathv[0];
        name.erase(0, name.rfind('/') + 1);
    }
    globfree(&found);
    return name;
}

bool VirtualSocket::IsFree() const {
    return StateOf(m_place) == kFree;
}

} // namespace emulator::usb
