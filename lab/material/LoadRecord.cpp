#include "lab/material/LoadRecord.h"

#include "lab/common/Failure.h"
#include "lab/material/LibraryLoad.h"
#include "lab/material/OpenMaterial.h"
#include "lab/material/Recognition.h"
#include "lab/material/StagedLoad.h"

namespace lab {
namespace {

void FindSuppliedLeads(Record& record) {
    for (const Signal& signal : record.signals) {
        const auto output = static_cast<std::size_t>(signal.lead);
        if (output < kOutputCount) {
            record.supplied[LeadOfOutput(output)] = true;
        }
    }
    // The library derives no limb leads for two-signal and EDF material.
    const bool isDerived = record.type != MATERIAL_AHA && !record.IsLibraryEdf();
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
        Fail(kMaterial, request.name, "holds no samples.", "Is the file complete?");
    }
    FindSuppliedLeads(record);
    return record;
}

} // namespace lab
