#pragma once

#include "lab/session/Play.h"

#include <nlohmann/json.hpp>

namespace worker {

// A play's request from its material's name, which may be empty, and its options: an object with
// the long names that `ravo play` has, with underscores or dashes. Fails, status 1, naming the
// first that is wrong.
lab::PlayRequest PlayRequestOf(const std::string& material, const nlohmann::json& options);

} // namespace worker
