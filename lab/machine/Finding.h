#pragma once

#include <string>

namespace lab {

enum class State {
    kOk,
    kWarning, // a problem, but not one that prevents playing
    kFailed,
};

// The result of one check of the machine.
struct Finding {
    State state = State::kOk;
    std::string check;     // what was looked at
    std::string code;      // what was found, for scripts; once published it keeps its meaning
    std::string sentence;  // the same in words
    std::string cure;      // what to do, one step per line; empty when there is nothing to do
    std::string port = {}; // "/dev/ttyACM0"; empty when it concerns the whole machine
};

} // namespace lab
