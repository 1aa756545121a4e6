#pragma once

#include "lab/score/Score.h"

#include <string>

namespace lab::score {

std::string HtmlOf(const ScoreResult& result);

} // namespace lab::score
