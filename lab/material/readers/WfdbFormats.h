#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

// The storage formats of WFDB signal files, as described in signal(5) of the WFDB Applications
// Guide.
namespace lab {

// Marks a missing sample where the format has no number for it.
constexpr int32_t kMissingNowhere = std::numeric_limits<int32_t>::min();

// Decoders may read whole words: kSpareBytes must follow the last group.
constexpr std::size_t kSpareBytes = 1;

// Samples are packed in groups of bytes, which may span frames; the last group may be incomplete.
struct WfdbFormat {
    int number;
    int64_t bytesPerGroup;
    int64_t samplesPerGroup;
    int32_t missing; // the number that marks a missing sample

    // Decodes whole groups, with kSpareBytes after the last one.
    void (*decode)(const unsigned char* bytes, std::size_t groups, int32_t* out);

    // Whether each sample is stored as the difference from the previous one of its signal.
    bool isDifference;

    // The number of samples in `bytes` bytes, including those of an incomplete last group.
    int64_t SamplesIn(int64_t bytes) const;
};

// Null for other numbers, among them the compressed formats.
const WfdbFormat* FindWfdbFormat(int number);

} // namespace lab
