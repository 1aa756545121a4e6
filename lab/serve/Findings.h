#pragma once

#include "lab/common/Mutex.h"
#include "lab/machine/Finding.h"

#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace lab::serve {

// Checks about once a second what keeps the simulator from being found, as `ravo doctor` does, but
// without opening the ports, which the library is using. On a thread of its own, because the
// machine may be slow to answer.
class Findings {
  public:
    // Both functions are called on the thread of this object.
    Findings(std::optional<int> port, std::function<bool()> isConnected,
             std::function<void()> changed);
    ~Findings();
    Findings(const Findings&) = delete;
    Findings& operator=(const Findings&) = delete;

    std::vector<Finding> Now() const;

    // The connection has changed.
    void LookNow();

  private:
    void Work();
    // Waits until the next check is due; false when there will be none.
    bool AwaitDue();
    // Whether they differ from the last ones.
    bool Keep(std::vector<Finding> findings);

    const std::optional<int> m_port;
    const std::function<bool()> m_isConnected;
    const std::function<void()> m_changed;

    mutable Mutex m_lock;
    Condition m_wake;
    bool m_isDue RAVO_GUARDED_BY(m_lock) = true;
    bool m_isEnding RAVO_GUARDED_BY(m_lock) = false;
    std::vector<Finding> m_findings RAVO_GUARDED_BY(m_lock);
    std::thread m_thread;
};

} // namespace lab::serve
