#include "lab/material/Builtin.h"

#include "lab/common/Failure.h"
#include "lab/common/Suggestion.h"

#include <cstddef>

namespace lab {
namespace {

template <typename Entry>
std::vector<Entry> Entries(bool (*describe)(int, Entry*)) {
    std::vector<Entry> entries;
    Entry entry{};
    for (int number = 0; describe(number, &entry); ++number) {
        entries.push_back(entry);
    }
    return entries;
}

template <typename Entry>
int FindByName(const std::vector<Entry>& entries, const std::string& name) {
    for (std::size_t number = 0; number < entries.size(); ++number) {
        if (name == entries[number].Name) {
            return static_cast<int>(number);
        }
    }
    return -1;
}

template <typename Entry>
std::vector<std::string> NamesOf(const std::vector<Entry>& entries) {
    std::vector<std::string> names;
    for (const Entry& entry : entries) {
        names.emplace_back(entry.Name);
    }
    return names;
}

} // namespace

std::vector<RAVO_BUILTIN_RECORD> BuiltinRecords() {
    return Entries(RAVOGetBuiltinRecord);
}

std::vector<RAVO_BUILTIN_NOISE> BuiltinNoises() {
    return Entries(RAVOGetBuiltinNoise);
}

bool IsBuiltin(const std::string& name) {
    return name.rfind(kBuiltinPrefix, 0) == 0;
}

std::vector<std::string> BuiltinNames() {
    std::vector<std::string> names;
    for (const RAVO_BUILTIN_RECORD& record : BuiltinRecords()) {
        names.push_back(kBuiltinPrefix + std::string(record.Name));
    }
    return names;
}

int FindBuiltinRecord(const std::string& name) {
    const std::string record = name.substr(std::string(kBuiltinPrefix).size());
    const int number = FindByName(BuiltinRecords(), record);
    if (number < 0) {
        const std::string hint = DidYouMean(Nearest(name, BuiltinNames()));
        Fail(kMaterial, name, "is not a record of the built-in database.",
             hint.empty() ? "\"ravo list\" shows them; an example is builtin:CAL20000." : hint);
    }
    return number;
}

int FindBuiltinNoise(const std::string& name) {
    if (name.empty()) {
        return CTSCSE_NOISE_NONE;
    }
    const int number = FindByName(BuiltinNoises(), name);
    if (number < 0) {
        const std::string hint = DidYouMean(Nearest(name, NamesOf(BuiltinNoises())));
        Fail(kUsage, "--noise " + name, "is not a noise of the built-in database.",
             hint.empty() ? "\"ravo list\" shows them; an example is 50HZ." : hint);
    }
    return number;
}

} // namespace lab
