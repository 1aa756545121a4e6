#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/machine/Locks.h"
#include "lab/machine/Ports.h"
#include "lab/session/Calibration.h"
#include "lab/session/Simulator.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/StatusLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace cli {

using namespace lab;

namespace {

// A port that does not answer within this time has no usable simulator.
constexpr int kPortPatience = 5;

struct DevicesOptions {
    SimulatorChoice choice;
    bool isJson = false;
};

// A simulator, or a port that another program holds.
struct Entry {
    std::string device;
    std::string holder; // "ravo (process 712)"; empty when it is free
    std::optional<SimulatorInformation> simulator;
};

// ---- The search ---------------------------------------------------------------------------------

std::optional<SimulatorInformation> Ask(int port, int timeout, const Interrupt& interrupt) {
    const Simulator simulator(port);
    const std::chrono::seconds patience(std::min(timeout, kPortPatience));
    return simulator.Await(patience, interrupt) ? std::optional(DescribeSimulator()) : std::nullopt;
}

bool IsWanted(const SimulatorChoice& choice, const SimulatorInformation& simulator) {
    return choice.serial.empty() || simulator.serial == choice.serial;
}

// Asks every free port once.
std::vector<Entry> LookAround(const SimulatorChoice& choice, const Interrupt& interrupt) {
    const Machine machine;
    std::vector<Entry> entries;
    for (const int port : PortsPresent(machine, choice.port)) {
        const std::string path = PortPath(machine, port);
        const std::string holder = LockHolder(machine, port);
        if (!holder.empty()) {
            entries.push_back({path, holder, std::nullopt});
            continue;
        }
        const auto simulator = Ask(port, choice.timeout, interrupt);
        if (simulator && IsWanted(choice, *simulator)) {
            entries.push_back({path, "", simulator});
        }
        if (interrupt.Signal() != 0) {
            break;
        }
    }
    return entries;
}

// Waits until the first simulator appears; fails when none does.
std::vector<Entry> WaitForOne(const DevicesOptions& options, const Interrupt& interrupt) {
    StatusLine status(options.isJson ? StatusLine::Wanted::kOnTerminal
                                     : StatusLine::Wanted::kAlways);
    const Simulator simulator(options.choice.port, options.choice.serial);
    const auto show = [&status](double elapsed, const std::string& what) {
        status.Show(elapsed, SearchParts(elapsed, what));
    };
    if (!simulator.WaitConnected(options.choice, interrupt, show)) {
        return {};
    }
    const SimulatorInformation information = DescribeSimulator();
    return {{information.device, "", information}};
}

// ---- The list -----------------------------------------------------------------------------------

// 16-bit units need no calibration and never read a file.
std::string DescribeCalibration(const SimulatorInformation& simulator) {
    const std::string state = CalibrationState(simulator);
    if (state == "not-needed") {
        return "none needed";
    }
    const std::string note = state == "missing"   ? " (missing: uncalibrated)"
                             : state == "damaged" ? " (damaged: `ravo doctor` says where)"
                                                  : "";
    return simulator.calibrationFile + note;
}

void PrintText(const std::vector<Entry>& entries) {
    for (const Entry& entry : entries) {
        std::printf("%s\n", entry.device.c_str());
        if (!entry.simulator) {
            std::printf("  in use by    %s\n", entry.holder.c_str());
            continue;
        }
        const SimulatorInformation& simulator = *entry.simulator;
        std::printf("  model        %s\n  serial       %s\n  converter    %d bits\n"
                    "  calibration  %s\n",
                    simulator.model.c_str(), simulator.serial.c_str(), simulator.dacBits,
                    DescribeCalibration(simulator).c_str());
    }
}

void AddSimulator(Json& json, const SimulatorInformation& simulator) {
    const std::string state = CalibrationState(simulator);
    json.Field("model", simulator.model)
        .Field("serial", simulator.serial)
        .Field("dacBits", simulator.dacBits)
        .Field("calibrationFile", simulator.calibrationFile)
        .Field("calibrated", state == "loaded")
        .Field("calibration", state);
}

void PrintJson(const std::vector<Entry>& entries) {
    Json json;
    json.BeginObject().Key("devices").BeginArray();
    for (const Entry& entry : entries) {
        json.BeginObject().Field("device", entry.device);
        if (entry.simulator) {
            AddSimulator(json, *entry.simulator);
        }
        json.Key("holder");
        entry.holder.empty() ? json.Null() : json.Value(entry.holder);
        json.EndObject();
    }
    json.EndArray().EndObject();
    std::printf("%s\n", json.Text().c_str());
}

int ShowDevices(const DevicesOptions& options) {
    const Interrupt interrupt;
    std::vector<Entry> entries = LookAround(options.choice, interrupt);
    if (entries.empty() && interrupt.Signal() == 0) {
        entries = WaitForOne(options, interrupt);
    }
    if (interrupt.Signal() != 0) {
        return kInterrupted + interrupt.Signal();
    }
    options.isJson ? PrintJson(entries) : PrintText(entries);
    return kDone;
}

} // namespace

void AddDevices(CLI::App& app, Action& action) {
    auto options = std::make_shared<DevicesOptions>();
    options->choice.timeout = kPortPatience;
    CLI::App* command = app.add_subcommand(
        "devices", "List the simulators with identity, converter, calibration and holder");
    AddPortOption(*command, options->choice.port);
    AddSerialOption(*command, options->choice.serial);
    AddTimeoutOption(*command, options->choice.timeout);
    AddJsonOption(*command, options->isJson);
    command->callback([options, &action] { action = [options] { return ShowDevices(*options); }; });
}

} // namespace cli
