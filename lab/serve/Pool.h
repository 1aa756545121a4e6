#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
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

    // Waits for the tasks that run, forgets those that wait and all that come.
    void End();

    // False when too many wait already.
    bool Post(std::function<void()> task);

  private:
    void Work();

    const std::size_t m_longestQueue;
    std::mutex m_lock;
    std::condition_variable m_hasWork;
    std::deque<std::function<void()>> m_tasks;
    bool m_isEnding = false;
    std::vector<std::thread> m_threads;
};

} // namespace lab::serve
