#pragma once

#include <string>

namespace lab::score {

// The whole file; fails with status 2, naming it, where it cannot be read, is not a file or is far
// larger than any list.
std::string ReadInput(const std::string& path);

// The file's name without its folder and its last suffix, which may be missing.
std::string StemOf(const std::string& path);

// The header of the record that a file belongs to: it stands beside the file, with ".hea" in place
// of ".SUFFIX" or, where the file ends otherwise, of its last suffix. The header need not exist.
std::string HeaderOf(const std::string& path, const std::string& suffix);

// The suffix with its dot.
std::string EndingOf(const std::string& suffix);

// Whether the text has this ending and is longer than it.
bool EndsWith(const std::string& text, const std::string& ending);

} // namespace lab::score
