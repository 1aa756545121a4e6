#include "lab/material/Mapping.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace lab {
namespace {

std::size_t FindSignal(const Record& record, const std::string& wanted) {
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        if (record.signals[i].description == wanted) {
            return i;
        }
    }
    const bool isNumber =
        !wanted.empty() && wanted.find_first_not_of("0123456789") == std::string::npos;
    const std::size_t number = isNumber ? std::strtoul(wanted.c_str(), nullptr, 10) : SIZE_MAX;
    if (number >= record.signals.size()) {
        std::string names;
        for (std::size_t i = 0; i < record.signals.size(); ++i) {
            names += Format("%s%zu \"%s\"", i == 0 ? "" : ", ", i,
                            Printable(record.signals[i].description).c_str());
        }
        Fail(kUsage, "--map " + wanted, "names no signal of this record.",
             "Its signals are " + names + ".");
    }
    return number;
}

// A lead is fed by the first signal that claims it, so every earlier claim to it is dropped.
void MapSignal(Record& record, const std::string& entry, std::vector<std::size_t>& mapped) {
    const auto equals = entry.find_last_of('=');
    const auto lead =
        equals == std::string::npos ? std::nullopt : LeadFromName(entry.substr(equals + 1));
    if (!lead) {
        Fail(kUsage, "--map " + entry, "is not of the form SIGNAL=LEAD.",
             "SIGNAL is a signal's description or number, LEAD one of I, II, V1 to V6, none.");
    }
    const std::size_t signal = FindSignal(record, entry.substr(0, equals));
    if (std::find(mapped.begin(), mapped.end(), signal) != mapped.end()) {
        Fail(kUsage, "--map " + entry, "maps a signal a second time.",
             "One signal feeds one lead.");
    }
    mapped.push_back(signal);
    for (Signal& other : record.signals) {
        other.lead = other.lead == *lead ? ECG_LEAD_NONE : other.lead;
    }
    record.signals[signal].lead = *lead;
}

} // namespace

void MapSignals(Record& record, const MaterialRequest& request, ECG_HEADER& header) {
    if (request.map.empty()) {
        return;
    }
    std::vector<std::size_t> mapped;
    for (const std::string& entry : request.map) {
        MapSignal(record, entry, mapped);
    }
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        header.Signal[i].Lead = record.signals[i].lead;
    }
    RAVOUpdateECGHeaderMappingLead(&header);
}

} // namespace lab
