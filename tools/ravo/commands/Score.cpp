#include "lab/common/Failure.h"
#include "lab/score/report/Conditions.h"
#include "lab/score/report/ScoreReport.h"
#include "lab/score/report/ScoreTables.h"
#include "lab/score/report/Strips.h"
#include "lab/score/ScoreJson.h"
#include "lab/session/Simulator.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/commands/Validators.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <system_error>

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
    StripOptions strips;
    std::string report;
    bool isJson = false;
};

// The number exactly as typed, in units of 1 / `divisor`; fails unless it lies in the range.
Rational Exactly(const char* option, const std::string& text, double least, double most,
                 int divisor = 1) {
    try {
        const auto decimal = ParseDecimal(text);
        const Rational value = decimal ? Rational(*decimal) : Rational();
        if (decimal && value.ToDouble() >= least && value.ToDouble() <= most) {
            return value * Rational(1, divisor);
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
    rules.window = Exactly("--window", options.window, 0.0, 10'000.0, 1000);
    rules.offset = Exactly("--offset", options.offset, -kLongest, kLongest);
    rules.clockPpm = Exactly("--clock-ppm", options.clockPpm, -500'000.0, 500'000.0);
}

std::string Describe(const RecordScore& record) {
    const Alignment& found = *record.alignment;
    return Format(
        "%s: offset %.4f s (standard error %.1f ms at second 0, %.1f ms at the beats), clock %.2f "
        "ppm (%.2f ppm); %.0f %% of the beats agree within 60 ms, %.0f %% at the next best place",
        Shown(record.input.record).c_str(), found.offset.ToDouble(), found.offsetError * 1000.0,
        found.placingError * 1000.0, found.clockPpm.ToDouble(), found.clockError,
        found.agreement * 100.0, found.nextBest * 100.0);
}

void PrintAlignments(const ScoreResult& result) {
    for (const RecordScore& record : result.records) {
        if (record.alignment) {
            std::fprintf(stderr, "ravo: %s\n", Describe(record).c_str());
        }
    }
}

// A report must not replace a file that it reports on.
void RequireOwnFile(const std::string& report, const ScoreResult& result) {
    for (const RecordScore& record : result.records) {
        for (const std::string& input : {record.input.reference, record.input.test}) {
            std::error_code ignored;
            if (std::filesystem::equivalent(report, input, ignored)) {
                Fail(kUsage, "--report " + report, "is one of the files that are compared.",
                     "Give the report a name of its own.");
            }
        }
    }
}

int ScoreCommand(ScoreOptions& options) {
    TakeRules(options);
    if (!options.report.empty()) {
        RequireReportName(options.report);
    }
    options.request.version = LibraryVersion();
    options.request.keepsComparisons = !options.strips.directory.empty();
    ScoreResult result = ScoreFiles(options.request);
    if (!options.report.empty()) {
        RequireOwnFile(options.report, result);
    }
    if (!options.strips.directory.empty()) {
        DrawStrips(result, options.strips, result.remarks);
    }
    for (const std::string& remark : result.remarks) {
        Warn(remark);
    }
    PrintAlignments(result);
    if (!options.report.empty()) {
        WriteReport(result, options.report);
    }
    std::fputs(options.isJson ? (ScoreJson(result) + "\n").c_str() : TextOf(result).c_str(),
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
    command->add_option("TEST", request.test, "The device's annotations, likewise")->required();
    command->add_option("--reference-suffix", request.referenceSuffix,
                        "Folders: suffix of the reference's files (default: atr)");
    command->add_option("--test-suffix", request.testSuffix,
                        "Folders: suffix of the test's files (default: atr)");
    command->add_option("--learning", options->learning,
                        "Seconds at the beginning that do not count (default: 300)");
    command->add_option("--window", options->window,
                        "Greatest distance of a pair of beats in milliseconds (default: 150)");
    CLI::Option* offset =
        command->add_option("--offset", options->offset, "Seconds to add to the test's times");
    CLI::Option* clock = command->add_option("--clock-ppm", options->clockPpm,
                                             "Millionths by which to stretch the test's times");
    command->add_flag("--align", request.aligns, "Find offset and clock from the lists themselves")
        ->excludes(offset)
        ->excludes(clock);
    command
        ->add_option("--strips", options->strips.directory,
                     "Draw a strip of ECG paper around each disagreement into this folder")
        ->check(NotEmpty());
    command
        ->add_option("--max-strips", options->strips.most,
                     "Draw at most this many strips (default: 100)")
        ->check(CLI::Range(0, 1'000'000));
    command->add_option("--report", options->report, "Write a report: .html, .pdf or .csv")
        ->check(NotEmpty());
    AddJsonOption(*command, options->isJson);
    command->callback(
        [options, &action] { action = [options] { return ScoreCommand(*options); }; });
}

} // namespace cli
