#pragma once

#include <chrono>
#include <thread>

// Whether `condition` comes true. The bound only catches a hang: what a busy machine does in time
// is not asked.
template <typename Condition>
bool Eventually(Condition condition, int patienceMilliseconds = 60000) {
    for (int i = 0; i < patienceMilliseconds; ++i) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}
