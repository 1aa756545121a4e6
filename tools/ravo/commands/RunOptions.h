#pragma once

#include "lab/plan/Run.h"

#include <string>

namespace CLI {
class App;
}

namespace cli {

struct RunOptions {
    lab::RunRequest request;
    int timeout = 10;
    bool wantsExample = false;
    std::string serve;     // address of the page; empty: none
    std::string tokenFile; // empty: none
};

// Adds the options of `ravo run` to `command`.
void AddRunOptions(CLI::App& command, RunOptions& options);

// The run that the options request. Fails when something is missing.
lab::RunRequest RequestOf(const RunOptions& options);

} // namespace cli
