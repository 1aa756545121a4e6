#pragma once

#include "api/ravo.h"

#include <array>
#include <optional>
#include <string>

namespace lab {

constexpr std::size_t kOutputCount = 8; // ECG_LEAD_I to ECG_LEAD_V6
constexpr std::size_t kLeadCount = 12;  // the standard leads, in the order of the preview

constexpr std::array<const char*, kOutputCount> kOutputNames = {"I",  "II", "V1", "V2",
                                                                "V3", "V4", "V5", "V6"};
constexpr std::array<const char*, kLeadCount> kLeadNames = {"I",  "II", "III", "aVR", "aVL", "aVF",
                                                            "V1", "V2", "V3",  "V4",  "V5",  "V6"};

// The index of output `output` among the twelve leads.
constexpr std::size_t LeadOfOutput(std::size_t output) {
    return output < 2 ? output : output + 4;
}

// "I" to "V6" in any letter case, or "none".
std::optional<ECG_Lead> LeadFromName(const std::string& name);

// The lead's name, "-" for none.
const char* LeadName(ECG_Lead lead);

std::string LowerCase(std::string text);

} // namespace lab
