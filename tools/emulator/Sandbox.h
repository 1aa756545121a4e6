#pragma once

#include <string>

// A private mount namespace in which the places that the driver library refers to by fixed names
// belong to the process: /dev (with the nodes that every program needs), the lock directory
// /var/lock and the calibration directory /usr/local/tarnwick/ravo.  Nothing in it touches the
// machine.
namespace emulator {

// Moves the calling process into a new sandbox.  Works as root by a mount namespace, as an ordinary
// user by a user namespace in which the user keeps their own ids.  The process must still have a
// single thread, since the kernel moves no other into a user namespace.
// Returns false, with the reason and the cure in whyNot, where the system forbids it; the
// process may then have been moved half-way and should do nothing but report and end.
bool EnterSandbox(std::string& whyNot);

// Whether this process, or one that it descends from by exec, entered a sandbox and is still in it.
bool IsInSandbox();

} // namespace emulator
