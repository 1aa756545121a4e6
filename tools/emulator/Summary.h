#pragma once

#include "tools/emulator/Journal.h"

#include <string>

// The figures of a session, for people and for scripts.
namespace emulator {

std::string TextSummary(const Journal& journal);

// One JSON object on one line.
std::string JsonSummary(const Journal& journal);

} // namespace emulator
