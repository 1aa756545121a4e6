#include "lab/material/Noise.h"

#include "lab/common/Failure.h"
#include "lab/material/Builtin.h"
#include "lab/material/readers/Files.h"
#include "lab/material/readers/WfdbReader.h"
#include "lab/material/Resampler.h"
#include "lab/material/WfdbFiles.h"

#include <algorithm>
#include <cmath>
#include <unistd.h>

namespace lab {
namespace {

constexpr std::size_t kBuiltinSamples = 10000;
constexpr int64_t kBuiltinRate = 1000;

// Noise is kept in memory: two hours at 1000 per second are 60 MB.
constexpr int64_t kMostNoise = int64_t{1} << 25;

} // namespace

bool IsBuiltinNoise(const std::string& name) {
    const auto noises = BuiltinNoises();
    return std::any_of(noises.begin(), noises.end(),
                       [&name](const RAVO_BUILTIN_NOISE& noise) { return name == noise.Name; });
}

std::vector<double> BuiltinNoiseSamples(int number) {
    std::vector<double> samples(kBuiltinSamples);
    if (!RAVOGetBuiltinNoiseSamples(number, samples.data())) {
        samples.assign(kBuiltinSamples, 0.0);
    }
    return samples;
}

Noise::Noise(const std::string& name) {
    const bool isFile = name.find('/') != std::string::npos || Extension(name) == ".hea" ||
                        ::access((name + ".hea").c_str(), F_OK) == 0;
    if (isFile && !IsBuiltinNoise(name)) {
        LoadRecord(name);
        return;
    }
    m_signals.push_back(BuiltinNoiseSamples(FindBuiltinNoise(name)));
    m_rate = MakeRate(kBuiltinRate, 1);
}

void Noise::LoadRecord(const std::string& name) {
    const auto reader = OpenWfdb(HeaderPathOf(name));
    m_files = reader->Record().files;
    std::vector<std::size_t> voltages;
    for (std::size_t i = 0; i < reader->Record().signals.size(); ++i) {
        const SourceSignal& signal = reader->Record().signals[i];
        const bool isAlike = voltages.empty() || signal.rate == m_rate;
        if (signal.isVoltage && isAlike && signal.samples <= kMostNoise) {
            voltages.push_back(i);
            m_rate = signal.rate;
        }
    }
    if (voltages.empty()) {
        Fail(kMaterial, name, "has no signal in volts that could be noise.",
             "Its unit follows the gain in its header; noise lasts two hours at most.");
    }
    m_signals.resize(voltages.size());
    Samples block;
    for (reader->Begin(voltages); reader->Read(block);) {
        for (std::size_t i = 0; i < block.size(); ++i) {
            std::replace_if(
                block[i].begin(), block[i].end(), [](double v) { return std::isnan(v); }, 0.0);
            m_signals[i].insert(m_signals[i].end(), block[i].begin(), block[i].end());
        }
    }
}

std::vector<double> Noise::At(const Rate& rate, std::size_t number) const {
    const std::vector<double>& signal = m_signals[number % m_signals.size()];
    const int64_t count = ResampledCount(static_cast<int64_t>(signal.size()), m_rate, rate);
    return ResamplePeriod(signal, static_cast<std::size_t>(std::max<int64_t>(count, 1)));
}

} // namespace lab
