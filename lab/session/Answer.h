#pragma once

#include "lab/machine/Finding.h"
#include "lab/machine/Machine.h"
#include "lab/session/Simulator.h"

#include <chrono>
#include <optional>

namespace lab {

struct Answer {
    Finding finding;
    std::optional<SimulatorInformation> simulator; // when it is one
};

// Has the library look for the simulator on this port, which nobody else may be using. When it
// finds none, asks once more by itself what there is instead. Nothing stays open or locked.
Answer AskPort(const Machine& machine, int port, std::chrono::seconds timeout,
               const Interrupt& interrupt);

} // namespace lab
