#include "tools/ravo/Builtin.h"

#include "tools/ravo/Commands.h"
#include "tools/ravo/Json.h"
#include "tools/ravo/Message.h"

#include "api/ravo.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace cli {
namespace {

const char* SourceOf(uint32_t licensed) {
    return licensed != 0 ? "licensed" : "stand-in";
}

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

int PrintList() {
    std::printf("%6s  %-9s %8s %9s  %s\n", "number", "record", "samples", "seconds", "source");
    const std::vector<RAVO_BUILTIN_RECORD> records = Entries(RAVOGetBuiltinRecord);
    for (std::size_t number = 0; number < records.size(); ++number) {
        const RAVO_BUILTIN_RECORD& record = records[number];
        std::printf("%6zu  %-9s %8u %9.3f  %s\n", number, record.Name, record.NumberOfSamples,
                    static_cast<double>(record.NumberOfSamples) / record.SamplingFrequency,
                    SourceOf(record.Licensed));
    }
    std::printf("\n%6s  %-9s %8s %9s  %s\n", "number", "noise", "", "seconds", "source");
    const std::vector<RAVO_BUILTIN_NOISE> noises = Entries(RAVOGetBuiltinNoise);
    for (std::size_t number = 0; number < noises.size(); ++number) {
        std::printf("%6zu  %-9s %8s %9.3f  %s\n", number, noises[number].Name, "", 10.0,
                    SourceOf(noises[number].Licensed));
    }
    return kDone;
}

} // namespace

bool IsBuiltin(const std::string& name) {
    return name.rfind(kBuiltinPrefix, 0) == 0;
}

int FindBuiltinRecord(const std::string& name) {
    const std::string record = name.substr(std::string(kBuiltinPrefix).size());
    const int number = FindByName(Entries(RAVOGetBuiltinRecord), record);
    if (number < 0) {
        Fail(kMaterial, name, "is no record of the built-in database.",
             "\"ravo list\" shows them; an example is builtin:CAL20000.");
    }
    return number;
}

int FindBuiltinNoise(const std::string& name) {
    if (name.empty()) {
        return CTSCSE_NOISE_NONE;
    }
    const int number = FindByName(Entries(RAVOGetBuiltinNoise), name);
    if (number < 0) {
        Fail(kUsage, "--noise " + name, "is no noise of the built-in database.",
             "\"ravo list\" shows them; an example is 50HZ.");
    }
    return number;
}

void AddList(CLI::App& app, Action& action) {
    CLI::App* list =
        app.add_subcommand("list", "List the records and noises of the built-in CTS/CSE database");
    list->footer("A stand-in is made from published definitions, with the name and the length of "
                 "the\nrecord that it stands for: good for trying things out, not for certifying.");
    list->callback([&action] { action = PrintList; });
}

} // namespace cli
