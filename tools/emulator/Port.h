#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The simulator's end of the line, whose other end appears to a host as /dev/ttyACMN.
namespace emulator {

class Port {
  public:
    Port() = default;
    virtual ~Port() = default;
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    // Appears.  Throws std::system_error, with the path and what to do in its text, when it cannot.
    virtual void Appear(bool echoes) = 0;

    // The name goes at once, and a host that has the port open sees it hung up: reads give 0 for
    // ever, writes fail.
    virtual void Vanish() = 0;

    // Hangs the host's handle up while the name stays, as a loss of carrier does.
    virtual void LoseCarrier(bool echoes) = 0;

    virtual bool IsPresent() const = 0;
    virtual const std::string& Path() const = 0;
    // Only while absent.
    virtual void Renumber(int number) = 0;

    // The handle to wait on for bytes from the host, and the one that wakes when the port is
    // opened; -1 while absent, and the latter where the system has none to give.
    virtual int Control() const = 0;
    virtual int OpeningNotice() const = 0;
    // Whether the port was opened since this was last asked.
    virtual bool ConsumeOpeningNotice() = 0;

    virtual bool IsOpenByHost() const = 0;

    // What came: the count of bytes, 0 if nothing did.
    virtual std::size_t Read(std::uint8_t* bytes, std::size_t length) = 0;
    // The count of bytes that found room.
    virtual std::size_t Write(const std::uint8_t* bytes, std::size_t length) = 0;

    // What closing a real port does: bytes that the host has not read are gone, and the line
    // settings are those of a fresh port again.
    virtual void Refresh(bool echoes) = 0;

    // A stopped line takes no byte: the host finds the port unwritable.
    virtual void StopLine(bool stop) = 0;
};

} // namespace emulator
