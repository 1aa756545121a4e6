#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// The command that runs beside the simulator.  The process is made while there is still one thread,
// waits until it is released, and then becomes the command.
namespace emulator {

// As used by env, nice and timeout.
constexpr int kOwnFailure = 125;
constexpr int kCannotExecute = 126;
constexpr int kNotFound = 127;
constexpr int kKilledBySignal = 128;

class ChildCommand {
  public:
    // Throws std::system_error when no further process can be created.
    explicit ChildCommand(std::vector<std::string> words);
    // Asks a command that is still running to end, and waits for it.  Without LetGo, the process
    // ends without having run anything.
    ~ChildCommand();
    ChildCommand(const ChildCommand&) = delete;
    ChildCommand& operator=(const ChildCommand&) = delete;

    void LetGo();
    void Signal(int signal) const;
    // Whether it has ended; in that case Status is its exit status, or 128 plus the signal that
    // ended it.
    bool HasEnded();
    int Status() const { return m_status; }

  private:
    pid_t m_process = -1;
    int m_gate = -1;
    int m_status = kOwnFailure;
};

} // namespace emulator
