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
        const MutexGuard lock(m_lock);
        m_isEnding = true;
    }
    m_hasWork.NotifyAll();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
    m_threads.clear();
}

bool Pool::Post(std::function<void()> task) {
    {
        const MutexGuard lock(m_lock);
        if (m_tasks.size() >= m_longestQueue) {
            return false;
        }
        m_tasks.push_back(std::move(task));
    }
    m_hasWork.NotifyOne();
    return true;
}

void Pool::Work() {
    std::function<void()> task;
    while (Take(task)) {
        task();
        task = nullptr;
    }
}

bool Pool::Take(std::function<void()>& task) {
    const MutexGuard lock(m_lock);
    while (!m_isEnding && m_tasks.empty()) {
        m_hasWork.Wait(m_lock);
    }
    if (m_isEnding) {
        return false;
    }
    task = std::move(m_tasks.front());
    m_tasks.pop_front();
    return true;
}

} // namespace lab::serve
