#pragma once

#include "lab/common/Mutex.h"
#include "lab/serve/HttpFailure.h"

#include <chrono>
#include <functional>
#include <optional>

namespace lab::serve {

// The outcome of an order, for the thread that gave it.
class Ticket {
  public:
    void Done();
    void Failed(const Failure& failure);

    // False when it is still under way at `deadline`. Throws the failure of the order.
    bool Wait(std::chrono::steady_clock::time_point deadline);

    // The client no longer waits, and the order must not be carried out later. False when it is
    // done.
    bool Withdraw();
    bool IsWithdrawn() const;

    // The order continues, but its client has already been answered: `ended` is called with its end
    // and its failure, on the thread that finds out.
    using Listener = std::function<void(const std::optional<HttpFailure>&)>;
    void SetLate(const Listener& ended);

  private:
    void End(const std::optional<HttpFailure>& failure);

    mutable Mutex m_lock;
    Condition m_ended;
    bool m_hasEnded RAVO_GUARDED_BY(m_lock) = false;
    bool m_isWithdrawn RAVO_GUARDED_BY(m_lock) = false;
    std::optional<HttpFailure> m_failure RAVO_GUARDED_BY(m_lock);
    Listener m_late RAVO_GUARDED_BY(m_lock);
};

} // namespace lab::serve
