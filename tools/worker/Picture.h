#pragma once

#include "lab/material/Outputs.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace worker {

// The loaded record on ECG paper from second `start` on, with what the outputs carried drawn over
// it when that is given: the bytes of a .png, .svg or .pdf. `wanted` has "format", "seconds",
// "speed" (mm/s), "gain" (mm/mV), "layout" and "leads", all optional.
std::string DrawnPicture(const lab::Record& record, int start, const nlohmann::json& wanted,
                         const std::optional<lab::Outputs>& outputs);

} // namespace worker
