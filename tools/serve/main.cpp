// ravo-serve: the simulator on a page and by remote control. `ravo serve` starts it.

#include "lab/common/Failure.h"
#include "lab/common/Interrupt.h"
#include "lab/common/StandardStreams.h"
#include "lab/serve/MaterialWorker.h"
#include "lab/serve/Server.h"
#include "lab/session/Simulator.h"
#include "tools/ravo/commands/RunOptions.h"
#include "tools/ravo/commands/Validators.h"
#include "tools/ravo/JsonFailure.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <string>

namespace {

constexpr const char* kProgram = "ravo serve";

// The server starts itself again with this option to read material.
constexpr const char* kWorkerOption = "--material-worker";
constexpr int kWorkerSocket = 3;

// `ravo run --serve` continues as the server, with this option and its own.
constexpr const char* kRunOption = "--run";

constexpr const char* kFooter =
    "The page is at the address that is printed. Ctrl-C ends the server.\n"
    "Exit status: 1 wrong command line, 128 + N ended by signal N (130 for Ctrl-C).";

// The arguments of `ravo run`, which has already checked them.
int RunAndServe(int argc, char** argv) {
    cli::RunOptions options;
    CLI::App app("Carry out a test plan", "ravo run");
    cli::AddRunOptions(app, options);
    app.parse(argc, argv);
    try {
        const int status =
            lab::serve::ServeRun({options.serve, options.tokenFile}, RequestOf(options));
        lab::RequireWrittenResults();
        return status;
    } catch (const lab::Failure& failure) {
        if (options.request.isJson) {
            cli::PrintJsonFailure(failure);
        }
        throw;
    }
}

int Run(int argc, char** argv) {
    lab::serve::ServeOptions options;
    CLI::App app{"Serve a page that shows what plays and controls it", kProgram};
    app.set_version_flag("--version", std::string("ravo-serve ") + lab::LibraryVersion());
    app.footer(kFooter);
    app.add_option("--listen", options.site.listen, "Address of the page; port 0 takes a free one")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    app.add_option("--root", options.root,
                   "Folder whose material may be played; nothing outside it")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--token-file", options.site.tokenFile,
                   "File with the token that clients must send; required when not on loopback")
        ->type_name("FILE")
        ->check(cli::NotEmpty());
    app.add_option("--port", options.port, "Only the simulator on /dev/ttyACMN")
        ->type_name("N")
        ->check(CLI::Range(0, 127));
    app.add_option("--speed-up", options.speedUp,
                   "For emulated simulators that run this many times faster than real time")
        ->type_name("X")
        ->check(cli::Between(1.0, 1000.0));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            const int status = app.exit(error);
            lab::RequireWrittenResults();
            return status;
        }
        lab::Fail(lab::kUsage, kProgram, error.what(), "`ravo serve --help` lists the options.");
    }
    return lab::serve::Serve(options);
}

} // namespace

int main(int argc, char** argv) {
    lab::KeepStandard();
    lab::BlockTimerSignals();
    try {
        if (argc == 3 && std::string(argv[1]) == kWorkerOption) {
            return lab::serve::AnswerQuestions(kWorkerSocket, argv[2]);
        }
        if (argc > 1 && std::string(argv[1]) == kRunOption) {
            return RunAndServe(argc - 1, argv + 1);
        }
        return Run(argc, argv);
    } catch (const lab::Failure& failure) {
        lab::PrintFailure(failure);
        return failure.Status();
    } catch (const std::exception& error) {
        lab::PrintFailure(lab::Failure(lab::kMaterial, kProgram, error.what()));
        return lab::kMaterial;
    }
}
