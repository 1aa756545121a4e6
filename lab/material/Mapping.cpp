#include "lab/material/Mapping.h"

#include "lab/common/Failure.h"
#include "lab/material/LeadNames.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace lab {
namespace {

// The library keeps 15 characters of a description; mappings that name these still work.
constexpr std::size_t kLibraryDescription = 15;

std::size_t FindSignal(const std::vector<Signal>& signals, const std::string& wanted) {
    for (const std::size_t length : {std::string::npos, kLibraryDescription}) {
        for (std::size_t i = 0; i < signals.size(); ++i) {
            if (signals[i].description.substr(0, length) == wanted) {
                return i;
            }
        }
    }
    const bool isNumber =
        !wanted.empty() && wanted.find_first_not_of("0123456789") == std::string::npos;
    const std::size_t number = isNumber ? std::strtoul(wanted.c_str(), nullptr, 10) : SIZE_MAX;
    if (number >= signals.size()) {
        std::string names;
        for (std::size_t i = 0; i < signals.size(); ++i) {
            names += Format("%s%zu \"%s\"", i == 0 ? "" : ", ", i,
                            Printable(signals[i].description).c_str());
        }
        Fail(kUsage, "--map " + wanted, "names no signal of this record.",
             "Its signals are " + names + ".");
    }
    return number;
}

// A lead is fed by the first signal that claims it, so every earlier claim to it is dropped.
void MapSignal(std::vector<Signal>& signals, const std::string& entry,
               std::vector<std::size_t>& mapped) {
    const auto equals = entry.find_last_of('=');
    const auto lead =
        equals == std::string::npos ? std::nullopt : LeadFromName(entry.substr(equals + 1));
    if (!lead) {
        Fail(kUsage, "--map " + entry, "is not of the form SIGNAL=LEAD.",
             "SIGNAL is a signal's description or number, LEAD one of I, II, V1 to V6, none.");
    }
    const std::size_t signal = FindSignal(signals, entry.substr(0, equals));
    if (std::find(mapped.begin(), mapped.end(), signal) != mapped.end()) {
        Fail(kUsage, "--map " + entry, "maps a signal a second time.",
             "One signal feeds one lead.");
    }
    mapped.push_back(signal);
    for (Signal& other : signals) {
        other.lead = other.lead == *lead ? ECG_LEAD_NONE : other.lead;
    }
    signals[signal].lead = *lead;
}

// The lead that each signal of a record was meant to feed.
using Claims = std::vector<ECG_Lead>;

void TellDisplaced(Record& record, const Claims& claims) {
    for (std::size_t i = 0; i < claims.size(); ++i) {
        if (claims[i] == ECG_LEAD_NONE || record.signals[i].lead != ECG_LEAD_NONE) {
            continue;
        }
        const auto feeding =
            std::find_if(record.signals.begin(), record.signals.end(),
                         [&](const Signal& signal) { return signal.lead == claims[i]; });
        record.warnings.push_back(Format(
            "%s: signal %zu \"%s\" is not played: --map gives lead %s to signal %td",
            Printable(record.name).c_str(), i, Printable(record.signals[i].description).c_str(),
            LeadName(claims[i]), feeding - record.signals.begin()));
    }
}

} // namespace

void MapSignals(Record& record, const std::vector<std::string>& map) {
    Claims claims(record.signals.size(), ECG_LEAD_NONE);
    for (const std::size_t i : record.FeedingSignals()) {
        claims[i] = record.signals[i].lead;
    }
    std::vector<std::size_t> mapped;
    for (const std::string& entry : map) {
        MapSignal(record.signals, entry, mapped);
        claims[mapped.back()] = record.signals[mapped.back()].lead;
    }
    TellDisplaced(record, claims);
}

void MapOtherNames(std::vector<Signal>& signals) {
    for (Signal& signal : signals) {
        const ECG_Lead lead = LeadOfDescription(signal.description);
        const bool isClaimed = std::any_of(signals.begin(), signals.end(),
                                           [lead](const Signal& s) { return s.lead == lead; });
        if (signal.lead == ECG_LEAD_NONE && !isClaimed) {
            signal.lead = lead;
        }
    }
}

void DropRepeatedClaims(Record& record) {
    std::array<std::size_t, kOutputCount> feeding{};
    feeding.fill(SIZE_MAX);
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        Signal& signal = record.signals[i];
        if (signal.lead == ECG_LEAD_NONE) {
            continue;
        }
        std::size_t& first = feeding[static_cast<std::size_t>(signal.lead)];
        if (first == SIZE_MAX) {
            first = i;
            continue;
        }
        record.warnings.push_back(Format("%s: signal %zu \"%s\" feeds no output, signal %zu "
                                         "feeds lead %s before it",
                                         Printable(record.name).c_str(), i,
                                         Printable(signal.description).c_str(), first,
                                         LeadName(signal.lead)));
        signal.lead = ECG_LEAD_NONE;
    }
}

void FailUnit(const Record& record, std::size_t signal, const std::string& unit) {
    const std::string number = std::to_string(signal);
    Fail(kMaterial, record.source,
         Format("signal %zu \"%s\" is in \"%s\", which is not a unit of voltage.", signal,
                Printable(record.signals[signal].description).c_str(), Printable(unit).c_str()),
         "--unit mV or --unit uV says what it is in; --map " + number + "=none leaves it out.");
}

} // namespace lab
