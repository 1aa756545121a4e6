#include "builtin/AnalyticalBeat.h"
#include "builtin/MultileadBeat.h"
#include "builtin/StandIns.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace ctscse {
namespace {

bool BeginsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

Leads RoundToMicrovolts(Leads leads) {
    for (std::vector<double>& lead : leads) {
        for (double& value : lead) {
            value = std::round(value * 1000.0) / 1000.0;
        }
    }
    return leads;
}

// The first two of the five digits are the peak in tenths of a millivolt.
Leads MakeCalibration(const RecordEntry& entry) {
    const double peak = std::stoi(entry.name.substr(3, 2)) / 10.0;
    const auto samples = static_cast<size_t>(entry.samplesPerLead);
    std::vector<double> square(samples, -peak);
    std::fill_n(square.begin(), samples / 2, peak);
    return Leads(kLeads, square);
}

} // namespace

Leads MakeRecord(const RecordEntry& entry) {
    if (BeginsWith(entry.name, "CAL")) {
        return MakeCalibration(entry);
    }
    if (BeginsWith(entry.name, "ANE")) {
        return RoundToMicrovolts(MakeAnalyticalBeat(entry.samplesPerLead));
    }
    if (BeginsWith(entry.name, "MA1_")) {
        return RoundToMicrovolts(MakeMultileadBeat(entry));
    }
    throw std::invalid_argument("no definition for record " + entry.name);
}

} // namespace ctscse
