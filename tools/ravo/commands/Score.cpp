#include "lab/common/Failure.h"
#include "lab/score/report/ScoreTables.h"
#include "lab/score/ScoreJson.h"
#include "tools/ravo/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace cli {

using namespace lab;
using namespace lab::score;

namespace {

struct ScoreOptions {
    ScoreRequest request;
    std::string learning = "300";
    std::string window = "150";
    std::string offset = "0";
    std::string clockPpm = "0";
    bool isJson = false;
};

// The number as typed, exactly; fails unless it lies in the range.
Rational Exactly(const char* option, const std::string& text, double least, double most) {
    try {
        const auto decimal = ParseDecimal(text);
        const Rational value = decimal ? Rational(*decimal) : Rational();
        if (decimal && value.ToDouble() >= least && value.ToDouble() <= most) {
            return value;
        }
    } catch (const std::overflow_error&) {
        Fail(kUsage, std::string(option) + " " + text, "has more digits than are kept exactly.");
    }
    Fail(kUsage, std::string(option) + " " + text,
         Format("is not a number from %.0f to %.0f.", least, most));
}

void TakeRules(ScoreOptions& options) {
    constexpr double kLongest = 1e9;
    Rules& rules = options.request.rules;
    rules.learning = Exactly("--learning", options.learning, -kLongest, kLongest);
    rules.window = Exactly("--window", options.window, 0.0, 10'000.0) * Rational(1, 1000);
    rules.offset = Exactly("--offset", options.offset, -kLongest, kLongest);
    rules.clockPpm = Exactly("--clock-ppm", options.clockPpm, -500'000.0, 500'000.0);
}

int ScoreCommand(ScoreOptions& options) {
    TakeRules(options);
    const ScoreResult result = ScoreFiles(options.request);
    for (const std::string& remark : result.remarks) {
        Warn(remark);
    }
    std::fputs(options.isJson ? (ScoreJson(result) + "\n").c_str()
                              : TextOf(TablesOf(result)).c_str(),
               stdout);
    return kDone;
}

} // namespace

void AddScore(CLI::App& app, Action& action) {
    auto options = std::make_shared<ScoreOptions>();
    ScoreRequest& request = options->request;
    CLI::App* command =
        app.add_subcommand("score", "Compare a device's beat annotations with the reference's");
    command->add_option("REFERENCE", request.reference, "Annotation file, .csv or folder")
        ->required();
    command->add_option("TEST", request.test, "The device's: the same")->required();
    command->add_option("--reference-suffix", request.referenceSuffix,
                        "Folders: suffix of the reference's files (default: atr)");
    command->add_option("--test-suffix", request.testSuffix,
                        "Folders: suffix of the test's files (default: atr)");
    command->add_option("--learning", options->learning,
                        "Seconds at the beginning that do not count (default: 300)");
    command->add_option("--window", options->window,
                        "Greatest distance of a pair of beats in milliseconds (default: 150)");
    command->add_option("--offset", options->offset, "Seconds to add to the test's times");
    command->add_option("--clock-ppm", options->clockPpm,
                        "Millionths by which to stretch the test's times");
    command->add_flag("--json", options->isJson, "Result as JSON");
    command->callback(
        [options, &action] { action = [options] { return ScoreCommand(*options); }; });
}

} // namespace cli
