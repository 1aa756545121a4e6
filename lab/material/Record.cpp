#include "lab/material/Record.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/Numbers.h"

#include <algorithm>
#include <limits>

namespace lab {
namespace {

constexpr int kNativeFramesPerSecond = 1000;

} // namespace

int64_t Signal::Lacking() const {
    return BoundedSum(missing, cut);
}

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
        missing = BoundedSum(missing, signal.Lacking());
    }
    return missing;
}

bool Record::IsLibraryEdf() const {
    return type == MATERIAL_EDF || type == MATERIAL_EDF_FOUR_CHEST;
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
        if (IsLibraryEdf() && signals[i].lead == ECG_LEAD_I) {
            map.emplace_back(LeadName(ECG_LEAD_II), signals[i].description);
        }
    }
    return map;
}

void RequirePlayable(const Record& record) {
    const bool isPlayable = std::any_of(record.signals.begin(), record.signals.end(),
                                        [](const Signal& s) { return s.lead != ECG_LEAD_NONE; });
    if (!isPlayable) {
        Fail(kMaterial, record.source, "has no signal whose description names a lead.",
             "Map one: --map SIGNAL=LEAD. \"ravo info\" lists the signals.");
    }
}

void RequireWhole(const Record& record) {
    if (record.isCut) {
        Fail(
            kMaterial, record.source, "is incomplete: one of its files ends early.",
            "Fetch it again. \"ravo info\" says where it ends, \"ravo convert\" makes a record of\n"
            "      what is there.");
    }
}

void RequireStart(const Record& record, int startSecond) {
    if (startSecond >= record.Seconds()) {
        Fail(kUsage, Format("--start %d", startSecond),
             Format("is past the end: %s lasts %.3f s.", Printable(record.name).c_str(),
                    record.Seconds()),
             "Give an earlier second.");
    }
}

} // namespace lab
