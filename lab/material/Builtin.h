#pragma once

#include "api/ravo.h"

#include <string>
#include <vector>

namespace lab {

// The compiled-in CTS/CSE test database. Records and noises are named: CAL20000, 50HZ.

// The prefix of a record's name where a file path is also possible.
constexpr const char* kBuiltinPrefix = "builtin:";

// All records and noises, in the order of their numbers.
std::vector<RAVO_BUILTIN_RECORD> BuiltinRecords();
std::vector<RAVO_BUILTIN_NOISE> BuiltinNoises();

bool IsBuiltin(const std::string& name);

// The names of all records, with the prefix.
std::vector<std::string> BuiltinNames();

// The number of a record named with the prefix, or of a noise; an empty noise name means none. Both
// fail when the database has nothing of that name.
int FindBuiltinRecord(const std::string& name);
int FindBuiltinNoise(const std::string& name);

} // namespace lab
