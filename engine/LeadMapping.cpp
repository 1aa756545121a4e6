#include "engine/LeadMapping.h"

#include "engine/Record.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

// The descriptions that public databases use for their signals.  Blanks and plus signs are part of
// the text.  "ECG0" and "ECG" feed lead II, "ECG1" feeds lead I, "ML5" feeds V5, because the
// databases concerned arrange their leads this way.
struct LeadName {
    const char* text;
    ECG_Lead lead;
};

constexpr LeadName kLeadNames[] = {
    {"ECG0", ECG_LEAD_II},
    {"ECG 1", ECG_LEAD_I},
    {"ECG1", ECG_LEAD_I},
    {"ECG 2", ECG_LEAD_II},
    {"ECG2", ECG_LEAD_II},
    {"ECG", ECG_LEAD_II},
    {"ECG [ECG1]", ECG_LEAD_I},
    {"ECG I", ECG_LEAD_I},
    {"ECG II", ECG_LEAD_II},
    {"ECG lead 1", ECG_LEAD_I},
    {"ECG lead 2", ECG_LEAD_II},
    {"ECG lead I", ECG_LEAD_I},
    {"ECG Lead I", ECG_LEAD_I},
    {"ECG lead II ", ECG_LEAD_II},
    {"ECG Lead II", ECG_LEAD_II},
    {"ECG LeadII", ECG_LEAD_II},
    {"ECG Lead V3", ECG_LEAD_V3},
    {"ECG Lead V4", ECG_LEAD_V4},
    {"ECG lead V5", ECG_LEAD_V5},
    {"ECG Lead V5", ECG_LEAD_V5},
    {"ECG lead V6", ECG_LEAD_V6},
    {"ECG lead V", ECG_LEAD_V1},
    {"ECG Lead V ", ECG_LEAD_V1},
    {"ECG Lead V", ECG_LEAD_V1},
    {"ECG signal 0", ECG_LEAD_I},
    {"ECG signal 1", ECG_LEAD_II},
    {"ECG V1", ECG_LEAD_V1},
    {"ECG V2", ECG_LEAD_V2},
    {"ECG V3", ECG_LEAD_V3},
    {"ECG V4", ECG_LEAD_V4},
    {"ECG V5", ECG_LEAD_V5},
    {"ECG V6", ECG_LEAD_V6},
    {"ECG V", ECG_LEAD_V1},
    {"ECG V Lead", ECG_LEAD_V1},
    {"i", ECG_LEAD_I},
    {"I ", ECG_LEAD_I},
    {"I+", ECG_LEAD_I},
    {"I", ECG_LEAD_I},
    {"ii", ECG_LEAD_II},
    {"II ", ECG_LEAD_II},
    {"II+", ECG_LEAD_II},
    {"II", ECG_LEAD_II},
    {"lead I", ECG_LEAD_I},
    {"lead II", ECG_LEAD_II},
    {"lead V", ECG_LEAD_V1},
    {"MCL1 ", ECG_LEAD_I},
    {"MCL1+", ECG_LEAD_I},
    {"MCL1", ECG_LEAD_I},
    {"ML2", ECG_LEAD_II},
    {"ML5", ECG_LEAD_V5},
    {"MLI", ECG_LEAD_I},
    {"MLII", ECG_LEAD_II},
    {"mod.V1", ECG_LEAD_V1},
    {"MV2 ", ECG_LEAD_V2},
    {"MV2", ECG_LEAD_V2},
    {"ST1", ECG_LEAD_I},
    {"ST2", ECG_LEAD_II},
    {"ST I_1/2", ECG_LEAD_I},
    {"ST I_1/3", ECG_LEAD_I},
    {"ST I_2/2", ECG_LEAD_I},
    {"ST I_2/3", ECG_LEAD_I},
    {"ST I_3/3", ECG_LEAD_I},
    {"ST_I", ECG_LEAD_I},
    {"ST II_1/2", ECG_LEAD_II},
    {"ST II_1/3", ECG_LEAD_II},
    {"ST II_2/3", ECG_LEAD_II},
    {"ST II_3/3", ECG_LEAD_II},
    {"ST_II", ECG_LEAD_II},
    {"ST V_1/2", ECG_LEAD_V1},
    {"ST V_1/3", ECG_LEAD_V1},
    {"ST V_2/2", ECG_LEAD_V1},
    {"ST V_2/3", ECG_LEAD_V1},
    {"ST V_3/3", ECG_LEAD_V1},
    {"v1", ECG_LEAD_V1},
    {"V1", ECG_LEAD_V1},
    {"V1-V2", ECG_LEAD_V1},
    {"v2", ECG_LEAD_V2},
    {"V2", ECG_LEAD_V2},
    {"V2-V3", ECG_LEAD_V2},
    {"v3", ECG_LEAD_V3},
    {"V3", ECG_LEAD_V3},
    {"v4", ECG_LEAD_V4},
    {"V4", ECG_LEAD_V4},
    {"V4-V5", ECG_LEAD_V4},
    {"v5", ECG_LEAD_V5},
    {"V5", ECG_LEAD_V5},
    {"v6", ECG_LEAD_V6},
    {"V6", ECG_LEAD_V6},
    {"V ", ECG_LEAD_V1},
    {"V+", ECG_LEAD_V1},
    {"V", ECG_LEAD_V1},
    {"Thorax_1", ECG_LEAD_I},
    {"Thorax_2", ECG_LEAD_II},
    {"Abdomen_1", ECG_LEAD_V1},
    {"Abdomen_2", ECG_LEAD_V2},
    {"Abdomen_3", ECG_LEAD_V3},
    {"Abdomen_4", ECG_LEAD_V4},
};

} // namespace

ECG_Lead MappingLeadText(const char* description) {
    if (description == nullptr) {
        return ECG_LEAD_NONE;
    }
    const auto* row = std::find_if(
        std::begin(kLeadNames), std::end(kLeadNames),
        [description](const LeadName& name) { return std::strcmp(name.text, description) == 0; });
    return row == std::end(kLeadNames) ? ECG_LEAD_NONE : row->lead;
}

int FindMappingLeadIndex(ECG_Lead lead) {
    if (g_pECGHeader == nullptr) {
        return -1;
    }
    const int64_t signals = g_pECGHeader->NumberOfSignals;
    for (int64_t i = 0; i < signals; ++i) {
        if (g_pECGHeader->Signal[i].Lead == lead) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void UpdateMITMappingLeadIndex() {
    for (int lead = 0; lead < kOutputLeads; ++lead) {
        StoreShared(g_ECGMappingLead[lead], FindMappingLeadIndex(static_cast<ECG_Lead>(lead)));
    }
}

void UpdateMappingLead(ECG_HEADER* edited) {
    if (edited == nullptr || g_pECGHeader == nullptr) {
        return;
    }
    // The host's header can belong to another, smaller record.
    const int64_t signals =
        std::min<int64_t>(edited->NumberOfSignals, g_pECGHeader->NumberOfSignals);
    for (int64_t i = 0; i < signals; ++i) {
        g_pECGHeader->Signal[i].Lead = edited->Signal[i].Lead;
    }
    UpdateMITMappingLeadIndex();
}
