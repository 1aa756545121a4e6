#include "lab/material/LoadRecord.h"

#include "lab/common/Failure.h"
#include "lab/material/LibraryLoad.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/OpenMaterial.h"
#include "lab/material/Recognition.h"
#include "lab/material/StagedLoad.h"

#include <cmath>

namespace lab {
namespace {

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

} // namespace lab
