#pragma once

#include "lab/plan/Toml.h"

#include <nlohmann/json.hpp>

namespace lab {

// JSON as a value of a plan, so that the fields of a step can check it. A null becomes a date,
// which no field accepts.
TomlNode NodeOfJson(const nlohmann::json& value);

} // namespace lab
