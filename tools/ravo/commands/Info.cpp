#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/material/Annotations.h"
#include "lab/material/LeadNames.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/LoadRecord.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/commands/MaterialOptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <sys/stat.h>

namespace cli {

using namespace lab;

namespace {

struct InfoOptions {
    MaterialRequest material;
    bool isJson = false;
};

constexpr double kOutputLimit = 5.0; // millivolts

// The least and the most that an output's lead reaches, in millivolts.
struct Range {
    double least = 0.0;
    double most = 0.0;
};

// Facts about a record beyond those in its header.
struct Measurements {
    std::array<Range, kOutputCount> ranges;
    std::vector<double> amplitudes; // in millivolts, one per signal; empty when not measured
    int annotations = 0;
    std::size_t beats = 0;
};

// The library measures in converter units; the gain turns them into the signal's own unit.
std::vector<double> MeasureAmplitudes(const std::string& headerPath) {
    std::vector<char> path(headerPath.begin(), headerPath.end());
    path.push_back('\0');
    WFDB_HEADER* header = WFDBReadHeader(path.data());
    int count = 0;
    double* measured = WFDBSignalAmplitudeEx(path.data(), &count);
    std::vector<double> amplitudes;
    for (int i = 0; header != nullptr && measured != nullptr && i < count; ++i) {
        const bool isMicrovolts = header->Signal[i].ADCUnit == 'u';
        amplitudes.push_back(measured[i] / header->Signal[i].ADCGain /
                             (isMicrovolts ? 1000.0 : 1.0));
    }
    WFDBMemFree(measured);
    WFDBFreeHeader(header);
    return amplitudes;
}

// The library measures samples of format 16 without their sign. It takes the mean of 300 beats or,
// without annotations, of 300 windows of 360 frames, and those that the record does not have count
// as 0.
bool IsMeasurable(const Record& record, const Measurements& counted) {
    constexpr int64_t kMeasured = 300;
    constexpr int64_t kFramesPerWindow = 360;
    const bool isAnnotated = counted.annotations > 0;
    const int64_t there =
        isAnnotated ? static_cast<int64_t>(counted.beats) : record.samples / kFramesPerWindow;
    return record.signalFormat == 212 && there >= kMeasured;
}

// One second stands for material without an end.
std::array<Range, kOutputCount> MeasureRanges(const Record& record) {
    std::array<Range, kOutputCount> ranges;
    bool isFirst = true;
    const double seconds = record.isEndless ? 1.0 : std::ceil(record.Seconds());
    ForEachSample(0, static_cast<int>(seconds), [&](const double* leads) {
        for (std::size_t i = 0; i < kOutputCount; ++i) {
            const double value = leads[LeadOfOutput(i)];
            ranges[i].least = isFirst ? value : std::min(ranges[i].least, value);
            ranges[i].most = isFirst ? value : std::max(ranges[i].most, value);
        }
        isFirst = false;
    });
    return ranges;
}

// Warnings that "ravo play" would print, too.
void WarnOfPlaying(const Record& record, const Measurements& measured) {
    const auto feeding = record.FeedingSignals();
    if (feeding.empty()) {
        Warn(Printable(record.name) +
             " feeds no output: no signal's description names a lead; use --map SIGNAL=LEAD");
    }
    for (const std::size_t i : feeding) {
        const auto output = static_cast<std::size_t>(record.signals[i].lead);
        const Range& range = measured.ranges[output];
        if (std::max(-range.least, range.most) > kOutputLimit) {
            Warn(Format("%s: lead %s reaches %.3f mV and is clipped at %g mV",
                        Printable(record.name).c_str(), kOutputNames[output],
                        std::max(-range.least, range.most), kOutputLimit));
        }
    }
}

Measurements Measure(const Record& record) {
    Measurements result;
    if (!record.FeedingSignals().empty()) {
        result.ranges = MeasureRanges(record);
    }
    if (record.HeaderPath().empty()) {
        return result;
    }
    result.beats = ReadBeats(record.HeaderPath(), &result.annotations).size();
    if (IsMeasurable(record, result)) {
        result.amplitudes = MeasureAmplitudes(record.HeaderPath());
    }
    return result;
}

std::string SuppliedText(const Record& record) {
    std::string text;
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        if (record.supplied[i]) {
            text += std::string(text.empty() ? "" : " ") + kLeadNames[i];
        }
    }
    return text.empty() ? "none" : text;
}

std::string Remark(const Signal& signal, const Measurements& measured) {
    if (signal.lead == ECG_LEAD_NONE) {
        return IsDerivedLead(signal.description) ? "  computed from I and II" : "";
    }
    const Range& range = measured.ranges[static_cast<std::size_t>(signal.lead)];
    const int64_t lacking = signal.Lacking();
    const std::string missing =
        lacking > 0 ? Format(", %lld samples missing", static_cast<long long>(lacking)) : "";
    return Format("  %.3f to %.3f mV", range.least, range.most) + missing;
}

void PrintSignals(const Record& record, const Measurements& measured) {
    std::printf("signals\n");
    const std::size_t last = std::max<std::size_t>(record.signals.size(), 1) - 1;
    const auto widest = static_cast<int>(std::to_string(last).size());
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        const Signal& signal = record.signals[i];
        const std::string amplitude = i < measured.amplitudes.size()
                                          ? Format("  amplitude %.3f mV", measured.amplitudes[i])
                                          : "";
        std::printf("  %*zu  %-15s  lead %s%s%s\n", widest, i,
                    Printable(signal.description).c_str(), LeadName(signal.lead), amplitude.c_str(),
                    Remark(signal, measured).c_str());
    }
}

