#include "lab/common/Failure.h"
#include "lab/material/readers/Numbers.h"
#include "lab/material/WfdbFiles.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/Validators.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace cli {

using namespace lab;

namespace {

struct NoiseStressTestOptions {
    std::string signal;
    std::vector<std::string> noises;
    std::vector<double> ratios;
    std::string output;
    bool overwrites = false;
};

// The header's signal lines carry a name cut to 15 characters and at its last dot; with any other
// name they would not point at the signal file.
std::string RecordPath(const std::string& output) {
    constexpr std::size_t kLongestName = 15;
    const std::string extension = ".hea";
    std::string path = output.find('/') == std::string::npos ? "./" + output : output;
    if (path.size() > extension.size() &&
        path.compare(path.size() - extension.size(), extension.size(), extension) == 0) {
        path.resize(path.size() - extension.size());
    }
    const std::string name = path.substr(path.find_last_of('/') + 1);
    if (name.empty() || name.size() > kLongestName ||
        name.find_first_of(". \t") != std::string::npos) {
        Fail(kUsage, "-o " + output, "cannot name a mixed record.",
             "A name has at most 15 characters, no dot and no blank.");
    }
    return path;
}

// A number in the place of a noise record belongs to --snr.
void RequireRecords(const std::vector<std::string>& noises) {
    for (const std::string& noise : noises) {
        if (ParseNumber(noise) && !std::filesystem::exists(HeaderPathOf(noise))) {
            Fail(kUsage, noise, "is not a noise record.",
                 "Several ratios go with commas: --snr 6,12.");
        }
    }
}

int Mix(const NoiseStressTestOptions& options) {
    if (options.ratios.size() != 1 && options.ratios.size() != options.noises.size()) {
        Fail(kUsage, "--snr", "takes one value for all noise records or one for each.",
             Format("There are %zu noise records and %zu values.", options.noises.size(),
                    options.ratios.size()));
    }
    std::vector<std::string> noises;
    for (const std::string& noise : options.noises) {
        noises.push_back(HeaderPathOf(noise));
    }
    RequireRecords(options.noises);
    const std::string output = RecordPath(options.output);
    MixNoise(HeaderPathOf(options.signal), noises, options.ratios, output, options.overwrites);
    std::printf("%s.hea\n", output.c_str());
    return kDone;
}

} // namespace

void AddNoiseStressTest(CLI::App& app, Action& action) {
    auto options = std::make_shared<NoiseStressTestOptions>();
    CLI::App* command = app.add_subcommand(
        "nst", "Noise stress test: mix noise records into a record, five minutes clean, then "
               "alternately two minutes noisy and two clean");
    command->add_option("SIGNAL", options->signal, "WFDB record with two signals")->required();
    command->add_option("NOISE", options->noises, "WFDB records with noise")
        ->required()
        ->expected(1, 64);
    command
        ->add_option("--snr", options->ratios,
                     "Signal-to-noise ratio in dB: one, or one for each with commas")
        ->required()
        ->check(Between(-100.0, 100.0))
        ->delimiter(',')
        ->allow_extra_args(false);
    command->add_option("-o,--output", options->output, "Record to write")->required();
    command->add_flag("--force", options->overwrites, "Replace a record of the same name");
    command->callback([options, &action] { action = [options] { return Mix(*options); }; });
}

} // namespace cli
