// Writes the compiled-in CTS/CSE test database as C++ source:
//   ravo-ctscse-generate OUTPUT_FOLDER [LICENSED_FOLDER]
// Records and noises found in the licensed folder (see NeutralText.h) are taken from there, the
// others are stand-ins.

#include "builtin/GeneratedSource.h"
#include "builtin/NeutralText.h"

#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;
using namespace ctscse;

// The path of the licensed file of that name, empty when the owner has not given one.
std::string LicensedFile(const fs::path& folder, const std::string& name) {
    const fs::path file = folder / (name + ".txt");
    return !folder.empty() && fs::exists(file) ? file.string() : std::string();
}

GeneratedRecord MakeGeneratedRecord(const RecordEntry& entry, const fs::path& licensedFolder) {
    const std::string file = LicensedFile(licensedFolder, entry.name);
    if (file.empty()) {
        return {entry, MakeRecord(entry), false};
    }
    const auto samples = static_cast<size_t>(entry.samplesPerLead);
    return {entry, ReadNeutralText(file, kLeads, samples).columns, true};
}

// Noises are stored as whole microvolts.
std::vector<int32_t> RoundToMicrovolts(const Table& noise, const std::string& file) {
    using Limits = std::numeric_limits<int32_t>;
    std::vector<int32_t> values;
    for (size_t n = 0; n < noise.columns[0].size(); ++n) {
        const double value = std::round(noise.columns[0][n] * 1000.0);
        if (value < Limits::min() || value > Limits::max()) {
            throw std::runtime_error(file + ", line " + std::to_string(noise.lines[n]) +
                                     ": expected a noise of " + std::to_string(Limits::min()) +
                                     " to " + std::to_string(Limits::max()) + " uV");
        }
        values.push_back(static_cast<int32_t>(value));
    }
    return values;
}

GeneratedNoise MakeGeneratedNoise(const std::string& name, const fs::path& licensedFolder) {
    const std::string file = LicensedFile(licensedFolder, "NOISE_" + name);
    if (file.empty()) {
        return {name, MakeNoise(name), false};
    }
    return {name, RoundToMicrovolts(ReadNeutralText(file, 1, kNoiseSamples), file), true};
}

template <typename Write>
void WriteSource(const fs::path& path, Write write) {
    std::ofstream out(path);
    write(out);
    out.close();
    if (!out) {
        throw std::runtime_error(path.string() + ": cannot be written");
    }
}

void Generate(const fs::path& outputFolder, const fs::path& licensedFolder) {
    std::vector<GeneratedRecord> records;
    for (const RecordEntry& entry : Records()) {
        records.push_back(MakeGeneratedRecord(entry, licensedFolder));
    }
    std::vector<GeneratedNoise> noises;
    for (const std::string& name : Noises()) {
        noises.push_back(MakeGeneratedNoise(name, licensedFolder));
    }
    WriteSource(outputFolder / "CTSCSE_DatabaseData.cpp",
                [&](std::ostream& out) { WriteRecords(out, records); });
    WriteSource(outputFolder / "CTSCSE_NoiseData.cpp",
                [&](std::ostream& out) { WriteNoises(out, noises); });
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::cerr << "usage: ravo-ctscse-generate OUTPUT_FOLDER [LICENSED_FOLDER]\n";
        return 1;
    }
    try {
        Generate(argv[1], argc == 3 ? argv[2] : "");
    } catch (const std::exception& error) {
        std::cerr << "ravo-ctscse-generate: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
