#pragma once

#include <string>
#include <vector>

// WFDB records as files: whether the library reads them, and mixing them with noise.
namespace lab {

// The path of the header of WFDB record `name`, given with or without ".hea", with a directory.
std::string HeaderPathOf(const std::string& name);

// Fails with the reason when the library cannot load the record with this header whole.
void RequireWfdbRecord(const std::string& path);

// Writes `signal` with the noise records mixed in, at one signal-to-noise ratio for all or one for
// each, as record `output` (a path without extension). The records are header paths. Fails when
// rates differ, when `output` would replace what is mixed and, unless it `overwrites`, any record.
void MixNoise(const std::string& signal, const std::vector<std::string>& noises,
              const std::vector<double>& ratios, const std::string& output, bool overwrites);

} // namespace lab
