#pragma once

#include <string>
#include <vector>

namespace lab {

// The candidate that `word` is most likely meant to be, by letters in either case that differ, are
// missing or swapped, or because it begins or contains it; empty when none is near.
std::string Nearest(const std::string& word, const std::vector<std::string>& candidates);

// "Did you mean X?", empty when `nearest` is.
std::string DidYouMean(const std::string& nearest);

} // namespace lab
