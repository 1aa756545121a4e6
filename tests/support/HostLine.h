#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

// A host's end of the line that knows nothing of the driver library: it opens the port, makes it
// raw, and moves bytes with a time limit.
class HostLine {
  public:
    explicit HostLine(const std::string& path);
    ~HostLine();
    HostLine(const HostLine&) = delete;
    HostLine& operator=(const HostLine&) = delete;

    bool IsOpen() const { return m_handle != -1; }
    int Handle() const { return m_handle; }
    void MakeRaw() const;
    void Close();

    // Whether all of it was written in time.
    bool Write(const std::vector<std::uint8_t>& bytes,
               std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;
    // Up to count bytes; fewer when the time is up or the line is hung up.
    std::vector<std::uint8_t>
    Read(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;
    // The bytes that arrive within the time; for showing that none do.
    std::vector<std::uint8_t> ReadFor(std::chrono::milliseconds time) const;
    // Writes a command and reads its answer.
    std::vector<std::uint8_t> Ask(const std::vector<std::uint8_t>& command,
                                  std::size_t count) const;
    bool IsWritable(std::chrono::milliseconds timeout) const;
    bool IsHungUp(std::chrono::milliseconds timeout) const;

  private:
    int m_handle;
};
