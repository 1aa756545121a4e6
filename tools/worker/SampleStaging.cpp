#include "tools/worker/SampleStaging.h"

#include "lab/common/Failure.h"
#include "lab/material/LeadStream.h"
#include "lab/material/LibraryLoad.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/MemoryReader.h"
#include "lab/material/OpenMaterial.h"
#include "lab/material/RecordWriter.h"
#include "lab/material/Resampler.h"
#include "lab/material/StagedLoad.h"
#include "lab/material/Staging.h"
#include "lab/session/Play.h"
#include "tools/worker/Codes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace worker {
namespace {

using lab::kOutputCount;

constexpr const char* kName = "samples";

lab::SourceRecord Describe(const MadeSamples& made) {
    lab::SourceRecord source;
    source.name = kName;
    source.path = kName;
    source.frameRate = made.rate;
    for (std::size_t i = 0; i < made.rows.size(); ++i) {
        lab::SourceSignal& signal = source.signals.emplace_back();
        signal.description = made.leads[i];
        signal.rate = source.frameRate;
        signal.samples = static_cast<int64_t>(made.rows[i].size());
    }
    return source;
}

lab::OpenedMaterial Open(MadeSamples made, const lab::MaterialRequest& request) {
    lab::OpenedMaterial opened;
    lab::Record& record = opened.record;
    record.name = kName;
    record.source = kName;
    record.format = "samples";
    record.origin = "samples";
    for (const std::string& lead : made.leads) {
        record.signals.push_back({lead, lab::LeadFromName(lead).value_or(ECG_LEAD_NONE)});
    }
    lab::SourceRecord source = Describe(made);
    opened.treatment = lab::TreatmentOf(request);
    record.gain = opened.treatment.gain;
    record.offset = opened.treatment.offset;
    record.noise = opened.treatment.noise;
    record.skippedSeconds = opened.treatment.start;
    opened.reader = lab::Treat(lab::ReadFromMemory(std::move(source), std::move(made.rows)),
                               opened.Leads(), opened.treatment);
    return opened;
}

// The library subtracts the mean of the first minute from a lead when it is 5 mV. Playing the first
// sample of a lead that begins at the limit one code lower prevents that; a warning says so.
void KeepOffTheLimit(lab::Record& record, lab::Samples& block) {
    const auto signals = record.FeedingSignals();
    for (std::size_t i = 0; i < block.size(); ++i) {
        std::vector<double>& row = block[i];
        const auto isAtLimit = [](double value) { return std::fabs(value) >= kLimit; };
        if (std::all_of(row.begin(), row.end(), isAtLimit)) {
            row[0] = std::copysign(kLimit - 1.0 / kCodesPerMillivolt, row[0]);
            const char* lead = lab::LeadName(record.signals[signals[i]].lead);
            record.warnings.push_back(lab::Format(
                "Lead %s begins at its limit of 5 mV: its first sample is one code less.", lead));
        }
    }
}

void NoteLargest(const lab::Samples& block, std::vector<double>& largest) {
    for (std::size_t i = 0; i < block.size(); ++i) {
        for (const double value : block[i]) {
            largest[i] = std::max(largest[i], std::fabs(value));
        }
    }
}

// Each frame of the eight outputs as the numbers that become the desired codes; `row` tells which
// row of a block feeds which output, or none.
void EncodeBlock(const lab::Samples& block, const std::array<int, kOutputCount>& row,
                 const CodeTable& table, lab::Samples& encoded) {
    const std::size_t frames = block[0].size();
    for (std::vector<double>& output : encoded) {
        output.resize(frames);
    }
    for (std::size_t n = 0; n < frames; ++n) {
        Instant leads{};
        for (std::size_t i = 0; i < kOutputCount; ++i) {
            leads[i] = row[i] < 0 ? 0.0 : block[static_cast<std::size_t>(row[i])][n];
        }
        const Instant numbers = table.Encode(leads);
        for (std::size_t i = 0; i < kOutputCount; ++i) {
            encoded[i][n] = numbers[i];
        }
    }
}

std::vector<lab::WrittenSignal> EightSignals() {
    std::vector<lab::WrittenSignal> signals;
    for (const char* name : lab::kOutputNames) {
        lab::WrittenSignal signal;
        signal.description = name;
        signal.scale = {kStagedGain, 0};
        signals.push_back(signal);
    }
    return signals;
}

std::array<int, kOutputCount> RowsOf(const lab::Record& record,
                                     const std::vector<std::size_t>& signals) {
    std::array<int, kOutputCount> rows{};
    rows.fill(-1);
    for (std::size_t i = 0; i < signals.size(); ++i) {
        rows.at(static_cast<std::size_t>(record.signals[signals[i]].lead)) = static_cast<int>(i);
    }
    return rows;
}

// Returns the largest voltage of each signal that feeds an output.
std::vector<double> WriteExactly(lab::OpenedMaterial& opened, const lab::Rate& rate,
                                 const std::string& directory) {
    const auto signals = opened.record.FeedingSignals();
    std::vector<double> largest(signals.size());
    const auto rows = RowsOf(opened.record, signals);
    const CodeTable table;
    lab::RecordWriter writer(directory, kName, rate, EightSignals());
    lab::Samples block;
    lab::Samples encoded(kOutputCount);
    bool isFirst = true;
    opened.reader->Begin(signals);
    while (opened.reader->Read(block)) {
        if (block[0].empty()) {
            continue;
        }
        NoteLargest(block, largest);
        if (std::exchange(isFirst, false)) {
            KeepOffTheLimit(opened.record, block);
        }
        EncodeBlock(block, rows, table, encoded);
        writer.Write(encoded);
    }
    writer.Finish("");
    return largest;
}

std::map<std::string, double> LoadExactly(lab::OpenedMaterial& opened, const lab::Rate& rate) {
    const lab::TemporaryDirectory directory;
    const auto largest = WriteExactly(opened, rate, directory.Path());
    lab::Record& record = opened.record;
    lab::SetLibraryNoise({});
    lab::LoadWfdbFile(record, directory.Path() + "/" + kName + ".hea");
    record.type = MATERIAL_MIT;
    std::map<std::string, double> clipped;
    const auto signals = record.FeedingSignals();
    for (std::size_t i = 0; i < signals.size(); ++i) {
        if (largest[i] > kLimit) {
            clipped[lab::LeadName(record.signals[signals[i]].lead)] = largest[i];
        }
    }
    return clipped;
}

// Written so that NaN is refused, too.
bool IsBeyondMeaning(double value) {
    constexpr double kMost = 1e15; // millivolts, as in a file
    return !(std::fabs(value) <= kMost);
}

void RequireVoltages(const MadeSamples& made) {
    for (std::size_t i = 0; i < made.rows.size(); ++i) {
        const auto& row = made.rows[i];
        const auto wrong = std::find_if(row.begin(), row.end(), IsBeyondMeaning);
        if (wrong != row.end()) {
            lab::Fail(lab::kUsage, "array",
                      lab::Format("holds %g at sample %lld of lead %s.", *wrong,
                                  static_cast<long long>(wrong - row.begin()),
                                  made.leads[i].c_str()),
                      "Give millivolts, -1e15 to 1e15.");
        }
    }
}

// Fails when resampling a few samples to a lower rate leaves none.
void RequireAny(const MadeSamples& made, const lab::Rate& rate) {
    const auto samples = static_cast<int64_t>(made.rows[0].size());
    if (lab::ResampledCount(samples, made.rate, rate) < 1) {
        lab::Fail(
            lab::kUsage, "array",
            lab::Format("lasts less than one of the %g samples a second that it is played at.",
                        rate.PerSecond()),
            "Give more samples, or a lower rate.");
    }
}

void NameSupplied(lab::Record& record) {
    for (const std::size_t i : record.FeedingSignals()) {
        record.supplied.at(lab::LeadOfOutput(static_cast<std::size_t>(record.signals[i].lead))) =
            true;
    }
    for (std::size_t lead = 2; lead < 6; ++lead) {
        record.supplied.at(lead) = record.supplied[0] && record.supplied[1];
    }
}

} // namespace

LoadedMade LoadSamples(MadeSamples made, const lab::MaterialRequest& request) {
    const lab::Rate rate = made.rate;
    const lab::Rate playable = lab::PlayableRate(rate);
    RequireAny(made, playable);
    RequireVoltages(made);
    lab::OpenedMaterial opened = Open(std::move(made), request);
    LoadedMade loaded;
    if (playable == rate) {
        loaded.clipped = LoadExactly(opened, rate);
    } else {
        lab::LoadStaged(opened, request);
        loaded.clipped = lab::ClippedLeads(opened.record);
    }
    if (opened.record.samples < 1) {
        lab::Fail(lab::kUsage, "start", "is past the end of the samples.");
    }
    NameSupplied(opened.record);
    loaded.record = std::move(opened.record);
    return loaded;
}

} // namespace worker
