#include "lab/report/Report.h"
#include "lab/common/Failure.h"
#include "lab/evidence/Journal.h"
#include "lab/evidence/RunFolder.h"
#include "tools/ravo/commands/Commands.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>
#include <string>

namespace cli {

using namespace lab;

namespace {

int Report(const std::string& directory) {
    const auto events = ReadJournal(directory);
    const RunFolder folder(directory, true);
    WriteReports(folder, events);
    std::printf("%s/report.html\n%s/report.pdf\n", directory.c_str(), directory.c_str());
    return kDone;
}

} // namespace

void AddReport(CLI::App& app, Action& action) {
    auto directory = std::make_shared<std::string>();
    CLI::App* command =
        app.add_subcommand("report", "Rebuild the reports of a run from its journal alone");
    command->add_option("DIR", *directory, "Folder of the run")->required();
    command->callback(
        [directory, &action] { action = [directory] { return Report(*directory); }; });
}

} // namespace cli
