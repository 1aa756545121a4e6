#pragma once

#include "lab/common/Mutex.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <thread>
#include <vector>

namespace lab::serve {

// A few threads and a queue that does not grow without bound.
class Pool {
  public:
    Pool(std::size_t threads, std::size_t longestQueue);
    ~Pool();
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    // Waits for the running tasks; drops those that are queued and refuses new ones.
    void End();

    // False when too many are queued already.
    bool Post(std::function<void()> task);

  private:
    void Work();
    // Waits for the next task; false when there will be none.
    bool Take(std::function<void()>& task);

    const std::size_t m_longestQueue;
    Mutex m_lock;
    Condition m_hasWork;
    std::deque<std::function<void()>> m_tasks RAVO_GUARDED_BY(m_lock);
    bool m_isEnding RAVO_GUARDED_BY(m_lock) = false;
    std::vector<std::thread> m_threads;
};

} // namespace lab::serve
