#pragma once

namespace lab {

// Whether the existing Simulator object is connected; false without one. From any thread, for
// callers that have no access to the object.
bool IsSimulatorConnected();

} // namespace lab
