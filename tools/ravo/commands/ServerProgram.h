#pragma once

#include <string>
#include <vector>

namespace cli {

// This process goes on as the program ravo-serve with these words. Fails when that cannot be
// started. A program of its own, beside this one: few need it, and it takes a library more.
int BecomeServer(std::vector<std::string> words);

} // namespace cli
