#pragma once

#include "builtin/StandIns.h"

#include <iosfwd>
#include <string>
#include <vector>

// Writes the database as C++ source: one array per record and noise, and the tables that state
// which of them are licensed data.
namespace ctscse {

struct GeneratedRecord {
    RecordEntry entry;
    Leads leads;
    bool licensed;
};

struct GeneratedNoise {
    std::string name;
    std::vector<int32_t> values; // microvolts
    bool licensed;
};

void WriteRecords(std::ostream& out, const std::vector<GeneratedRecord>& records);
void WriteNoises(std::ostream& out, const std::vector<GeneratedNoise>& noises);

} // namespace ctscse
