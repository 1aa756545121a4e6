#pragma once

#include <string>
#include <vector>

namespace ctscse {

constexpr int kLeads = 8;
constexpr int kRate = 1000;
constexpr int kNoiseSamples = 10000;

// A record or noise that the database holds, by the names that the engine gives it.
struct RecordEntry {
    std::string suffix; // in the data array
    std::string name;   // of the loaded record, and of its file
    int samplesPerLead; // of one period
};

const std::vector<RecordEntry>& Records();
const std::vector<std::string>& Noises();

} // namespace ctscse
