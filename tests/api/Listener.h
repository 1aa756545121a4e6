#pragma once

#include "api/ravo.h"
#include "tests/support/SearchReport.h"

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <vector>

// The calls of the library's listener, in order.
class Listener {
  public:
    // To be passed to RAVOInit.
    static void Hear(bool connected) {
        Listener& self = Get();
        {
            const std::lock_guard<std::mutex> lock(self.m_mutex);
            self.m_heard.push_back(connected);
        }
        self.m_changed.notify_all();
    }

    static std::vector<bool> Heard() {
        const std::lock_guard<std::mutex> lock(Get().m_mutex);
        return Get().m_heard;
    }

    // Whether this many calls have arrived within a generous time; if not, prints what the search
    // found.
    static bool WaitForCalls(size_t calls) {
        Listener& self = Get();
        std::unique_lock<std::mutex> lock(self.m_mutex);
        const bool cameInTime = self.m_changed.wait_for(
            lock, std::chrono::seconds(60), [&] { return self.m_heard.size() >= calls; });
        if (!cameInTime) {
            std::cout << SearchReportText();
        }
        return cameInTime;
    }

    static void Forget() {
        const std::lock_guard<std::mutex> lock(Get().m_mutex);
        Get().m_heard.clear();
    }

  private:
    static Listener& Get() {
        static Listener listener;
        return listener;
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<bool> m_heard;
};
