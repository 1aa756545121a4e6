#pragma once

#include <functional>
#include <string>

namespace lab::serve {

// A stage's notifications; called on any thread.
struct StageListener {
    std::function<void()> stateChanged;
    std::function<void(std::string)> samples; // JSON of an event
    std::function<int()> viewers;
};

} // namespace lab::serve