void PrintText(const Record& record, const Measurements& measured) {
    std::printf("record       %s\n", Printable(record.name).c_str());
    std::printf("source       %s (%s)\n", Printable(record.source).c_str(), record.format.c_str());
    if (!record.date.empty()) {
        std::printf("date         %s\n", record.date.c_str());
    }
    std::printf("rate         %lld samples per second\n", static_cast<long long>(record.rate));
    if (record.resampledFrom > 0.0) {
        std::printf("resampled    from %g samples per second\n", record.resampledFrom);
    }
    if (record.isEndless) {
        std::printf("length       endless\n");
    } else {
        std::printf("length       %lld samples, %.3f s\n", static_cast<long long>(record.samples),
                    record.Seconds());
    }
    std::printf("leads        %s\n", SuppliedText(record).c_str());
    if (measured.annotations > 0) {
        std::printf("annotations  %d, of which %zu beats\n", measured.annotations, measured.beats);
    }
    PrintSignals(record, measured);
}

void PrintJson(const Record& record, const Measurements& measured) {
    Json json;
    json.BeginObject()
        .Field("record", record.name)
        .Field("source", record.source)
        .Field("format", record.format)
        .Key("date");
    record.date.empty() ? json.Null() : json.Value(record.date);
    json.Field("rate", record.rate).Key("samples");
    record.isEndless ? json.Null() : json.Value(record.samples);
    json.Field("seconds", record.Seconds()).Key("leads").BeginArray();
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        if (record.supplied[i]) {
            json.Value(kLeadNames[i]);
        }
    }
    json.EndArray().Key("signals").BeginArray();
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        const Signal& signal = record.signals[i];
        json.BeginObject().Field("description", signal.description).Key("lead");
        signal.lead == ECG_LEAD_NONE ? json.Null() : json.Value(LeadName(signal.lead));
        json.Key("amplitudeMillivolts");
        i < measured.amplitudes.size() ? json.Value(measured.amplitudes[i]) : json.Null();
        json.EndObject();
    }
    json.EndArray()
        .Field("annotations", measured.annotations)
        .Field("beats", static_cast<int64_t>(measured.beats))
        .Field("origin", record.origin)
        .Field("missing", record.MissingSamples())
        .Key("resampledFrom");
    record.resampledFrom > 0.0 ? json.Value(record.resampledFrom) : json.Null();
    json.EndObject();
    std::printf("%s\n", json.Text().c_str());
}

int ShowInfo(const InfoOptions& options) {
    const Record record = LoadRecord(options.material);
    for (const std::string& warning : record.warnings) {
        Warn(warning);
    }
    const Measurements measured = Measure(record);
    WarnOfPlaying(record, measured);
    options.isJson ? PrintJson(record, measured) : PrintText(record, measured);
    return kDone;
}

} // namespace

void AddInfo(CLI::App& app, Action& action) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* command =
        app.add_subcommand("info", "Show what a record holds and which outputs it feeds");
    command->add_option("RECORD", options->material.name, "Record file, or a waveform's name")
        ->required();
    AddJsonOption(*command, options->isJson);
    AddMaterialOptions(*command, options->material);
    command->callback([options, &action] { action = [options] { return ShowInfo(*options); }; });
}

} // namespace cli
