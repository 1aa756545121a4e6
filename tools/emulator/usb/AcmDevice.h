#pragma once

#include "lab/common/Mutex.h"
#include "tools/emulator/usb/Link.h"

#include <deque>
#include <thread>

// A USB device of the communication class's abstract control model, at full speed, as a
// microcontroller with a serial port on board presents itself: 64 bytes at a time in each
// direction, and a byte that the device does not accept stays with the host.
namespace emulator::usb {

class AcmDevice {
  public:
    // Serves the socket, which it takes over, on a thread of its own.
    explicit AcmDevice(int socket);
    // Pulls the plug, if it is still in.
    ~AcmDevice();
    AcmDevice(const AcmDevice&) = delete;
    AcmDevice& operator=(const AcmDevice&) = delete;

    // The host sees the device disappear, as from its hub.
    void Unplug();

    // Readable while bytes from the host are waiting to be taken.
    int Arrivals() const { return m_arrivals; }
    // Readable once the host has opened or closed the port; must be read in order to be notified of
    // the next change.
    int Changes() const { return m_changes; }

    // The host holds the port open: it keeps "data terminal ready" up exactly as long.
    bool IsOpen() const;

    // The bytes that the host has sent, up to `length`; taking them is reported to the host, 64
    // bytes at a time.
    std::size_t Take(std::uint8_t* bytes, std::size_t length);
    // Sends to the host.  Returns how many of the bytes it had requested; 0 while it requests none.
    std::size_t Give(const std::uint8_t* bytes, std::size_t length);

    // Drops and restores the carrier, at which the host hangs the port up.
    void DropCarrier();

  private:
    void Serve();
    void Begin(Transfer transfer) RAVO_REQUIRES(m_mutex);
    void Control(const Transfer& transfer) RAVO_REQUIRES(m_mutex);
    void SetOpen(bool isOpen) RAVO_REQUIRES(m_mutex);
    void TakeBack(const Message& message) RAVO_REQUIRES(m_mutex);
    void Notify() RAVO_REQUIRES(m_mutex);
    void MarkArrivals() const RAVO_REQUIRES(m_mutex);

    const int m_socket;
    const Link m_link;
    int m_arrivals = -1;
    int m_changes = -1;

    mutable lab::Mutex m_mutex; // also guards the sending side of the link
    bool m_isOpen RAVO_GUARDED_BY(m_mutex) = false;
    std::deque<Transfer> m_fromHost RAVO_GUARDED_BY(m_mutex); // bytes waiting to be taken
    std::size_t m_taken RAVO_GUARDED_BY(m_mutex) = 0;         // of the first of these
    std::deque<Transfer> m_toHost RAVO_GUARDED_BY(m_mutex);   // room that the host has provided
    std::deque<Transfer> m_toNotify RAVO_GUARDED_BY(m_mutex); // the same, for notices
    std::deque<std::uint8_t>
        m_notices RAVO_GUARDED_BY(m_mutex); // line states not yet reported to the host

    std::thread m_thread;
};

} // namespace emulator::usb
