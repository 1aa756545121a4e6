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

    // Makes the port appear.  Throws std::system_error, with the path and the cure in its text,
    // when it cannot.
    virtual void Appear(bool echoes) = 0;

    // The name goes at once, and a host that has the port open sees it hung up: reads return 0 for
    // ever, writes fail.
    virtual void Vanish() = 0;

    // Hangs the host's handle up while the name stays, as a loss of carrier does.
    virtual void LoseCarrier(bool echoes) = 0;

    virtual bool IsPresent() const = 0;
    virtual const std::string& Path() const = 0;
    // Only while absent.
    virtual void Renumber(int number) = 0;

    // The handle to wait on for bytes from the host, and the handle that wakes when the port is
    // opened.  Both are -1 while the port is absent, the second also if the system provides none.
    virtual int Control() const = 0;
    virtual int OpeningNotice() const = 0;
    // Whether the port was opened since the last call.
    virtual bool ConsumeOpeningNotice() = 0;

    virtual bool IsOpenByHost() const = 0;

    // Returns the number of bytes received; 0 if there were none.
    virtual std::size_t Read(std::uint8_t* bytes, std::size_t length) = 0;
    // Returns the number of bytes accepted.
    virtual std::size_t Write(const std::uint8_t* bytes, std::size_t length) = 0;

    // The effect of closing a real port: bytes that the host has not read are lost, and the line
    // settings are those of a fresh port again.
    virtual void Refresh(bool echoes) = 0;

    // A stopped line accepts no bytes: the host finds the port unwritable.
    virtual void StopLine(bool stop) = 0;
};

} // namespace emulator
