#pragma once

#include "lab/plan/Run.h"
#include "lab/serve/Site.h"

#include <optional>
#include <string>

namespace lab::serve {

struct ServeOptions {
    SiteOptions site;
    std::string root = ".";
    std::optional<int> port;
    double speedUp = 1; // of an emulated simulator: how many times faster than real time it plays
};

// Serves until a signal requests the end; returns the exit status.
int Serve(const ServeOptions& options);

// Carries out a plan as RunPlan does and shows its progress; the page's address goes to standard
// error.
int ServeRun(const SiteOptions& options, RunRequest request);

} // namespace lab::serve
