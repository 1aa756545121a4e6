#pragma once

// What distinguishes the kinds of material: one row for each.

#include "ravo/material.h"

#include <array>
#include <cstddef>
#include <cstdint>

// How frames and lead sets are derived from the samples; Prepare has a pair of routines for each.
enum class Preparation { kSilent, kDirect, kAHA, kMapped, kTarnwick, kEDF, kPeriodic };

// How a play continues at the end of the samples.
enum class Ending {
    kStartsOver, // returns to the start position when looping is on
    kRepeats,    // continues: the preparation repeats the samples while looping is on
    kNever       // never ends: the voltages are computed
};

struct MaterialKind {
    int32_t type;
    Preparation preparation;
    Ending ending;
    bool isMapped;            // plays only signals that feed an output lead
    bool carriesNoise;        // applies when noise is switched on
    bool isCorrected;         // corrected by the calibration of the unit
    uint32_t framesPerSecond; // 0: the sampling frequency
    int32_t signals;          // arrays of samples; 0: as many as the record has signals
    int32_t leads;            // EDF: the output leads below this one play
};

constexpr uint32_t kTarnwickFramesPerSecond = 1000;
constexpr int32_t kAHASignals = 2; // no chest leads
constexpr int32_t kAllLeads = ECG_LEAD_NONE;

// clang-format off
constexpr MaterialKind kMaterialKinds[] = {
    //                                                                     mapped noise  corrected
    {MATERIAL_DIRECT,          Preparation::kDirect,   Ending::kStartsOver, false, true,  true,  0, 0, kAllLeads},
    {MATERIAL_AHA,             Preparation::kAHA,      Ending::kStartsOver, false, false, false, 0, kAHASignals, kAllLeads},
    {MATERIAL_MIT,             Preparation::kMapped,   Ending::kStartsOver, true,  false, true,  0, 0, kAllLeads},
    {MATERIAL_TARNWICK,        Preparation::kTarnwick, Ending::kRepeats,    false, false, true,  kTarnwickFramesPerSecond, 0, kAllLeads},
    {MATERIAL_TABLE,           Preparation::kDirect,   Ending::kStartsOver, false, false, true,  0, 0, kAllLeads},
    {MATERIAL_EDF_FOUR_CHEST,  Preparation::kEDF,      Ending::kStartsOver, true,  false, true,  0, 0, ECG_LEAD_V5},
    {MATERIAL_EDF,             Preparation::kEDF,      Ending::kStartsOver, true,  false, true,  0, 0, kAllLeads},
    {MATERIAL_SINE,            Preparation::kPeriodic, Ending::kNever,      false, false, true,  0, 0, kAllLeads},
    {MATERIAL_TRIANGLE,        Preparation::kPeriodic, Ending::kNever,      false, false, true,  0, 0, kAllLeads},
    {MATERIAL_RECTANGLE_PULSE, Preparation::kPeriodic, Ending::kNever,      false, false, true,  0, 0, kAllLeads},
    {MATERIAL_SQUARE,          Preparation::kPeriodic, Ending::kNever,      false, false, true,  0, 0, kAllLeads},
    {MATERIAL_TRIANGLE_PULSE,  Preparation::kPeriodic, Ending::kNever,      false, false, true,  0, 0, kAllLeads},
};

// Values that name no kind: silent, and endless from 128 on.
constexpr int32_t kFirstEndlessType = 128;
constexpr MaterialKind kNoKind =
    {MATERIAL_NONE,            Preparation::kSilent,   Ending::kStartsOver, false, false, true,  0, 0, kAllLeads};
constexpr MaterialKind kNoEndlessKind =
    {kFirstEndlessType,        Preparation::kSilent,   Ending::kNever,      false, false, true,  0, 0, kAllLeads};
// clang-format on

// Looked up for every frame, and therefore by index.
constexpr size_t kKindCodes = 256;

constexpr std::array<MaterialKind, kKindCodes> MakeKindsByCode() {
    std::array<MaterialKind, kKindCodes> kinds{};
    for (size_t code = 0; code < kKindCodes; ++code) {
        kinds[code] = code < size_t{kFirstEndlessType} ? kNoKind : kNoEndlessKind;
    }
    for (const MaterialKind& kind : kMaterialKinds) {
        kinds[static_cast<size_t>(kind.type)] = kind;
    }
    return kinds;
}

inline constexpr std::array<MaterialKind, kKindCodes> kKindsByCode = MakeKindsByCode();

// The row for a value of g_WaveformType.
inline const MaterialKind& KindOf(int32_t type) {
    if (type < 0) {
        return kNoKind;
    }
    const auto code = static_cast<size_t>(type);
    return code < kKindCodes ? kKindsByCode[code] : kNoEndlessKind;
}

// The rate at which material of a kind plays that was sampled at `rate`.
inline uint32_t FramesPerSecondOf(const MaterialKind& kind, uint32_t rate) {
    return kind.framesPerSecond != 0 ? kind.framesPerSecond : rate;
}
