#pragma once

#include "tools/emulator/Simulator.h"

#include <string>
#include <thread>

// The commands that make a running simulator misbehave, one a line, and the socket on which it
// receives them.
namespace emulator {

// Carries a line out.  Returns the reply without a line end: "ok", a figure, or "error: " and a
// sentence.
std::string Execute(Simulator& simulator, const std::string& line);

// Whether the line begins with the name of a command.
bool IsKnown(const std::string& line);

// The commands that Execute accepts, as help text.
std::string ControlHelp();

// Two hexadecimal digits a byte, blanks allowed between bytes.  Throws std::invalid_argument.
Bytes ParseHex(const std::string& text);

// Listens on a socket in the file system from construction to destruction.  Throws
// std::system_error when it cannot.
class ControlServer {
  public:
    ControlServer(std::string path, Simulator& simulator);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

  private:
    void Listen();
    void Serve();
    void ServeConnection(int connection);

    const std::string m_path;
    Simulator& m_simulator;
    int m_listener = -1;
    int m_end = -1;
    std::thread m_thread;
};

// Sends a line to the socket of a running emulator and returns its reply.  Throws
// std::system_error when no emulator listens.
std::string Tell(const std::string& path, const std::string& line);

} // namespace emulator
