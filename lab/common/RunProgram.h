#pragma once

#include <functional>

namespace lab {

// The main function of a small program: returns the status of `run`. When it throws, or when output
// written to standard output was lost, prints "NAME: reason" and returns `failure`.
int RunProgram(const char* name, int failure, const std::function<int()>& run);

} // namespace lab
