#include "builtin/StandIns.h"

#include <cmath>
#include <random>
#include <stdexcept>

namespace ctscse {
namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr double kMainsAmplitude = 25.0;
constexpr double kWanderFrequency = 0.3;
constexpr double kWanderAmplitude = 500.0;
constexpr double kNoiseOnWander = 15.0;

// The band of muscle noise that an electrocardiograph passes.
constexpr int kLowestFrequency = 25;
constexpr int kHighestFrequency = 150;
constexpr unsigned kSeed = 20260515;

std::vector<double> Sine(double frequency, double amplitude) {
    std::vector<double> values(kNoiseSamples);
    for (int n = 0; n < kNoiseSamples; ++n) {
        values[static_cast<size_t>(n)] = amplitude * std::sin(kTwoPi * frequency * n / kRate);
    }
    return values;
}

// A random point of the unit circle. The standard library's distributions are not used: their
// values differ between machines.
void DrawPhase(std::mt19937& generator, double& cosine, double& sine) {
    double length = 0.0;
    do {
        cosine = static_cast<uint32_t>(generator()) / 2147483648.0 - 1.0;
        sine = static_cast<uint32_t>(generator()) / 2147483648.0 - 1.0;
        length = std::sqrt(cosine * cosine + sine * sine);
    } while (length < 0.1 || length > 1.0);
    cosine /= length;
    sine /= length;
}

void ScaleToUnitRms(std::vector<double>& values) {
    double squares = 0.0;
    for (const double value : values) {
        squares += value * value;
    }
    const double rms = std::sqrt(squares / static_cast<double>(values.size()));
    for (double& value : values) {
        value /= rms;
    }
}

// Every harmonic of the ten seconds that lies in the band, equally strong and with a phase of its
// own: band-limited, free of offset, and without a step where the noise repeats.
std::vector<double> UnitHighFrequencyNoise() {
    const std::vector<double> circle = Sine(static_cast<double>(kRate) / kNoiseSamples, 1.0);
    const auto harmonics = static_cast<size_t>(kNoiseSamples / kRate);
    constexpr size_t size = kNoiseSamples;
    constexpr size_t quarter = size / 4;
    std::mt19937 generator(kSeed);
    std::vector<double> values(size, 0.0);
    for (size_t k = kLowestFrequency * harmonics; k <= kHighestFrequency * harmonics; ++k) {
        double cosine = 0.0;
        double sine = 0.0;
        DrawPhase(generator, cosine, sine);
        size_t angle = 0;
        for (double& value : values) {
            value += cosine * circle[(angle + quarter) % size] + sine * circle[angle];
            angle = (angle + k) % size;
        }
    }
    ScaleToUnitRms(values);
    return values;
}

void Add(std::vector<double>& sum, const std::vector<double>& values, double factor) {
    for (size_t n = 0; n < sum.size(); ++n) {
        sum[n] += values[n] * factor;
    }
}

std::vector<double> MakeExactNoise(const std::string& name) {
    if (name == "50HZ") {
        return Sine(50.0, kMainsAmplitude);
    }
    if (name == "60HZ") {
        return Sine(60.0, kMainsAmplitude);
    }
    if (name == "BL") {
        return Sine(kWanderFrequency, kWanderAmplitude);
    }
    static const std::vector<double> unitNoise = UnitHighFrequencyNoise();
    std::vector<double> values(kNoiseSamples, 0.0);
    if (name == "BL_HF") {
        values = Sine(kWanderFrequency, kWanderAmplitude);
        Add(values, unitNoise, kNoiseOnWander);
    } else if (name.compare(0, 3, "HF_") == 0) {
        Add(values, unitNoise, std::stod(name.substr(3)));
    } else {
        throw std::invalid_argument("no definition for noise " + name);
    }
    return values;
}

} // namespace

std::vector<int32_t> MakeNoise(const std::string& name) {
    std::vector<int32_t> rounded;
    rounded.reserve(kNoiseSamples);
    for (const double value : MakeExactNoise(name)) {
        rounded.push_back(static_cast<int32_t>(std::lround(value)));
    }
    return rounded;
}

} // namespace ctscse
