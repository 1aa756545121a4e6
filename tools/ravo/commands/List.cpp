#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/material/Builtin.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <vector>

namespace cli {

using namespace lab;

namespace {

constexpr double kNoiseSeconds = 10.0;

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
        std::printf("%6zu  %-9s %8s %9.3f  %s\n", number, noises[number].Name, "", kNoiseSeconds,
                    SourceOf(noises[number].Licensed));
    }
    return kDone;
}

void WriteRecords(Json& json) {
    const std::vector<RAVO_BUILTIN_RECORD> records = BuiltinRecords();
    json.Key("records").BeginArray();
    for (std::size_t number = 0; number < records.size(); ++number) {
        const RAVO_BUILTIN_RECORD& record = records[number];
        json.BeginObject()
            .Field("number", static_cast<int64_t>(number))
            .Field("name", record.Name)
            .Field("material", std::string(kBuiltinPrefix) + record.Name)
            .Field("rate", static_cast<int64_t>(record.SamplingFrequency))
            .Field("samples", static_cast<int64_t>(record.NumberOfSamples))
            .Field("seconds",
                   static_cast<double>(record.NumberOfSamples) / record.SamplingFrequency)
            .Field("source", SourceOf(record.Licensed))
            .EndObject();
    }
    json.EndArray();
}

void WriteNoises(Json& json) {
    const std::vector<RAVO_BUILTIN_NOISE> noises = BuiltinNoises();
    json.Key("noises").BeginArray();
    for (std::size_t number = 0; number < noises.size(); ++number) {
        json.BeginObject()
            .Field("number", static_cast<int64_t>(number))
            .Field("name", noises[number].Name)
            .Field("seconds", kNoiseSeconds)
            .Field("source", SourceOf(noises[number].Licensed))
            .EndObject();
    }
    json.EndArray();
}

int PrintJson() {
    Json json;
    json.BeginObject();
    WriteRecords(json);
    WriteNoises(json);
    json.EndObject();
    std::printf("%s\n", json.Text().c_str());
    return kDone;
}

} // namespace

void AddList(CLI::App& app, Action& action) {
    auto isJson = std::make_shared<bool>(false);
    CLI::App* list =
        app.add_subcommand("list", "List the records and noises of the built-in CTS/CSE database");
    AddJsonOption(*list, *isJson);
    list->footer("A stand-in is made from published definitions, with the name and the length of "
                 "the\nrecord that it stands for: good for trying things out, not for certifying.");
    list->callback([isJson, &action] { action = *isJson ? PrintJson : PrintList; });
}

} // namespace cli
