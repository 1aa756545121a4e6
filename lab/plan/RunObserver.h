#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace lab {

// How a run gets on.
struct RunProgress {
    struct Step {
        std::string name;
        std::string kind;
        std::string outcome; // empty: not done yet
        std::string message;
    };
    std::string title;
    std::vector<Step> steps;
    std::optional<std::size_t> current; // the step under way
    double played = 0.0;                // seconds of its material, 0 of other kinds
    double due = 0.0;                   // infinite without end
    int delays = 0;
    double left = 0.0;   // seconds by the clock of all that is still to do
    std::string outcome; // empty: under way; else as in the result
};

// Called on the run's own thread at each change and about five times a second while material plays;
// has to return at once. What it is given is valid during the call only.
using RunObserver = std::function<void(const RunProgress&)>;

} // namespace lab
