#include "lab/material/Leads.h"

#include <algorithm>

namespace lab {

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

std::optional<ECG_Lead> LeadFromName(const std::string& name) {
    const std::string wanted = LowerCase(name);
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        if (wanted == LowerCase(kOutputNames[i])) {
            return static_cast<ECG_Lead>(i);
        }
    }
    return wanted == "none" ? std::optional(ECG_LEAD_NONE) : std::nullopt;
}

const char* LeadName(ECG_Lead lead) {
    const auto index = static_cast<std::size_t>(lead);
    return index < kOutputCount ? kOutputNames[index] : "-";
}

} // namespace lab
