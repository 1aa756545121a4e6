#pragma once

#include <chrono>
#include <thread>

// Whether `condition` becomes true. The bound only catches a hang; it does not measure how fast a
// busy machine is.
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
