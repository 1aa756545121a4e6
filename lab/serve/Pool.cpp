#include "lab/serve/Pool.h"

#include <utility>

namespace lab::serve {

Pool::Pool(std::size_t threads, std::size_t longestQueue) : m_longestQueue(longestQueue) {
    for (std::size_t i = 0; i < threads; ++i) {
        m_threads.emplace_back([this] { Work(); });
    }
}

Pool::~Pool() {
    End();
}

void Pool::End() {
    {
        const std::lock_guard<std::mutex> lock(m_lock);
        m_isEnding = true;
    }
    m_hasWork.notify_all();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
    m_threads.clear();
}

bool Pool::Post(std::function<void()> task) {
    {
        const std::lock_guard<std::mutex> lock(m_lock);
        if (m_tasks.size() >= m_longestQueue) {
            return false;
        }
        m_tasks.push_back(std::move(task));
    }
    m_hasWork.notify_one();
    return true;
}

void Pool::Work() {
    std::unique_lock<std::mutex> lock(m_lock);
    for (;;) {
        m_hasWork.wait(lock, [this] { return m_isEnding || !m_tasks.empty(); });
        if (m_isEnding) {
            return;
        }
        const std::function<void()> task = std::move(m_tasks.front());
        m_tasks.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

} // namespace lab::serve
