#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/material/Outputs.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/MaterialOptions.h"
#include "tools/ravo/commands/Validators.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>

namespace cli {

using namespace lab;

namespace {

struct CompareOptions {
    MaterialRequest material;
    std::string decoded;
    std::optional<int> start;
    double tolerance = 0.0; // microvolts; 0: none
    bool isLoop = false;
    bool isJson = false;
};

struct Comparison {
    int start = 0;           // second of the record
    std::size_t frames = 0;  // compared
    std::size_t surplus = 0; // frames behind the end of the record, not compared
    int64_t rate = 0;
    std::array<double, kOutputCount> largest{};    // microvolts
    std::array<std::size_t, kOutputCount> where{}; // frame of the largest difference

    double Largest() const { return *std::max_element(largest.begin(), largest.end()); }
};

// What the play brought beyond the end of the record is left out unless it was to loop.
std::size_t FramesToCompare(const Record& record, const Outputs& outputs, int start, bool isLoop) {
    if (isLoop || record.isEndless) {
        return outputs.Frames();
    }
    const double left = (record.Seconds() - start) * static_cast<double>(record.FramesPerSecond());
    return std::min(outputs.Frames(), static_cast<std::size_t>(std::llround(left)));
}

void RequireSameRate(const CompareOptions& options, const Record& record, const Outputs& outputs) {
    const int64_t expected = record.FramesPerSecond();
    if (outputs.rate != expected) {
        Fail(kMaterial, options.decoded,
             Format("has %lld frames per second, the source plays at %lld.",
                    static_cast<long long>(outputs.rate), static_cast<long long>(expected)),
             "Is it the output of this source?");
    }
}

Comparison CompareWith(const CompareOptions& options, const Record& record,
                       const Outputs& outputs) {
    Comparison result;
    result.rate = outputs.rate;
    result.start = options.start ? *options.start : FindStart(record, outputs);
    RequireStart(record, result.start);
    result.frames = FramesToCompare(record, outputs, result.start, options.isLoop);
    result.surplus = outputs.Frames() - result.frames;
    const Outputs expected = ExpectedOutputs(record, result.start, result.frames);
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        for (std::size_t n = 0; n < result.frames; ++n) {
            const double difference =
                std::fabs(outputs.millivolts[i][n] - expected.millivolts[i][n]) * 1000.0;
            if (difference > result.largest[i]) {
                result.largest[i] = difference;
                result.where[i] = n;
            }
        }
    }
    return result;
}

void PrintText(const Comparison& result) {
    std::printf("compared %zu frames (%.3f s) from second %d of the source\n", result.frames,
                static_cast<double>(result.frames) / static_cast<double>(result.rate),
                result.start);
    if (result.surplus > 0) {
        std::printf("%zu frames behind the end of the source are not compared\n", result.surplus);
    }
    std::printf("largest difference per output\n");
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        std::printf("  %-3s %9.3f uV at %.3f s\n", kOutputNames[i], result.largest[i],
                    static_cast<double>(result.where[i]) / static_cast<double>(result.rate));
    }
}

void PrintJson(const Comparison& result) {
    Json json;
    json.BeginObject()
        .Field("start", result.start)
        .Field("frames", static_cast<int64_t>(result.frames))
        .Field("framesBehindEnd", static_cast<int64_t>(result.surplus))
        .Field("rate", result.rate)
        .Key("largestDifferenceMicrovolts")
        .BeginObject();
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        json.Field(kOutputNames[i], result.largest[i]);
    }
    json.EndObject().EndObject();
    std::printf("%s\n", json.Text().c_str());
}

int Compare(const CompareOptions& options) {
    const Outputs outputs = ReadOutputs(options.decoded);
    const Record record = LoadRecord(options.material);
    RequirePlayable(record);
    RequireSameRate(options, record, outputs);
    const Comparison result = CompareWith(options, record, outputs);
    options.isJson ? PrintJson(result) : PrintText(result);
    if (options.tolerance > 0.0 && result.Largest() > options.tolerance) {
        Fail(kDifferent, options.decoded,
             Format("differs from the source by up to %.3f uV, more than %g uV.", result.Largest(),
                    options.tolerance));
    }
    return kDone;
}

} // namespace

void AddCompare(CLI::App& app, Action& action) {
    auto options = std::make_shared<CompareOptions>();
    CLI::App* command = app.add_subcommand(
        "compare", "Compare what the simulator's outputs carried with what the source says");
    command->add_option("SOURCE", options->material.name, "What was played, as in \"ravo play\"")
        ->required();
    command
        ->add_option("DECODED", options->decoded,
                     "Record of the eight outputs, as ravo-emulator writes it")
        ->required();
    command
        ->add_option("--start", options->start,
                     "Second of the source at which the play began; else it is found")
        ->check(CLI::Range(0, 1'000'000));
    command->add_flag("--loop", options->isLoop,
                      "Compare behind the end too, where the play loops");
    command
        ->add_option("--tolerance", options->tolerance,
                     "Exit with status 5 when a difference exceeds this many microvolts")
        ->check(Between(1e-6, 1e6));
    command->add_flag("--json", options->isJson, "Result as JSON");
    AddMaterialOptions(*command, options->material);
    command->callback([options, &action] { action = [options] { return Compare(*options); }; });
}

} // namespace cli
