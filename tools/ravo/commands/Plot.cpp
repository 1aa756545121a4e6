#include "lab/common/Failure.h"
#include "lab/material/Annotations.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/LoadRecord.h"
#include "lab/material/Outputs.h"
#include "lab/material/Recognition.h"
#include "lab/paper/Picture.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
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

constexpr double kRowLength = 250.0; // millimetres
constexpr double kLeastCell = 25.0;  // millimetres below which one lead of many is hardly legible

struct PlotOptions {
    MaterialRequest material;
    std::string output;
    std::string compare;
    std::optional<double> start;
    std::optional<double> seconds;
    double speed = 25.0; // millimetres per second
    std::optional<double> paperGain;
    std::string layout;
    std::vector<std::string> leads;
};

// ---- What is to be drawn ------------------------------------------------------------------------

Curves ReadSource(const Record& record, double start, double seconds) {
    const double from = std::floor(start);
    Curves curves{record.rate, from, {}};
    const double whole = std::ceil(start + seconds - from);
    ForEachSample(static_cast<int>(from), static_cast<int>(whole), [&](const double* leads) {
        for (std::size_t i = 0; i < kLeadCount; ++i) {
            curves.leads[i].push_back(leads[i]);
        }
    });
    return curves;
}

Curves ReadDecoded(const Outputs& outputs, const Record& record, int start) {
    return {outputs.rate, static_cast<double>(start), LeadsOf(outputs, record)};
}

bool HasTwelveLeads(const Record& record) {
    return std::all_of(record.supplied.begin(), record.supplied.end(), [](bool is) { return is; });
}

std::string LayoutName(const PlotOptions& options, const Record& record, double seconds) {
    if (!options.layout.empty()) {
        return options.layout;
    }
    if (!HasTwelveLeads(record) || !options.leads.empty()) {
        return "strip";
    }
    return seconds * options.speed >= 4.0 * kLeastCell ? "3x4" : "12x1";
}

void RequireStripForLeads(const PlotOptions& options) {
    if (!options.leads.empty() && !options.layout.empty() && options.layout != "strip") {
        Fail(kUsage, "--lead", "is for strips; the layout " + options.layout + " has all leads.");
    }
}

std::size_t LeadNumber(const std::string& name) {
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        if (LowerCase(name) == LowerCase(kLeadNames[i])) {
            return i;
        }
    }
    Fail(kUsage, "--lead " + name, "is not a lead.",
         "Leads are I, II, III, aVR, aVL, aVF, V1 to V6.");
}

void RequireSupplied(const Record& record, const std::string& name, std::size_t lead) {
    if (!record.supplied[lead]) {
        Fail(kUsage, "--lead " + name, "is not supplied by this material.",
             "\"ravo info\" lists the leads that are.");
    }
}

// For strips: the requested leads, otherwise lead II of twelve, otherwise all that exist.
std::vector<std::size_t> StripLeads(const PlotOptions& options, const Record& record) {
    std::vector<std::size_t> leads;
    for (const std::string& name : options.leads) {
        leads.push_back(LeadNumber(name));
        RequireSupplied(record, name, leads.back());
    }
    if (!leads.empty()) {
        return leads;
    }
    if (HasTwelveLeads(record)) {
        return {LeadNumber("II")};
    }
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        if (record.supplied[i]) {
            leads.push_back(i);
        }
    }
    return leads;
}

double SecondsToPlot(const PlotOptions& options, const Record& record, double start,
                     double pageSeconds) {
    const double wanted = options.seconds ? *options.seconds : pageSeconds;
    return std::min(wanted, record.Seconds() - start);
}

PictureOptions PictureOf(const PlotOptions& options, const Record& record, double start,
                         double seconds) {
    PictureOptions picture;
    picture.path = options.output;
    picture.start = start;
    picture.seconds = seconds;
    picture.speed = options.speed;
    picture.gain = options.paperGain;
    picture.comparison = options.compare;
    picture.isStandIn = record.origin == "stand-in";
    picture.isPaged = Extension(options.output) == ".pdf";
    return picture;
}

int Plot(const PlotOptions& options) {
    RequireStripForLeads(options);
    const Record record = LoadRecord(options.material);
    for (const std::string& warning : record.warnings) {
        Warn(warning);
    }
    RequirePlayable(record);

    std::optional<Curves> decoded;
    double start = options.start.value_or(0.0);
    if (!options.compare.empty()) {
        const Outputs outputs = ReadOutputs(options.compare);
        const int playedFrom = FindStart(record, outputs);
        decoded = ReadDecoded(outputs, record, playedFrom);
        start = options.start ? start : playedFrom;
    }
    RequireStart(record, static_cast<int>(start));

    const double pageSeconds = kRowLength / options.speed;
    const double seconds = SecondsToPlot(options, record, start, pageSeconds);
    const Layout layout = ArrangeLeads(LayoutName(options, record, seconds), seconds, pageSeconds,
                                       StripLeads(options, record));
    const std::string header = record.HeaderPath();
    DrawPicture(PictureOf(options, record, start, seconds), record, layout,
                ReadSource(record, start, seconds), decoded,
                header.empty() ? std::vector<Beat>{} : ReadBeats(header, nullptr));
    std::printf("%s\n", options.output.c_str());
    return kDone;
}

} // namespace

void AddPlot(CLI::App& app, Action& action) {
    auto options = std::make_shared<PlotOptions>();
    CLI::App* command = app.add_subcommand("plot", "Draw a record on ECG paper");
    command->add_option("RECORD", options->material.name, "Record file, or a waveform's name")
        ->required();
    command->add_option("-o,--output", options->output, "Picture: .png, .svg or .pdf")->required();
    command->add_option("--compare", options->compare,
                        "Draw this record of the simulator's outputs over the source");
    AddStartOption(*command, options->start);
    command->add_option("--seconds", options->seconds, "Seconds to draw (default: 250 mm of paper)")
        ->check(Between(0.1, 86'400.0));
    command->add_option("--speed", options->speed, "Paper speed in mm/s: 12.5, 25 or 50")
        ->check(CLI::IsMember({12.5, 25.0, 50.0}))
        ->capture_default_str();
    command
        ->add_option("--paper-gain", options->paperGain,
                     "Paper gain in mm/mV: 5, 10 or 20 (default: 10, or less for tall signals)")
        ->check(CLI::IsMember({5.0, 10.0, 20.0}));
    command
        ->add_option(
            "--layout", options->layout,
            "3x4, 6x2, 12x1 or strip (default: 3x4 for twelve leads, 12x1 when they are short, "
            "strip for fewer leads)")
        ->check(CLI::IsMember({"3x4", "6x2", "12x1", "strip"}));
    command->add_option("--lead", options->leads, "Strips: lead to draw; may be repeated")
        ->allow_extra_args(false);
    AddMaterialOptions(*command, options->material);
    command->callback([options, &action] { action = [options] { return Plot(*options); }; });
}

} // namespace cli
