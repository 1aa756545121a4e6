#include "lab/session/Play.h"
#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/machine/Processes.h"
#include "lab/material/LoadRecord.h"
#include "lab/session/Simulator.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/commands/MaterialOptions.h"
#include "tools/ravo/commands/Validators.h"
#include "tools/ravo/JsonFailure.h"
#include "tools/ravo/StatusLine.h"

#include <cmath>
#include <cstdio>
#include <memory>

namespace cli {

using namespace lab;

namespace {

struct PlayOptions {
    PlayRequest request;
    SimulatorChoice simulator;
    bool isJson = false;
    bool isQuiet = false;
};

StatusLine::Wanted WantedStatus(const PlayOptions& options) {
    return options.isQuiet  ? StatusLine::Wanted::kNever
           : options.isJson ? StatusLine::Wanted::kOnTerminal
                            : StatusLine::Wanted::kAlways;
}

void WarnOfClipping(const Record& record) {
    for (const auto& [lead, millivolts] : ClippedLeads(record)) {
        Warn(Format("%s: lead %s reaches %.3f mV and is clipped at 5 mV",
                    Printable(record.name).c_str(), lead.c_str(), millivolts));
    }
}

// ---- Results ------------------------------------------------------------------------------------

std::string DueText(const PlayResult& result) {
    const bool isCut = result.ending != Ending::kFinished && result.secondsDue > 0.0;
    return isCut ? Format(" of %.1f s", result.secondsDue) : " s";
}

void PrintText(const PlayResult& result) {
    std::printf("played %s on %s %s at %s\n", Printable(result.record).c_str(),
                result.model.c_str(), result.serial.c_str(), result.device.c_str());
    std::printf("  %.1f%s from second %g, %g samples per second, %s\n", result.seconds,
                DueText(result).c_str(), result.start, result.rate, EndingText(result.ending));
    std::printf("  delays reported: %d\n", result.delays);
}

void PrintJson(const PlayResult& result) {
    Json json;
    json.BeginObject();
    WriteFields(json, result);
    if (const std::optional<Failure> failure = FailureOf(result)) {
        WriteError(json, *failure);
    }
    json.EndObject();
    std::printf("%s\n", json.Text().c_str());
}

// The failure of an output stands in the result's JSON, which is printed once.
int Report(const PlayOptions& options, const PlayResult& result) {
    const auto print = options.isJson ? PrintJson : PrintText;
    print(result);
    if (const std::optional<Failure> failure = FailureOf(result)) {
        PrintFailure(*failure);
        return failure->Status();
    }
    return result.ending == Ending::kInterrupted ? kInterrupted + result.signal : kDone;
}

// ---- Playing ------------------------------------------------------------------------------------

Record Load(const PlayOptions& options) {
    Record record = LoadRecord(options.request.material);
    for (const std::string& warning : record.warnings) {
        Warn(warning);
    }
    RequirePlayable(record);
    RequireStart(options.request, record);
    WarnOfClipping(record);
    return record;
}

void WarnOfCalibration(const PlayOptions& options) {
    const std::string warning =
        RequireCalibration(DescribeSimulator(), options.request.requireCalibrated);
    if (!warning.empty()) {
        Warn(warning);
    }
}

// A host that gives up a port closes it after removing its lock.
constexpr std::chrono::milliseconds kPassing{500};

// The search does not notice programs that have the port open without a lock.
void WarnOfOtherHolders() {
    Machine machine;
    machine.patience = kPassing;
    const std::string device = DescribeSimulator().device;
    const Finding use = CheckUse(machine, device);
    if (use.state == State::kFailed) {
        Warn(device + " is " + use.sentence + " as well, which can take the simulator's answers");
    }
}

int Play(const PlayOptions& options) {
    const Interrupt interrupt;
    const Record record = Load(options);
    StatusLine status(WantedStatus(options));
    const Simulator simulator(options.simulator.port, options.simulator.serial);
    const auto showSearch = [&status](double elapsed, const std::string& what) {
        status.Show(elapsed, SearchParts(elapsed, what));
    };
    if (!simulator.WaitConnected(options.simulator, interrupt, showSearch)) {
        return kInterrupted + interrupt.Signal();
    }
    status.Clear();
    WarnOfCalibration(options);
    WarnOfOtherHolders();
    const PlayResult result = PlayLoaded(
        options.request, record, simulator, interrupt, [&](const PlayPosition& position) {
            status.Show(position.elapsed, PlayParts(position, record));
        });
    status.Clear();
    return Report(options, result);
}

} // namespace

void AddPlay(CLI::App& app, Action& action) {
    auto options = std::make_shared<PlayOptions>();
    PlayRequest& request = options->request;
    CLI::App* command = app.add_subcommand("play", "Play a record or a waveform on the simulator");
    command
        ->add_option(
            "MATERIAL", request.material.name,
            "Record file (.hea, .ecg, .dcd, .txt, .edf), builtin:NAME, or sine, triangle, square, "
            "rectangle-pulse, triangle-pulse, calibration, staircase")
        ->required();
    AddStartOption(*command, request.start);
    command->add_option("--seconds", request.seconds, "Seconds to play (default: to the end)")
        ->check(Between(0.001, 1e8));
    command->add_flag("--loop", request.loop, "Start over at the end, until Ctrl-C or --seconds");
    AddSimulatorOptions(*command, options->simulator);
    command->add_flag("--require-calibrated", request.requireCalibrated,
                      "Refuse a 12-bit unit without its calibration file");
    command
        ->add_option("--speed-up", request.speedUp,
                     "For emulated simulators that run this many times faster than real time")
        ->check(Between(1.0, 1000.0));
    command->add_flag("--quiet", options->isQuiet, "Show no progress");
    AddJsonOption(*command, options->isJson);
    AddMaterialOptions(*command, request.material);
    command->callback([options, &action] {
        options->request.material.start = options->request.start;
        action = [options] { return Play(*options); };
    });
}

} // namespace cli
