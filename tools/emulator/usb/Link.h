#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

// The socket between a device and the kernel's virtual host controller: USB/IP's messages as
// defined in the kernel's Documentation/usb/usbip_protocol.rst, with all numbers in network byte
// order.
namespace emulator::usb {

// How a transfer ended, as the kernel's error numbers.
enum Status : std::int32_t {
    kDone = 0,
    kStalled = -32,   // EPIPE: the device does not support the request
    kUnlinked = -104, // ECONNRESET: the host has taken the transfer back
};

struct Transfer {
    std::uint32_t number = 0;
    std::uint32_t endpoint = 0;
    bool isToHost = false;
    std::uint32_t length = 0;
    std::array<std::uint8_t, 8> setup{}; // of endpoint 0
    std::vector<std::uint8_t> data;      // from the host
};

struct Message {
    bool isUnlink = false; // or a new transfer
    Transfer transfer;
    std::uint32_t unlinked = 0; // number of the transfer that the host takes back
};

class Link {
  public:
    // The socket must outlive the link.
    explicit Link(int socket) : m_socket(socket) {}

    // Waits for the next message; false when the other end is gone.
    bool Receive(Message& message) const;

    // The functions below must not run at the same time.

    // Ends a transfer to the host with these bytes, or a transfer from the host of which `count`
    // bytes were taken.
    void End(const Transfer& transfer, Status status, const std::uint8_t* bytes,
             std::size_t count) const;
    void AnswerUnlink(const Message& message, Status status) const;

  private:
    const int m_socket;
};

} // namespace emulator::usb
