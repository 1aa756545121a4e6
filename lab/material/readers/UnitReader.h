#pragma once

#include "lab/material/readers/SourceRecord.h"

#include <memory>
#include <string>

namespace lab {

// Reads signals whose own unit is not one of voltage as if it were `unit`, "mV" or "uV".
std::unique_ptr<SourceReader> WithUnit(std::unique_ptr<SourceReader> reader,
                                       const std::string& unit);

} // namespace lab
