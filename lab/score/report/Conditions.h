#pragma once

#include "lab/score/Score.h"

#include <string>
#include <vector>

namespace lab::score {

// A name or path as reports show it: UTF-8 without control characters.
std::string Shown(const std::string& text);

// The conditions under which the figures were obtained, one sentence per line: what was compared,
// with which clock, by which rules, by which program.
std::vector<std::string> ConditionsOf(const ScoreResult& result);

} // namespace lab::score
