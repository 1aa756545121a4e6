#pragma once

#include "lab/material/Record.h"
#include "lab/session/Play.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace lab {

// The progress of a run.
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
    double left = 0.0;   // seconds until the run is over
    std::string outcome; // empty while the run is in progress; then as in the result
};

// Watches a run. Called on the run's own thread; every function has to return at once, and its
// arguments are valid during the call only.
class RunObserver {
  public:
    RunObserver() = default;
    virtual ~RunObserver() = default;
    RunObserver(const RunObserver&) = delete;
    RunObserver& operator=(const RunObserver&) = delete;

    // At each change and about five times a second while material plays.
    virtual void Progress(const RunProgress& progress) = 0;

    // Before each play. IsSimulatorConnected tells whether it is still connected.
    virtual void Connected(const SimulatorInformation& simulator) = 0;

    // The output of `record` has started. It stays loaded until the play has ended.
    virtual void PlayBegun(const std::string& material, const PlayRequest& request,
                           const Record& record) = 0;

    virtual void PlayEnded(const PlayResult& result) = 0;
};

} // namespace lab
