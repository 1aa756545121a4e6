#pragma once

#include "lab/session/Play.h"

#include <string>

namespace lab::serve {

// The contents of `POST /api/play`: the fields of a plan's step of material, by name.
struct PlayOrder {
    std::string material; // as the client names it
    std::string noise;    // likewise; empty without one
    PlayRequest request;  // names as given, not yet resolved
};

// Reads the body. Refuses text that is not JSON (400), unknown fields, and values out of range
// (422).
PlayOrder ReadPlayOrder(const std::string& body);

// {"on":true}
bool ReadNoiseOrder(const std::string& body);

// Refuses any body except an empty one or {}.
void RequireNoOrder(const std::string& body);

} // namespace lab::serve
