#pragma once

#include "lab/plan/RunObserver.h"

#include <chrono>
#include <optional>
#include <string>

namespace lab {

struct RunRequest {
    std::string plan;
    std::string output; // the run's folder; may be empty for a dry run
    bool isResumed = false;
    bool isDry = false;
    std::string answers; // file; empty: none
    std::string from;    // step; empty: the first
    std::string only;    // step; empty: all
    std::string operatorName;
    std::optional<int> port;
    std::chrono::seconds timeout{10}; // to wait for the simulator, also after a loss
    double speedUp = 1.0;
    bool isJson = false;
    RunObserver* observer = nullptr; // may be null
};

} // namespace lab
