#pragma once

#include <string>

namespace lab::score {

// The whole file; fails with status 2, naming it, where it cannot be read or is not a file.
std::string ReadInput(const std::string& path);

// The file's name without folder and without its last suffix, which may be missing.
std::string StemOf(const std::string& path);

// The path with its last suffix replaced by `suffix`, which begins with a dot.
std::string Sibling(const std::string& path, const std::string& suffix);

} // namespace lab::score
