#include "tools/ravo/commands/CommonOptions.h"

#include "lab/common/TimeText.h"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace cli {
namespace {

constexpr double kLatestStart = 1e6;

// Replaces the text by its number of seconds.
std::string ToSeconds(std::string& text) {
    const std::optional<double> seconds = lab::SecondsFromText(text);
    if (!seconds || *seconds > kLatestStart) {
        return "\"" + text +
               "\" is not a time from 0 to 1000000 seconds: 90, 90.5, 1:30 or "
               "0:01:30";
    }
    char number[32];
    std::snprintf(number, sizeof number, "%.17g", *seconds);
    text = number;
    return "";
}

template <typename Start>
void AddStart(CLI::App& command, Start& start) {
    command
        .add_option("--start", start,
                    "Position in the material to start at: seconds, m:ss or h:mm:ss")
        ->transform(CLI::Validator(ToSeconds, ""));
}

} // namespace

void AddPortOption(CLI::App& command, std::optional<int>& port) {
    command.add_option("--port", port, "Use only /dev/ttyACMN")->check(CLI::Range(0, 127));
}

void AddSerialOption(CLI::App& command, std::string& serial) {
    command.add_option("--serial", serial, "Use only the simulator with this serial number");
}

void AddTimeoutOption(CLI::App& command, int& seconds) {
    command.add_option("--timeout", seconds, "Seconds to search for the simulator")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
}

void AddJsonOption(CLI::App& command, bool& isJson) {
    command.add_flag("--json", isJson, "Print the result, or the failure, as JSON");
}

void AddStartOption(CLI::App& command, double& start) {
    AddStart(command, start);
}

void AddStartOption(CLI::App& command, std::optional<double>& start) {
    AddStart(command, start);
}

void AddSimulatorOptions(CLI::App& command, lab::SimulatorChoice& choice) {
    AddPortOption(command, choice.port);
    AddSerialOption(command, choice.serial);
    AddTimeoutOption(command, choice.timeout);
    command.add_flag("--wait", choice.isPatient,
                     "While another program holds the simulator, wait until it is free");
}

} // namespace cli
