#pragma once

#include <cstdint>
#include <vector>

// Encoders for both storage formats that share nothing with the readers.

// Two bytes per sample, low byte first.
inline std::vector<uint8_t> EncodeFormat16(const std::vector<int>& samples) {
    std::vector<uint8_t> bytes;
    for (const int sample : samples) {
        const int code = (sample + 65536) % 65536;
        bytes.push_back(static_cast<uint8_t>(code % 256));
        bytes.push_back(static_cast<uint8_t>(code / 256));
    }
    return bytes;
}

// Three bytes per pair of samples; an odd last sample is followed by a 0.
inline std::vector<uint8_t> EncodeFormat212(std::vector<int> samples) {
    if (samples.size() % 2 != 0) {
        samples.push_back(0);
    }
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < samples.size(); i += 2) {
        const int first = (samples[i] + 4096) % 4096;
        const int second = (samples[i + 1] + 4096) % 4096;
        bytes.push_back(static_cast<uint8_t>(first % 256));
        bytes.push_back(static_cast<uint8_t>(first / 256 + second / 256 * 16));
        bytes.push_back(static_cast<uint8_t>(second % 256));
    }
    return bytes;
}
