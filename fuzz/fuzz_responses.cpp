// The response reader: whatever the simulator sends while output runs is taken record by record,
// read by read, and has the effect of those records only.
//
// Input: whether a play thread runs, then the reads: one byte of length, limited to 32, and that
// many bytes from the simulator.
#include "engine/Output.h"
#include "engine/PlayRaw.h"
#include "engine/ResponseReader.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using Read = std::vector<uint8_t>;

constexpr size_t kLongestRead = 32;

// The host's reactions to a read.
struct Outcome {
    bool SendsBuffer = false;
    std::vector<int> Delays;
};

bool operator!=(const Outcome& a, const Outcome& b) {
    return a.SendsBuffer != b.SendsBuffer || a.Delays != b.Delays;
}

Outcome g_outcome;

void KeepDelay(int delay) {
    g_outcome.Delays.push_back(delay);
}

Outcome Take(Read read) {
    g_outcome = {};
    g_hSendEvent.ResetEvent();
    uint8_t* const end = read.data() + read.size();
    for (uint8_t* position = read.data(); position < end;) {
        uint8_t* const next = ResponseHandling(position, static_cast<int>(end - position));
        if (next <= position) {
            std::abort();
        }
        position = next;
    }
    g_outcome.SendsBuffer = g_hSendEvent.WaitTimeout(0) == 0;
    return g_outcome;
}

Outcome Expected(const Read& read, bool plays) {
    Outcome outcome;
    size_t left = read.size();
    while (left > 0) {
        const uint8_t* record = &read[read.size() - left];
        size_t length = left;
        if (*record == 'N') {
            outcome.SendsBuffer = plays;
            length = 2;
        } else if (*record == 'S') {
            length = 15;
        } else if (*record == 'X' && left >= 3) {
            const int delay = record[1] * 500 + record[2] * 5;
            if (delay != 0) {
                outcome.Delays.push_back(delay);
            }
            length = 3;
        }
        left -= std::min(length, left);
    }
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint8_t* const end = data + size;
    const bool plays = data != end && *data++ % 2 == 1;
    StoreShared(g_OutputDelayCB, KeepDelay);
    StoreShared(g_hPlayThread, plays ? 1 : 0);
    while (data != end) {
        const size_t length =
            std::min<size_t>({*data++, kLongestRead, static_cast<size_t>(end - data)});
        const Read read(data, data + length);
        data += length;
        if (Take(read) != Expected(read, plays)) {
            std::abort();
        }
    }
    StoreShared(g_hPlayThread, 0);
    return 0;
}
