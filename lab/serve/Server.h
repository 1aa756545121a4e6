#pragma once

#include "lab/serve/Address.h"

#include <optional>
#include <string>

namespace lab::serve {

struct ServeOptions {
    std::string listen = "127.0.0.1:8737";
    std::string root = ".";
    std::string tokenFile; // empty: none
    std::optional<int> port;
    double speedUp = 1; // of an emulated simulator: how many times faster than real time it plays
};

// Serves until a signal asks for the end; returns the exit status.
int Serve(const ServeOptions& options);

} // namespace lab::serve
