#pragma once

#include "lab/common/Interrupt.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace lab {

// The data that the connected simulator reports about itself.
struct SimulatorInformation {
    std::string device; // "/dev/ttyACM0"
    std::string model;
    std::string serial;
    bool isKnown = false; // it has identified itself; otherwise it is taken for a 12-bit unit
    int dacBits = 0;
    bool isCalibrated = false;
    std::string calibrationFile; // where this unit's file is expected
};

// Which simulator to connect to, and how long to search for it.
struct SimulatorChoice {
    std::optional<int> port; // only /dev/ttyACMN
    std::string serial;      // only the one with this serial number; empty: any
    int timeout = 10;        // seconds
    bool isPatient = false;  // while another program holds it, wait without end
};

// Called about once a second, on the searching thread, with a text about what the search is waiting
// for.
using SearchProgress = std::function<void(double elapsed, const std::string& what)>;

// The connection to the simulator, for as long as the object exists. Only one may exist at a time.
class Simulator {
  public:
    // Starts searching: every port, or only `port`. With a serial number, the search begins with
    // the wait.
    explicit Simulator(std::optional<int> port, std::string serial = {});
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Waits for the connection. False when the time is up or `interrupt` came first. A unit whose
    // replies came late or not at all is asked for its identity again, a few times.
    bool Await(std::chrono::steady_clock::duration time, const Interrupt& interrupt) const;

    // The same, but fails when the time is up, with the reason as far as the machine's ports show
    // it.
    bool WaitConnected(std::chrono::seconds timeout, const Interrupt& interrupt) const;

    // The same; `progress` may be empty.
    bool WaitConnected(const SimulatorChoice& choice, const Interrupt& interrupt,
                       const SearchProgress& progress) const;

    bool IsConnected() const;

    // How often the connection has been lost since the object was created.
    int Losses() const;

  private:
    bool AwaitUntil(std::chrono::steady_clock::time_point end, const Interrupt& interrupt) const;
    bool IsAskedAgain() const;
    bool TryPorts(std::chrono::steady_clock::time_point end, const Interrupt& interrupt) const;
    bool TryPort(int port, std::chrono::steady_clock::time_point end,
                 const Interrupt& interrupt) const;

    std::optional<int> m_port;
    std::string m_serial;
    mutable int m_repetitions; // attempts left to ask for the identity
};

SimulatorInformation DescribeSimulator();

// "1.0.5.4"
std::string LibraryVersion();

} // namespace lab
