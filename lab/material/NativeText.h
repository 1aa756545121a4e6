#pragma once

#include <string>
#include <vector>

namespace lab {

// What is to be said of a file in the simulator's own text format: the leads that hold fewer values
// than the file announces, which play as 0 from there on.
std::vector<std::string> WarningsOfNativeText(const std::string& path);

} // namespace lab
