#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The simulator's end of the line: a pseudo-terminal whose other end appears as /dev/ttyACMN.
namespace emulator {

class Port {
  public:
    Port(std::string directory, int number);
    ~Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    // Appears.  Throws std::system_error, with the path and what to do in its text, when the name
    // is taken or there is no pseudo-terminal.
    void Appear(bool echoes);

    // The name goes at once, and a host that has the port open sees it hung up: reads give 0 for
    // ever, writes fail.
    void Vanish();

    // Hangs the host's handle up while the name stays, as a loss of carrier does.
    void LoseCarrier(bool echoes);

    bool IsPresent() const { return m_control != -1; }
    const std::string& Path() const { return m_path; }
    int Number() const { return m_number; }
    // Only while absent.
    void Renumber(int number);

    // The handle to wait on for bytes from the host, and the one that wakes when the port is
    // opened; -1 while absent, and the latter where the system has none to give.
    int Control() const { return m_control; }
    int OpeningNotice() const { return m_openings; }
    // Whether the port was opened since this was last asked.
    bool ConsumeOpeningNotice() const;

    bool IsOpenByHost() const;

    // What came: the count of bytes, 0 if nothing did.
    std::size_t Read(std::uint8_t* bytes, std::size_t length) const;
    // The count of bytes that found room.
    std::size_t Write(const std::uint8_t* bytes, std::size_t length) const;

    // What closing a real port does: bytes that the host has not read are gone, and the line
    // settings are those of a fresh port again.
    void Refresh(bool echoes) const;

    // A stopped line takes no byte: the host finds the port unwritable.
    void StopLine(bool stop) const;

  private:
    void Open(bool echoes);
    void Close();
    void Configure(bool echoes) const;
    int OpenHostSide() const;

    std::string m_directory;
    int m_number;
    std::string m_path;
    std::string m_hostSide;
    int m_control = -1;
    int m_openings = -1;
};

} // namespace emulator
