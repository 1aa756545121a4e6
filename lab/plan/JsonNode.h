#pragma once

#include "lab/plan/Toml.h"

#include <nlohmann/json.hpp>

namespace lab {

// JSON as a value of a plan, for the fields of a step, which judge it; a null is a date, which no
// field takes.
TomlNode NodeOfJson(const nlohmann::json& value);

} // namespace lab
