#pragma once

#include "lab/session/Simulator.h"

#include <optional>
#include <string>

namespace CLI {
class App;
}

// Options that several commands take: each is defined once, so that it has the same meaning and
// help text everywhere.
namespace cli {

void AddPortOption(CLI::App& command, std::optional<int>& port);
void AddSerialOption(CLI::App& command, std::string& serial);
void AddTimeoutOption(CLI::App& command, int& seconds);
void AddJsonOption(CLI::App& command, bool& isJson);

// A position in the material: seconds with a fraction, m:ss or h:mm:ss.
void AddStartOption(CLI::App& command, double& start);
void AddStartOption(CLI::App& command, std::optional<double>& start);

// --port, --serial, --timeout and --wait.
void AddSimulatorOptions(CLI::App& command, lab::SimulatorChoice& choice);

} // namespace cli
