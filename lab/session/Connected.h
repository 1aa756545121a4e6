#pragma once

namespace lab {

// Whether the Simulator that lives at present is connected; false when none does. From any thread,
// for those who do not hold it.
bool IsSimulatorConnected();

} // namespace lab
