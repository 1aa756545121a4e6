#include "lab/common/Failure.h"
#include "lab/material/Builtin.h"
#include "tools/ravo/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <vector>

namespace cli {

using namespace lab;

namespace {

const char* SourceOf(uint32_t licensed) {
    return licensed != 0 ? "licensed" : "stand-in";
}

int PrintList() {
    std::printf("%6s  %-9s %8s %9s  %s\n", "number", "record", "samples", "seconds", "source");
    const std::vector<RAVO_BUILTIN_RECORD> records = BuiltinRecords();
    for (std::size_t number = 0; number < records.size(); ++number) {
        const RAVO_BUILTIN_RECORD& record = records[number];
        std::printf("%6zu  %-9s %8u %9.3f  %s\n", number, record.Name, record.NumberOfSamples,
                    static_cast<double>(record.NumberOfSamples) / record.SamplingFrequency,
                    SourceOf(record.Licensed));
    }
    std::printf("\n%6s  %-9s %8s %9s  %s\n", "number", "noise", "", "seconds", "source");
    const std::vector<RAVO_BUILTIN_NOISE> noises = BuiltinNoises();
    for (std::size_t number = 0; number < noises.size(); ++number) {
        std::printf("%6zu  %-9s %8s %9.3f  %s\n", number, noises[number].Name, "", 10.0,
                    SourceOf(noises[number].Licensed));
    }
    return kDone;
}

} // namespace

void AddList(CLI::App& app, Action& action) {
    CLI::App* list =
        app.add_subcommand("list", "List the records and noises of the built-in CTS/CSE database");
    list->footer("A stand-in is made from published definitions, with the name and the length of "
                 "the\nrecord that it stands for: good for trying things out, not for certifying.");
    list->callback([&action] { action = PrintList; });
}

} // namespace cli
