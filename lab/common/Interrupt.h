#pragma once

#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>

namespace lab {

// Ctrl-C, SIGTERM, a closed terminal and a pipe without a reader: the first one requests the end,
// the second one ends the process by its default action. Only one object may exist at a time.
class Interrupt {
  public:
    static constexpr std::size_t kSignals = 4;

    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    // Waits until `time`, or until a signal arrives. True when one has arrived.
    bool WaitUntil(std::chrono::steady_clock::time_point time) const;

    // The signal's number; 0 when none has arrived.
    int Signal() const;

    // Requests the end as SIGTERM does; from any thread.
    void Ask() const;

    // Clears the request before the next task begins. No thread may be waiting.
    void Forget() const;

  private:
    std::array<struct sigaction, kSignals> m_former{};
};

// Blocks the signals of the library's timer in this thread, so that the library's threads receive
// them.
void BlockTimerSignals();

} // namespace lab
