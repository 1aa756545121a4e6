#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/material/LoadRecord.h"
#include "lab/material/Outputs.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/commands/MaterialOptions.h"
#include "tools/ravo/commands/Validators.h"
#include "tools/ravo/JsonFailure.h"

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
    std::optional<double> start;
    double seconds = 0.0;   // seconds that were played; 0: everything
    double tolerance = 0.0; // microvolts; 0: none
    bool isLoop = false;
    bool isJson = false;
};

struct Comparison {
    double start = 0;        // second of the material
    std::size_t frames = 0;  // compared
    std::size_t surplus = 0; // frames after the last one due, not compared
    int64_t rate = 0;
    std::array<double, kOutputCount> largest{};    // microvolts
    std::array<std::size_t, kOutputCount> where{}; // frame of the largest difference

    double Largest() const { return *std::max_element(largest.begin(), largest.end()); }
};

// The frames that the outputs carried after the last one due are left out: they hold that frame
// until the stop.
std::size_t FramesToCompare(const CompareOptions& options, const Record& record,
                            const Outputs& outputs, int start) {
    const auto rate = static_cast<double>(record.FramesPerSecond());
    auto frames = static_cast<double>(outputs.Frames());
    if (!options.isLoop && !record.isEndless) {
        frames = std::min(frames, std::round((record.Seconds() - start) * rate));
    }
    if (options.seconds > 0.0) {
        frames = std::min(frames, std::round(options.seconds * rate));
    }
    return static_cast<std::size_t>(frames);
}

// The number of frames at the end that equal the last one.
std::size_t HeldFrames(const Outputs& outputs) {
    const std::size_t last = outputs.Frames() - 1;
    const auto isLast = [&](std::size_t frame) {
        return std::all_of(outputs.millivolts.begin(), outputs.millivolts.end(),
                           [=](const auto& output) { return output[frame] == output[last]; });
    };
    std::size_t frame = last;
    while (frame > 0 && isLast(frame - 1)) {
        --frame;
    }
    return last - frame;
}

// A play with --seconds holds its last frame, which looks like a difference unless --seconds is
// given here, too.
void WarnOfHeldFrames(const CompareOptions& options, const Comparison& result,
                      const Outputs& outputs) {
    constexpr std::size_t kLeastHeld = 50;
    const std::size_t held = HeldFrames(outputs);
    const bool isCompared = outputs.Frames() - held < result.frames;
    if (options.seconds == 0.0 && held >= kLeastHeld && isCompared && result.Largest() > 1.0) {
        Warn(Format("%s: holds one frame for the last %.3f s, as after a play with --seconds; give "
                    "compare the same --seconds",
                    Printable(options.decoded).c_str(),
                    static_cast<double>(held) / static_cast<double>(result.rate)));
    }
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
    // A record that begins at a second with a fraction is loaded from there on.
    const int start = options.start ? static_cast<int>(*options.start - record.skippedSeconds)
                                    : FindStart(record, outputs);
    RequireStart(record, start);
    result.start = start + record.skippedSeconds;
    result.frames = FramesToCompare(options, record, outputs, start);
    result.surplus = outputs.Frames() - result.frames;
    const Outputs expected = ExpectedOutputs(record, start, result.frames);
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
    std::printf("compared %zu frames (%.3f s) from second %g of the source\n", result.frames,
                static_cast<double>(result.frames) / static_cast<double>(result.rate),
                result.start);
    if (result.surplus > 0) {
        std::printf("%zu frames after the last one due are not compared\n", result.surplus);
    }
    std::printf("largest difference per output\n");
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        std::printf("  %-3s %9.3f uV at %.3f s\n", kOutputNames[i], result.largest[i],
                    static_cast<double>(result.where[i]) / static_cast<double>(result.rate));
    }
}

void PrintJson(const Comparison& result, const std::optional<Failure>& failure) {
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
    json.EndObject();
    if (failure) {
        WriteError(json, *failure);
    }
    json.EndObject();
    std::printf("%s\n", json.Text().c_str());
}

std::optional<Failure> FailureOf(const CompareOptions& options, const Comparison& result) {
    if (options.tolerance == 0.0 || result.Largest() <= options.tolerance) {
        return std::nullopt;
    }
    return Failure(kDifferent, options.decoded,
                   Format("differs from the source by up to %.3f uV, more than %g uV.",
                          result.Largest(), options.tolerance));
}

int Compare(const CompareOptions& options) {
    const Outputs outputs = ReadOutputs(options.decoded);
    const Record record = LoadRecord(options.material);
    RequirePlayable(record);
    RequireSameRate(options, record, outputs);
    const Comparison result = CompareWith(options, record, outputs);
    WarnOfHeldFrames(options, result, outputs);
    const std::optional<Failure> failure = FailureOf(options, result);
    options.isJson ? PrintJson(result, failure) : PrintText(result);
    if (failure) {
        PrintFailure(*failure);
    }
    return failure ? failure->Status() : kDone;
}

} // namespace

void AddCompare(CLI::App& app, Action& action) {
    auto options = std::make_shared<CompareOptions>();
    CLI::App* command = app.add_subcommand(
        "compare", "Compare what the simulator's outputs carried with the source");
    command->add_option("SOURCE", options->material.name, "What was played, as in \"ravo play\"")
        ->required();
    command
        ->add_option("DECODED", options->decoded,
                     "Record of the eight outputs, as ravo-emulator writes it")
        ->required();
    AddStartOption(*command, options->start);
    command->add_option("--seconds", options->seconds, "Seconds that were played (default: all)")
        ->check(Between(0.001, 1e8));
    command->add_flag("--loop", options->isLoop, "Compare past the end, too: the play looped");
    command
        ->add_option("--tolerance", options->tolerance,
                     "Exit with status 5 when a difference exceeds this many microvolts")
        ->check(Between(1e-6, 1e6));
    AddJsonOption(*command, options->isJson);
    AddMaterialOptions(*command, options->material);
    command->callback([options, &action] {
        options->material.start = options->start.value_or(0.0);
        action = [options] { return Compare(*options); };
    });
}

} // namespace cli
