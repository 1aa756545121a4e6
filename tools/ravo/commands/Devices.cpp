#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/session/Simulator.h"
#include "tools/ravo/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

namespace cli {

using namespace lab;

namespace {

struct DevicesOptions {
    std::optional<int> port;
    int timeout = 5;
    bool isJson = false;
};

// 16-bit units are calibrated in themselves and never read a file.
std::string DescribeCalibration(const SimulatorInformation& simulator) {
    if (simulator.dacBits == 16) {
        return "none needed";
    }
    return simulator.calibrationFile + (simulator.isCalibrated ? "" : " (not there: uncalibrated)");
}

void PrintText(const SimulatorInformation& simulator) {
    std::printf("%s\n  model        %s\n  serial       %s\n  converter    %d bits\n"
                "  calibration  %s\n",
                simulator.device.c_str(), simulator.model.c_str(), simulator.serial.c_str(),
                simulator.dacBits, DescribeCalibration(simulator).c_str());
}

void PrintJson(const SimulatorInformation& simulator) {
    Json json;
    json.BeginObject().Key("devices").BeginArray().BeginObject();
    json.Field("device", simulator.device)
        .Field("model", simulator.model)
        .Field("serial", simulator.serial)
        .Field("dacBits", simulator.dacBits)
        .Field("calibrationFile", simulator.calibrationFile)
        .Field("calibrated", simulator.isCalibrated);
    json.EndObject().EndArray().EndObject();
    std::printf("%s\n", json.Text().c_str());
}

int ShowDevices(const DevicesOptions& options) {
    const Interrupt interrupt;
    const Simulator simulator(options.port);
    if (!simulator.WaitConnected(std::chrono::seconds(options.timeout), interrupt)) {
        return kInterrupted + interrupt.Signal();
    }
    const SimulatorInformation information = DescribeSimulator();
    options.isJson ? PrintJson(information) : PrintText(information);
    return kDone;
}

} // namespace

void AddDevices(CLI::App& app, Action& action) {
    auto options = std::make_shared<DevicesOptions>();
    CLI::App* command = app.add_subcommand(
        "devices", "Find the simulator and show its identity, converter and calibration");
    command->add_option("--port", options->port, "Look only at /dev/ttyACMN")
        ->check(CLI::Range(0, 127));
    command->add_option("--timeout", options->timeout, "Seconds to search for it")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    command->add_flag("--json", options->isJson, "Result as JSON");
    command->callback([options, &action] { action = [options] { return ShowDevices(*options); }; });
}

} // namespace cli
