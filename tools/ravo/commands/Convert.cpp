#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/material/Conversion.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/commands/MaterialOptions.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

namespace cli {

using namespace lab;

namespace {

struct ConvertOptions {
    ConversionRequest request;
    bool isJson = false;
};

void PrintJson(const Converted& converted) {
    Json json;
    json.BeginObject().Field("path", converted.path).Key("warnings").BeginArray();
    for (const std::string& warning : converted.warnings) {
        json.Value(warning);
    }
    json.EndArray().EndObject();
    std::printf("%s\n", json.Text().c_str());
}

int Convert(const ConvertOptions& options) {
    const Converted converted = ConvertMaterial(options.request);
    for (const std::string& warning : converted.warnings) {
        Warn(warning);
    }
    if (options.isJson) {
        PrintJson(converted);
    } else {
        std::printf("%s\n", converted.path.c_str());
    }
    return kDone;
}

} // namespace

void AddConvert(CLI::App& app, Action& action) {
    auto options = std::make_shared<ConvertOptions>();
    ConversionRequest& request = options->request;
    CLI::App* command = app.add_subcommand(
        "convert", "Convert any material into a WFDB record of format 16, or into CSV");
    command->add_option("SOURCE", request.material.name, "What to convert, as in \"ravo play\"")
        ->required();
    command->add_option("DIRECTORY", request.directory, "Where the record goes")->required();
    command->add_option("--name", request.name,
                        "Name of the record (default: the source's, made unique)");
    command->add_flag("--csv", request.isCsv, "Write NAME.csv, in mV, instead of a record");
    command->add_flag("--all", request.takesAll, "Convert signals that feed no lead, too");
    command->add_flag("--force", request.overwrites, "Replace a record of the same name");
    AddJsonOption(*command, options->isJson);
    AddMaterialOptions(*command, request.material);
    command->callback([options, &action] { action = [options] { return Convert(*options); }; });
}

} // namespace cli
