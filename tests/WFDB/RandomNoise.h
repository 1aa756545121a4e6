#pragma once

#include <cstddef>
#include <random>
#include <vector>

// The same samples for the same seed, from -amplitude to amplitude.
inline std::vector<int> Noise(size_t count, int amplitude, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<int> samples(count);
    for (int& sample : samples) {
        sample = static_cast<int>(random() % static_cast<unsigned>(2 * amplitude + 1)) - amplitude;
    }
    return samples;
}
