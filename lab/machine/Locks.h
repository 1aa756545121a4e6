#pragma once

#include "lab/machine/Finding.h"
#include "lab/machine/Machine.h"

#include <string>

// The lock file that keeps programs from using a port at the same time.
namespace lab {

Finding CheckLockDirectory(const Machine& machine);

Finding CheckLock(const Machine& machine, int port);

// The other program that holds the port's lock and still runs: "ravo (process 712)"; empty when
// none does.
std::string LockHolder(const Machine& machine, int port);

// Removes the locks of this process, which is about to end without the library's cleanup.
void RemoveOwnLocks(const Machine& machine);

// Holds the lock as the library does, for as long as the object lives. It never takes the lock
// over, not even from an owner that has died.
class PortLock {
  public:
    PortLock(const Machine& machine, int port);
    ~PortLock();
    PortLock(const PortLock&) = delete;
    PortLock& operator=(const PortLock&) = delete;

    bool IsTaken() const { return m_file != -1; }

  private:
    std::string m_path;
    int m_file;
};

} // namespace lab
