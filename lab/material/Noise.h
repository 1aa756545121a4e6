#pragma once

#include "lab/material/readers/Numbers.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace lab {

// Noise that is added to material, in millivolts, from the material's first sample on; it repeats
// from its beginning. A built-in noise is one signal, a WFDB record may have several, which are
// assigned to the material's leads in turn.
class Noise {
  public:
    // A built-in noise's name or a WFDB record's path. Fails when it is neither.
    explicit Noise(const std::string& name);

    // Signal number `number`, modulo their count, at a rate: the samples of one period.
    std::vector<double> At(const Rate& rate, std::size_t number) const;

    // The files it was read from; empty for built-in noise.
    const std::vector<std::string>& Files() const { return m_files; }

  private:
    void LoadRecord(const std::string& name);

    Rate m_rate;
    std::vector<std::vector<double>> m_signals;
    std::vector<std::string> m_files;
};

// Whether the built-in database has a noise of this name.
bool IsBuiltinNoise(const std::string& name);

// The samples of a built-in noise in millivolts, 10 seconds at 1000 per second.
std::vector<double> BuiltinNoiseSamples(int number);

} // namespace lab
