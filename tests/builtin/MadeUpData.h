#pragma once

// The contents of the made-up licensed files of these tests.
namespace madeup {

constexpr int kSamples = 1000; // of CAL20000

// Microvolts of record CAL20000.
constexpr int RecordValue(int lead, int sample) {
    return 1000 * lead + sample % 700 - 350;
}

// Microvolts of noise 50HZ.
constexpr int NoiseValue(int sample) {
    return sample % 41 - 20;
}

} // namespace madeup
