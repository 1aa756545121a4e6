// ravo: the simulator on the command line.

#include "lab/common/Failure.h"
#include "lab/common/Interrupt.h"
#include "lab/common/StandardStreams.h"
#include "lab/session/Simulator.h"
#include "tools/ravo/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

constexpr const char* kFooter =
    "Exit status: 0 done, 1 wrong command line, 2 unusable file, 3 no simulator,\n"
    "4 output lost or stalled, 5 difference above tolerance, 6 result cannot be written,\n"
    "128 + N ended by signal N (130 for Ctrl-C).";

// CLI11 would only say that a command is required.
void RequireKnownCommand(const CLI::App& app) {
    const std::vector<std::string> unknown = app.remaining();
    if (app.get_subcommands().empty() && !unknown.empty()) {
        lab::Fail(lab::kUsage, unknown.front(),
                  "is neither a command nor an option of ravo itself.",
                  "`ravo --help` lists them.");
    }
}

int Run(int argc, char** argv) {
    CLI::App app{"Plays ECG records and test signals on the RAVO multichannel ECG simulator.",
                 "ravo"};
    app.set_version_flag("--version", "ravo " + lab::LibraryVersion());
    app.require_subcommand(1);
    app.footer(kFooter);
    cli::Action action;
    cli::AddDevices(app, action);
    cli::AddDoctor(app, action);
    cli::AddInfo(app, action);
    cli::AddList(app, action);
    cli::AddPlay(app, action);
    cli::AddPlot(app, action);
    cli::AddCompare(app, action);
    cli::AddConvert(app, action);
    cli::AddNoiseStressTest(app, action);
    cli::AddRun(app, action);
    cli::AddReport(app, action);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        RequireKnownCommand(app);
        return app.exit(error) == 0 ? lab::kDone : lab::kUsage;
    }
    return action();
}

} // namespace

int main(int argc, char** argv) {
    lab::KeepStandard();
    lab::BlockTimerSignals();
    try {
        const int status = Run(argc, argv);
        lab::RequireWrittenResults();
        return status;
    } catch (const lab::Failure& failure) {
        lab::PrintFailure(failure);
        return failure.Status();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ravo: %s\n", error.what());
        return lab::kMaterial;
    }
}
