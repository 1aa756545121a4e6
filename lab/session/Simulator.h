#pragma once

#include "lab/common/Interrupt.h"

#include <chrono>
#include <optional>
#include <string>

namespace lab {

// What the connected simulator says about itself.
struct SimulatorInformation {
    std::string device; // "/dev/ttyACM0"
    std::string model;
    std::string serial;
    int dacBits = 0;
    bool isCalibrated = false;
    std::string calibrationFile; // where this unit's file is looked for
};

// The connection to the simulator, for as long as the object lives. There is one at a time.
class Simulator {
  public:
    // Starts searching: every port, or only `port`.
    explicit Simulator(std::optional<int> port);
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Waits for the connection. False when the time is over or `interrupt` came first.
    bool Await(std::chrono::seconds timeout, const Interrupt& interrupt) const;

    // The same, but fails when the time is over, with what the machine's ports tell about the
    // reason.
    bool WaitConnected(std::chrono::seconds timeout, const Interrupt& interrupt) const;

    bool IsConnected() const;

  private:
    std::optional<int> m_port;
};

SimulatorInformation DescribeSimulator();

// "1.0.5.4"
std::string LibraryVersion();

} // namespace lab
