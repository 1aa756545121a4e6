#pragma once

#include <array>
#include <cstdint>

namespace lab::score {

// The classes of beats, and the two ways in which a beat lacks a counterpart.
enum Class : std::uint8_t {
    kNormal,           // N: any beat not of the following classes
    kSupraventricular, // S: supraventricular ectopic
    kVentricular,      // V: ventricular ectopic
    kFusion,           // F: fusion of ventricular and normal
    kUnclassifiable,   // Q: paced, fused with paced, or not to be classified
    kMissing,          // O: no counterpart on the other side
    kShutDown,         // X: no counterpart, the other side being shut down
};
constexpr std::size_t kBeatClasses = 5;
constexpr std::size_t kLabels = 7;

// In the reference's upper case and the test's lower case.
constexpr std::array<char, kLabels> kReferenceLetters = {'N', 'S', 'V', 'F', 'Q', 'O', 'X'};
constexpr std::array<char, kLabels> kTestLetters = {'n', 's', 'v', 'f', 'q', 'o', 'x'};

// The class of a beat by annotation code; kMissing for annotations other than beats.
extern const std::array<Class, 256> kClassOfCode;

inline Class ClassOf(std::uint8_t code) {
    return kClassOfCode[code];
}

} // namespace lab::score
