// Converts the licensed CTS/CSE data that their owner has into the neutral text form from which the
// library is built.

#include "builtin/Catalogue.h"
#include "builtin/NeutralText.h"
#include "builtin/Source.h"
#include "lab/common/RunProgram.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <stdexcept>

namespace {

using namespace ctscse;

struct Options {
    std::string record;
    std::string input;
    std::string folder;
    bool columns = false;
    int rate = kRate;
    std::string unit = "uV";
    size_t skip = 0;
};

const RecordEntry& FindRecord(const std::string& name) {
    const std::vector<RecordEntry>& records = Records();
    const auto found = std::find_if(records.begin(), records.end(), [&](const RecordEntry& entry) {
        return entry.name == name || entry.suffix == name;
    });
    if (found == records.end()) {
        throw std::runtime_error(name + ": the database has no record of this name");
    }
    return *found;
}

Source ReadSource(const Options& options) {
    if (options.columns) {
        return ReadColumns(options.input, options.rate, options.unit == "mV" ? 1.0 : 1000.0);
    }
    const std::string extension = std::filesystem::path(options.input).extension().string();
    return extension == ".edf" ? ReadEdf(options.input) : ReadCse(options.input);
}

void Import(const Options& options) {
    const RecordEntry& entry = FindRecord(options.record);
    const Source source = ReadSource(options);
    const auto samples = static_cast<size_t>(entry.samplesPerLead);
    const Table table{TakePeriod(source, options.skip, samples)};
    const std::string file =
        (std::filesystem::path(options.folder) / (entry.name + ".txt")).string();
    const std::string origin = std::filesystem::path(options.input).filename().string();
    WriteNeutralText(file, table, entry.name + ", imported from " + origin);
    std::cout << file << ": " << samples << " samples";
    if (source.rate != kRate) {
        std::cout << ", interpolated from " << source.rate << " to " << kRate << " per second";
    }
    std::cout << '\n';
}

int Run(int argc, char** argv) {
    Options options;
    CLI::App app("Imports a licensed CTS/CSE record for the compiled-in test database.");
    app.add_option("record", options.record, "Record name, such as CAL20000 or MA1_001")
        ->required();
    app.add_option("input", options.input, "CSE file (.dcd or text), EDF file, or plain columns")
        ->required()
        ->check(CLI::ExistingFile);
    app.add_option("-o,--output", options.folder, "Folder for the imported files")
        ->required()
        ->check(CLI::ExistingDirectory);
    app.add_flag("--columns", options.columns, "The input is plain text, eight leads a line");
    app.add_option("--rate", options.rate, "Samples per second of plain columns")
        ->check(CLI::Range(1, kRate));
    app.add_option("--unit", options.unit, "Unit of plain columns")
        ->check(CLI::IsMember({"uV", "mV"}));
    app.add_option("--skip", options.skip, "Samples of the input before the wanted period");
    CLI11_PARSE(app, argc, argv);
    Import(options);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    return lab::RunProgram("ravo-ctscse-import", 2, [&] { return Run(argc, argv); });
}
