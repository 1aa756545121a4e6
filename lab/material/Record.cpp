#include "lab/material/Record.h"

#include "lab/common/Failure.h"
#include "lab/material/LibraryLoad.h"
#include "lab/material/OpenMaterial.h"
#include "lab/material/Recognition.h"
#include "lab/material/StagedLoad.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace lab {
namespace {

constexpr int kNativeFramesPerSecond = 1000;

// A lead that a native text file does not hold stays 0 throughout.
void DropSilentLeads(Record& record) {
    std::array<bool, kOutputCount> isHeard{};
    ForEachCleanSample(0, static_cast<int>(std::ceil(record.Seconds())), [&](const double* leads) {
        for (std::size_t i = 0; i < kOutputCount; ++i) {
            isHeard[i] = isHeard[i] || leads[LeadOfOutput(i)] != 0.0;
        }
    });
    for (Signal& signal : record.signals) {
        const auto output = static_cast<std::size_t>(signal.lead);
        if (output < kOutputCount && !isHeard[output]) {
            record.supplied[LeadOfOutput(output)] = false;
            signal.lead = ECG_LEAD_NONE;
        }
    }
}

void FindSuppliedLeads(Record& record) {
    for (const Signal& signal : record.signals) {
        const auto output = static_cast<std::size_t>(signal.lead);
        if (output < kOutputCount) {
            record.supplied[LeadOfOutput(output)] = true;
        }
    }
    if (record.type == MATERIAL_TARNWICK) {
        DropSilentLeads(record);
    }
    if (record.type == MATERIAL_EDF_FOUR_CHEST) {
        record.supplied[LeadOfOutput(ECG_LEAD_V5)] = false;
        record.supplied[LeadOfOutput(ECG_LEAD_V6)] = false;
    }
    // The library derives no limb leads for two-signal and for EDF material.
    const bool isDerived = record.type != MATERIAL_AHA && record.type != MATERIAL_EDF &&
                           record.type != MATERIAL_EDF_FOUR_CHEST;
    for (std::size_t lead = 2; lead < 6; ++lead) {
        record.supplied[lead] = isDerived && record.supplied[0] && record.supplied[1];
    }
}

} // namespace

double Record::Seconds() const {
    return isEndless ? std::numeric_limits<double>::infinity()
                     : static_cast<double>(samples) / static_cast<double>(rate);
}

int64_t Record::FramesPerSecond() const {
    return type == MATERIAL_TARNWICK ? kNativeFramesPerSecond : rate;
}

int64_t Record::MissingSamples() const {
    int64_t missing = 0;
    for (const Signal& signal : signals) {
        missing += signal.missing;
    }
    return missing;
}

std::vector<std::size_t> Record::FeedingSignals() const {
    std::vector<std::size_t> feeding;
    for (std::size_t output = 0; output < kOutputCount; ++output) {
        for (std::size_t i = 0; i < signals.size(); ++i) {
            if (signals[i].lead == static_cast<ECG_Lead>(output)) {
                feeding.push_back(i);
                break;
            }
        }
    }
    return feeding;
}

std::vector<std::pair<std::string, std::string>> Record::Map() const {
    std::vector<std::pair<std::string, std::string>> map;
    for (const std::size_t i : FeedingSignals()) {
        map.emplace_back(LeadName(signals[i].lead), signals[i].description);
    }
    return map;
}

Record LoadRecord(const MaterialRequest& request) {
    const MaterialKind kind = Recognise(request.name, request.format);
    RequireFittingOptions(request, kind);
    Record record;
    if (IsForLibrary(request, kind)) {
        record = NewRecord(request, kind);
        LoadByLibrary(record, request, kind);
    } else {
        OpenedMaterial opened = OpenMaterial(request);
        LoadStaged(opened, request);
        record = std::move(opened.record);
    }
    if (!record.isEndless && (record.rate < 1 || record.samples < 1)) {
        Fail(kMaterial, request.name, "holds no samples.");
    }
    FindSuppliedLeads(record);
    return record;
}

void RequirePlayable(const Record& record) {
    const bool isPlayable = std::any_of(record.signals.begin(), record.signals.end(),
                                        [](const Signal& s) { return s.lead != ECG_LEAD_NONE; });
    if (!isPlayable) {
        Fail(kMaterial, record.source, "has no signal whose description names a lead.",
             "Map one: --map SIGNAL=LEAD. \"ravo info\" lists the signals.");
    }
}

void RequireStart(const Record& record, int startSecond) {
    if (startSecond >= record.Seconds()) {
        Fail(kUsage, Format("--start %d", startSecond),
             Format("is past the end: %s lasts %.3f s.", Printable(record.name).c_str(),
                    record.Seconds()));
    }
}

} // namespace lab
