#include "lab/plan/Run.h"
#include "lab/common/Failure.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/RunOptions.h"
#include "tools/ravo/commands/ServerProgram.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

namespace cli {

using namespace lab;

namespace {

int Run(const RunOptions& options, std::vector<std::string> words) {
    if (options.wantsExample) {
        std::fputs(kExamplePlan, stdout);
        return kDone;
    }
    const RunRequest request = RequestOf(options);
    if (options.serve.empty()) {
        return RunPlan(request);
    }
    words.front() = "--run"; // instead of "run"
    return BecomeServer(words);
}

} // namespace

void AddRun(CLI::App& app, Action& action, const std::vector<std::string>& words) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* command =
        app.add_subcommand("run", "Carry out a test plan and write evidence and reports");
    AddRunOptions(*command, *options);
    command->callback(
        [options, &action, words] { action = [options, words] { return Run(*options, words); }; });
}

} // namespace cli
