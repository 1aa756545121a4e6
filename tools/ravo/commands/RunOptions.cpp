#include "tools/ravo/commands/RunOptions.h"

#include "lab/common/Failure.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/commands/Validators.h"

namespace cli {

using namespace lab;

namespace {

void AddServeOptions(CLI::App& command, RunOptions& options, CLI::Option* dryRun,
                     CLI::Option* example) {
    CLI::Option* serve =
        command
            .add_option("--serve", options.serve,
                        "Show the plan's progress on a page; needs the package ravo-serve")
            ->type_name("ADDRESS:PORT")
            ->check(NotEmpty())
            ->excludes(dryRun)
            ->excludes(example);
    command
        .add_option("--token-file", options.tokenFile,
                    "File with the token that the page asks for; required when not on loopback")
        ->type_name("FILE")
        ->check(NotEmpty())
        ->needs(serve);
}

} // namespace

void AddRunOptions(CLI::App& command, RunOptions& options) {
    RunRequest& request = options.request;
    command.add_option("PLAN", request.plan, "Test plan, a TOML file");
    command.add_option("-o,--output", request.output, "Folder for the journal, result and reports");
    command.add_flag("--resume", request.isResumed, "Continue the run in the folder");
    CLI::Option* dryRun = command.add_flag("--dry-run", request.isDry,
                                           "Check the plan and its material; play nothing");
    CLI::Option* example =
        command.add_flag("--example", options.wantsExample, "Print a commented plan");
    command.add_option("--answers", request.answers,
                       "Answers to the plan's questions, a TOML file: name = value");
    command.add_option("--from", request.from, "Begin with this step of the plan");
    command.add_option("--only", request.only, "Carry out this step of the plan only");
    command.add_option("--operator", request.operatorName,
                       "Name of the person who carries out the plan");
    AddPortOption(command, request.port);
    command
        .add_option("--timeout", options.timeout,
                    "Seconds to wait for the simulator, also after a loss")
        ->check(CLI::Range(1, 86'400))
        ->capture_default_str();
    command
        .add_option("--speed-up", request.speedUp,
                    "For emulated simulators that run this many times faster than real time")
        ->check(Between(1.0, 1000.0));
    AddServeOptions(command, options, dryRun, example);
    AddJsonOption(command, request.isJson);
}

RunRequest RequestOf(const RunOptions& options) {
    RunRequest request = options.request;
    if (request.plan.empty()) {
        Fail(kUsage, "PLAN", "is missing.", "`ravo run --example` writes one to begin with.");
    }
    if (request.output.empty() && !request.isDry) {
        Fail(kUsage, "--output", "is missing: a run leaves its journal and reports in a folder.",
             "Give --output DIR, or --dry-run to check the plan only.");
    }
    request.timeout = std::chrono::seconds(options.timeout);
    return request;
}

} // namespace cli
