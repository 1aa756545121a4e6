#include "lab/material/Annotations.h"
#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/commands/MaterialOptions.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

namespace cli {

using namespace lab;

namespace {

struct AnnotationsOptions {
    MaterialRequest material;
    bool isJson = false;
};

void PrintText(const std::vector<SourceAnnotation>& annotations) {
    for (const SourceAnnotation& annotation : annotations) {
        std::printf("%12.3f %10lld  %-4s %4d %4d %4d  %s\n", annotation.seconds,
                    static_cast<long long>(annotation.sample), annotation.code.c_str(),
                    annotation.subtype, annotation.channel, annotation.number,
                    Printable(annotation.text).c_str());
    }
}

void PrintJson(const std::vector<SourceAnnotation>& annotations) {
    Json json;
    json.BeginObject().Key("annotations").BeginArray();
    for (const SourceAnnotation& annotation : annotations) {
        json.BeginObject()
            .Field("time", annotation.seconds)
            .Field("sample", annotation.sample)
            .Field("code", annotation.code)
            .Field("subtype", annotation.subtype)
            .Field("channel", annotation.channel)
            .Field("number", annotation.number)
            .Field("text", annotation.text)
            .EndObject();
    }
    json.EndArray().EndObject();
    std::printf("%s\n", json.Text().c_str());
}

int ShowAnnotations(const AnnotationsOptions& options) {
    const OpenedMaterial material = OpenMaterial(options.material);
    const auto annotations = ReadAnnotations(material);
    if (annotations.empty()) {
        Warn(Printable(material.record.name) + " has no annotations");
    }
    const auto print = options.isJson ? PrintJson : PrintText;
    print(annotations);
    return kDone;
}

} // namespace

void AddAnnotations(CLI::App& app, Action& action) {
    auto options = std::make_shared<AnnotationsOptions>();
    CLI::App* command = app.add_subcommand("annotations", "List a record's annotations");
    command->add_option("RECORD", options->material.name, "WFDB record or EDF file")->required();
    AddJsonOption(*command, options->isJson);
    AddFormatOption(*command, options->material);
    command->callback(
        [options, &action] { action = [options] { return ShowAnnotations(*options); }; });
}

} // namespace cli
