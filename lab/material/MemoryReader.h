#pragma once

#include "lab/material/readers/SourceRecord.h"

#include <memory>

namespace lab {

// A record whose samples are already in memory, one row for each of its signals.
std::unique_ptr<SourceReader> ReadFromMemory(SourceRecord record, Samples samples);

} // namespace lab
