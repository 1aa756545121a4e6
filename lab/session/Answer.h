#pragma once

#include "lab/machine/Finding.h"
#include "lab/machine/Machine.h"
#include "lab/session/Simulator.h"

#include <chrono>
#include <optional>

namespace lab {

struct Answer {
    Finding finding;
    std::optional<SimulatorInformation> simulator; // when it is a simulator
};

// Searches this port for the simulator through the library; no other program may be using the port.
// When there is none, probes the port once more to describe the device that is there. Afterwards
// the port is closed and unlocked.
Answer AskPort(const Machine& machine, int port, std::chrono::seconds timeout,
               const Interrupt& interrupt);

} // namespace lab
