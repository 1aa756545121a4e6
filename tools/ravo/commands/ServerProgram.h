#pragma once

#include <string>
#include <vector>

namespace cli {

// Replaces this process by the program ravo-serve with these arguments. Fails when it cannot be
// started. It is a separate program because few users need it and it requires another library.
int BecomeServer(std::vector<std::string> words);

} // namespace cli
