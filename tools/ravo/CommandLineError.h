#pragma once

#include "lab/common/Failure.h"

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace cli {

// The option parser's error in the form of all other failures: the option or argument concerned,
// what is wrong with it, and the cure.
lab::Failure ToFailure(const CLI::App& app, const CLI::ParseError& error);

// "ravo", or "ravo play" when that command was recognised.
std::string CommandName(const CLI::App& app);

} // namespace cli
