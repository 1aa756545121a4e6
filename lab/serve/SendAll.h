#pragma once

#include <string>

namespace lab::serve {

// False when the other side is gone.
bool SendAll(int socket, const std::string& text);

} // namespace lab::serve
