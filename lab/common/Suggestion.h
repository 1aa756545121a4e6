#pragma once

#include <string>
#include <vector>

namespace lab {

// The candidate that the user most likely meant by `word`: the nearest by letters replaced, missing
// or swapped, without regard to case, or one that begins with it or contains it. Empty when none is
// close.
std::string Nearest(const std::string& word, const std::vector<std::string>& candidates);

// "Did you mean X?", empty when `nearest` is.
std::string DidYouMean(const std::string& nearest);

} // namespace lab
