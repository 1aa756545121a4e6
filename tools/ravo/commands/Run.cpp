#include "lab/plan/Run.h"
#include "lab/common/Failure.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/commands/Validators.h"

#include <cstdio>
#include <memory>

namespace cli {

using namespace lab;

namespace {

struct RunOptions {
    RunRequest request;
    int timeout = 10;
    bool wantsExample = false;
};

int Run(RunOptions options) {
    if (options.wantsExample) {
        std::fputs(kExamplePlan, stdout);
        return kDone;
    }
    if (options.request.plan.empty()) {
        Fail(kUsage, "PLAN", "is missing.", "`ravo run --example` writes one to begin with.");
    }
    if (options.request.output.empty() && !options.request.isDry) {
        Fail(kUsage, "--output", "is missing: a run leaves its journal and reports in a folder.",
             "Give --output DIR, or --dry-run to check the plan only.");
    }
    options.request.timeout = std::chrono::seconds(options.timeout);
    return RunPlan(options.request);
}

} // namespace

void AddRun(CLI::App& app, Action& action) {
    auto options = std::make_shared<RunOptions>();
    RunRequest& request = options->request;
    CLI::App* command =
        app.add_subcommand("run", "Carry out a test plan and leave evidence and reports");
    command->add_option("PLAN", request.plan, "Test plan, a file of TOML");
    command->add_option("-o,--output", request.output,
                        "Folder for the journal, result and reports");
    command->add_flag("--resume", request.isResumed, "Go on with the run that is in the folder");
    command->add_flag("--dry-run", request.isDry, "Check the plan and its material; play nothing");
    command->add_flag("--example", options->wantsExample, "Print a commented plan");
    command->add_option("--answers", request.answers,
                        "Answers to the plan's questions, a file of TOML: name = value");
    command->add_option("--from", request.from, "Begin with this step of the plan");
    command->add_option("--only", request.only, "Carry out this step of the plan only");
    command->add_option("--operator", request.operatorName, "Who carries the plan out");
    AddPortOption(*command, request.port);
    command
        ->add_option("--timeout", options->timeout,
                     "Seconds to wait for the simulator, also for one that went away")
        ->check(CLI::Range(1, 86'400))
        ->capture_default_str();
    command
        ->add_option("--speed-up", request.speedUp,
                     "For emulated simulators that run this many times faster than real time")
        ->check(Between(1.0, 1000.0));
    AddJsonOption(*command, request.isJson);
    command->callback([options, &action] { action = [options] { return Run(*options); }; });
}

} // namespace cli
