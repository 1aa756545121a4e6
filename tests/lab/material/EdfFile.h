#pragma once

#include <string>
#include <vector>

// Headers of EDF files, field by field.

inline std::string Field(std::string text, std::size_t width) {
    text.resize(width, ' ');
    return text;
}

struct Channel {
    std::string label;
    std::string unit;
    std::string physicalMinimum;
    std::string physicalMaximum;
    std::string digitalMinimum;
    std::string digitalMaximum;
    std::string perRecord;
};

inline std::string EdfHeader(const std::vector<Channel>& channels, const std::string& records,
                             const std::string& duration, const std::string& kind = "",
                             const std::string& version = "0") {
    std::string file = Field(version, 8) + Field("", 160) + "01.02.0310.20.30" +
                       Field(std::to_string(256 * (channels.size() + 1)), 8) + Field(kind, 44) +
                       Field(records, 8) + Field(duration, 8) +
                       Field(std::to_string(channels.size()), 4);
    const auto add = [&](std::size_t width, const auto& value) {
        for (const Channel& channel : channels) {
            file += Field(value(channel), width);
        }
    };
    add(16, [](const Channel& c) { return c.label; });
    add(80, [](const Channel&) { return std::string(); });
    add(8, [](const Channel& c) { return c.unit; });
    add(8, [](const Channel& c) { return c.physicalMinimum; });
    add(8, [](const Channel& c) { return c.physicalMaximum; });
    add(8, [](const Channel& c) { return c.digitalMinimum; });
    add(8, [](const Channel& c) { return c.digitalMaximum; });
    add(80, [](const Channel&) { return std::string(); });
    add(8, [](const Channel& c) { return c.perRecord; });
    add(32, [](const Channel&) { return std::string(); });
    return file;
}

inline Channel Lead(const std::string& label, const std::string& perRecord) {
    return {label, "mV", "-5", "5", "-500", "500", perRecord};
}
