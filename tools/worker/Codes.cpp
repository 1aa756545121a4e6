#include "tools/worker/Codes.h"

#include <algorithm>
#include <cmath>

namespace worker {
namespace {

constexpr int kHighestCode = 32000; // in codes from the middle one
constexpr double kMiddle = 32768.0;
constexpr int kHighestNumber = 32500;              // kLimit
constexpr double kThird = 0.33333333333;           // as defined by the library
constexpr double kChestFactor = 0.592731022038923; // likewise

double Held(double millivolts) {
    return std::clamp(millivolts, -kLimit, kLimit);
}

// The library's own arithmetic, step by step, because the last bits matter.
int CodeOf(double output) {
    return static_cast<int>(Held(output) / kLimit * kHighestCode + kMiddle) -
           static_cast<int>(kMiddle);
}

double Millivolts(int number) {
    return number / kStagedGain;
}

double ChestOutput(double lead, double terminal) {
    return (lead + terminal) * kChestFactor;
}

} // namespace

CodeTable::CodeTable() : m_numbers(2 * kHighestCode + 1) {
    // Where two numbers give the same code, the one with the nearer voltage is used.
    for (int number = -kHighestNumber; number <= kHighestNumber; ++number) {
        const int code = CodeOf(Millivolts(number));
        int16_t& chosen = m_numbers[static_cast<std::size_t>(code + kHighestCode)];
        const double here = Millivolts(number) * kCodesPerMillivolt - code;
        const double there = Millivolts(chosen) * kCodesPerMillivolt - code;
        if (CodeOf(Millivolts(chosen)) != code || here < there) {
            chosen = static_cast<int16_t>(number);
        }
    }
}

double CodeTable::Limb(double millivolts) const {
    const auto code = static_cast<int>(std::nearbyint(Held(millivolts) * kCodesPerMillivolt));
    return Millivolts(m_numbers[static_cast<std::size_t>(code + kHighestCode)]);
}

// One number is about 0.58 codes of a chest output, so that a few steps reach every code.
double CodeTable::Chest(double wanted, double terminal) {
    constexpr int kMostSteps = 8;
    const auto code = static_cast<int>(std::nearbyint(wanted * kCodesPerMillivolt));
    const double guess = (code + 0.5) / kCodesPerMillivolt / kChestFactor - terminal;
    int number = static_cast<int>(std::nearbyint(Held(guess) * kStagedGain));
    for (int step = 0; step < kMostSteps; ++step) {
        const int reached = CodeOf(ChestOutput(Millivolts(number), terminal));
        const int next = number + (reached < code ? 1 : reached > code ? -1 : 0);
        if (next == number || std::abs(next) > kHighestNumber) {
            break;
        }
        number = next;
    }
    return Millivolts(number);
}

Instant CodeTable::Encode(const Instant& leads) const {
    Instant staged{};
    staged[0] = Limb(leads[0]);
    staged[1] = Limb(leads[1]);
    const double terminal = (staged[0] + staged[1]) * kThird;
    const double wantedTerminal = (Held(leads[0]) + Held(leads[1])) / 3.0;
    for (std::size_t i = 2; i < leads.size(); ++i) {
        staged[i] = Chest(ChestOutput(Held(leads[i]), wantedTerminal), terminal);
    }
    return staged;
}

} // namespace worker
