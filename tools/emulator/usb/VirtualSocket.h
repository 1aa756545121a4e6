#pragma once

#include <string>

// A port of the kernel's virtual USB host controller into which a device can be plugged.
namespace emulator::usb {

class VirtualSocket {
  public:
    // Finds a free place and plugs in the device that serves the other end of this socket.  Throws
    // std::system_error.
    explicit VirtualSocket(int socket);

    // Waits until the driver has made a terminal of the device, and gives its name, such as
    // "ttyACM0".  Throws std::system_error when none comes.
    std::string AwaitTerminal() const;

    // Waits until terminal and place are free again after the device has been unplugged.
    void AwaitRelease() const;

  private:
    std::string Terminal() const;
    bool IsFree() const;

    int m_place = -1;
};

} // namespace emulator::usb
