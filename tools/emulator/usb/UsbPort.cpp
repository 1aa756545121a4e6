#include "tools/emulator/usb/UsbPort.h"

#include "tools/emulator/Sandbox.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace emulator {
namespace {

std::string PathOf(const std::string& directory, int number) {
    return directory + "/ttyACM" + std::to_string(number);
}

dev_t NumberOf(const std::string& terminal) {
    std::ifstream file("/sys/class/tty/" + terminal + "/dev");
    unsigned major = 0;
    unsigned minor = 0;
    char colon = ' ';
    file >> major >> colon >> minor;
    return makedev(major, minor);
}

} // namespace

UsbPort::UsbPort(std::string directory, int number)
    : m_directory(std::move(directory)), m_path(PathOf(m_directory, number)) {}

UsbPort::~UsbPort() {
    Vanish();
}

void UsbPort::Renumber(int number) {
    m_path = PathOf(m_directory, number);
}

void UsbPort::Appear(bool /*echoes*/) {
    std::array<int, 2> sockets{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    m_device.emplace(sockets[0]);
    try {
        m_place.emplace(sockets[1]);
        close(sockets[1]); // the kernel has its own handle by now
        Name(m_place->AwaitTerminal());
    } catch (...) {
        if (!m_place) {
            close(sockets[1]);
        }
        Vanish();
        throw;
    }
}

void UsbPort::Name(const std::string& terminal) {
    if (!IsInSandbox()) {
        m_path = m_directory + "/" + terminal;
        return;
    }
    constexpr mode_t kForAll = 0666;
    if (mknod(m_path.c_str(), S_IFCHR | kForAll, NumberOf(terminal)) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot create " + m_path);
    }
    m_hasOwnName = true;
}

void UsbPort::Vanish() {
    if (std::exchange(m_hasOwnName, false)) {
        unlink(m_path.c_str());
    }
    if (m_device) {
        m_device->Unplug();
    }
    if (m_place) {
        m_place->AwaitRelease();
    }
    m_place.reset();
    m_device.reset();
}

void UsbPort::LoseCarrier(bool /*echoes*/) {
    if (!m_device || !m_device->IsOpen()) {
        return;
    }
    m_device->DropCarrier();
    // The kernel hangs the port up some time later.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (m_device->IsOpen() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

int UsbPort::Control() const {
    return m_device ? m_device->Arrivals() : -1;
}

int UsbPort::OpeningNotice() const {
    return m_device ? m_device->Changes() : -1;
}

bool UsbPort::ConsumeOpeningNotice() {
    eventfd_t changes = 0;
    return m_device && eventfd_read(m_device->Changes(), &changes) == 0;
}

bool UsbPort::IsOpenByHost() const {
    return m_device && m_device->IsOpen();
}

std::size_t UsbPort::Read(std::uint8_t* bytes, std::size_t length) {
    return m_device ? m_device->Take(bytes, length) : 0;
}

std::size_t UsbPort::Write(const std::uint8_t* bytes, std::size_t length) {
    return m_device ? m_device->Give(bytes, length) : 0;
}

} // namespace emulator
