#pragma once

#include "lab/serve/HttpFailure.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

namespace lab::serve {

// What has become of an order, for the thread that gave it.
class Ticket {
  public:
    void Done();
    void Failed(const Failure& failure);

    // False when it is still under way at `deadline`. Throws what it failed with.
    bool Wait(std::chrono::steady_clock::time_point deadline);

    // Nobody waits for it any more, and it must not be carried out later. False when it is done.
    bool Withdraw();
    bool IsWithdrawn();

    // The order goes on, but its client has been answered.
    void SetLate();
    bool IsLate();

  private:
    void End(std::optional<HttpFailure> failure);

    std::mutex m_lock;
    std::condition_variable m_ended;
    bool m_hasEnded = false;
    bool m_isWithdrawn = false;
    bool m_isLate = false;
    std::optional<HttpFailure> m_failure;
};

} // namespace lab::serve
