// ravo: the simulator on the command line.

#include "lab/common/Failure.h"
#include "lab/common/Interrupt.h"
#include "lab/common/StandardStreams.h"
#include "lab/session/Simulator.h"
#include "tools/ravo/CommandLineError.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/JsonFailure.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* kFooter =
    "Exit status: 0 done, 1 wrong command line, 2 unusable file, 3 no simulator,\n"
    "4 output lost or stalled, 5 difference above tolerance, 6 result cannot be written,\n"
    "128 + N ended by signal N (130 for Ctrl-C).";

constexpr const char* kProgram = "ravo";

// `ravo help play` and `ravo version` mean the same as --help and --version.
std::vector<std::string> WithWordsAsOptions(std::vector<std::string> words) {
    if (!words.empty() && words.front() == "version") {
        words.front() = "--version";
    } else if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    return words;
}

// The parser expects the words from the last to the first.
void Parse(CLI::App& app, std::vector<std::string> words) {
    std::reverse(words.begin(), words.end());
    app.parse(std::move(words));
}

bool IsJsonWanted(const std::vector<std::string>& words) {
    return std::find(words.begin(), words.end(), "--json") != words.end();
}

int Report(const std::string& command, const lab::Failure& failure, bool isJson) {
    if (isJson) {
        cli::PrintJsonFailure(failure);
    }
    lab::PrintFailure(failure, command);
    return failure.Status();
}

int Run(const std::vector<std::string>& words) {
    CLI::App app{"Plays ECG records and test signals on the RAVO multichannel ECG simulator.",
                 kProgram};
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
    cli::AddAnnotations(app, action);
    cli::AddNoiseStressTest(app, action);
    cli::AddScore(app, action);
    cli::AddRun(app, action, words);
    cli::AddReport(app, action);
    cli::AddServe(app, action);
    try {
        Parse(app, WithWordsAsOptions(words));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        return Report(cli::CommandName(app), cli::ToFailure(app, error), IsJsonWanted(words));
    }
    return action();
}

int RunAndReport(const std::vector<std::string>& words) {
    try {
        const int status = Run(words);
        lab::RequireWrittenResults();
        return status;
    } catch (const lab::Failure& failure) {
        return Report(kProgram, failure, IsJsonWanted(words));
    } catch (const std::exception& error) {
        const lab::Failure failure(lab::kMaterial, "ravo", error.what());
        return Report(kProgram, failure, IsJsonWanted(words));
    }
}

} // namespace

int main(int argc, char** argv) {
    lab::KeepStandard();
    lab::BlockTimerSignals();
    return RunAndReport({argv + 1, argv + argc});
}
