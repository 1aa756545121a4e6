#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace cli {

// The action of the chosen command, run once the command line is known to be right; returns the
// exit status.
using Action = std::function<int()>;

// Each adds one command with its options to `app`; when the command is chosen, `action` is set.
void AddDevices(CLI::App& app, Action& action);
void AddDoctor(CLI::App& app, Action& action);
void AddInfo(CLI::App& app, Action& action);
void AddList(CLI::App& app, Action& action);
void AddPlay(CLI::App& app, Action& action);
void AddPlot(CLI::App& app, Action& action);
void AddCompare(CLI::App& app, Action& action);
void AddAnnotations(CLI::App& app, Action& action);
void AddConvert(CLI::App& app, Action& action);
void AddNoiseStressTest(CLI::App& app, Action& action);
void AddScore(CLI::App& app, Action& action);
// `words` is the command line.
void AddRun(CLI::App& app, Action& action, const std::vector<std::string>& words);
void AddReport(CLI::App& app, Action& action);
void AddServe(CLI::App& app, Action& action);

} // namespace cli
