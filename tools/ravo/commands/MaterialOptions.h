#pragma once

#include "lab/material/MaterialRequest.h"

namespace CLI {
class App;
}

namespace cli {

// Adds the options that determine what to load; every command that loads takes the same ones.
void AddMaterialOptions(CLI::App& command, lab::MaterialRequest& request);

// The one of them that determines how to read a file.
void AddFormatOption(CLI::App& command, lab::MaterialRequest& request);

} // namespace cli
