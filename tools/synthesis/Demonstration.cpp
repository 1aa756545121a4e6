#include "tools/synthesis/Demonstration.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>

namespace synthesis {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kSecondsPerBreath = 4.0;

// Inhaling speeds the heart up: the beat's phase runs ahead and falls behind by this much.
constexpr double kBreathPhase = 0.15;

// The record starts in the pause between T and P, where a seam is least visible.
constexpr double kStartPhase = -2.6;

constexpr std::array<const char*, kLeadCount> kNames = {"I",  "II", "V1", "V2",
                                                        "V3", "V4", "V5", "V6"};

// Format 16 stores microvolts; 12 bits hold a step of 4 microvolts over more than +-8 mV.
struct Storage {
    int number;
    int unitsPerMillivolt;
    int bits;
};

constexpr Storage kStorage16 = {16, 1000, 16};
constexpr Storage kStorage212 = {212, 250, 12};

int ToUnits(int16_t microvolts, const Storage& storage) {
    return static_cast<int>(std::lround(microvolts * storage.unitsPerMillivolt / 1000.0));
}

bool Fits(int units, const Storage& storage) {
    const int limit = 1 << (storage.bits - 1);
    return units >= -limit && units < limit;
}

char LowByte(int value) {
    return static_cast<char>(static_cast<unsigned char>(value & 0xFF));
}

void Append16(std::string& bytes, int value) {
    bytes += LowByte(value);
    bytes += LowByte(value >> 8);
}

// Two samples in three bytes: the high halves share the middle one.
void Append212(std::string& bytes, int first, int second) {
    bytes += LowByte(first);
    bytes += LowByte(((first >> 8) & 0x0F) | ((second >> 4) & 0xF0));
    bytes += LowByte(second);
}

std::string PackFrames(const std::vector<std::array<int, kLeadCount>>& frames,
                       SignalFormat format) {
    std::string bytes;
    for (const auto& frame : frames) {
        for (std::size_t i = 0; i < kLeadCount; i += 2) {
            if (format == SignalFormat::k16) {
                Append16(bytes, frame[i]);
                Append16(bytes, frame[i + 1]);
            } else {
                Append212(bytes, frame[i], frame[i + 1]);
            }
        }
    }
    return bytes;
}

// A header's checksum is the sum of the signal's samples as a signed 16-bit number.
int Checksum(const std::vector<std::array<int, kLeadCount>>& frames, std::size_t lead) {
    int64_t sum = 0;
    for (const auto& frame : frames) {
        sum += frame[lead];
    }
    const int64_t low = sum & 0xFFFF;
    return static_cast<int>(low < 0x8000 ? low : low - 0x10000);
}

bool WriteFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    return file.good();
}

std::string LastPart(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

std::string HeaderText(const Demonstration& record, const std::string& name, const Storage& storage,
                       const std::vector<std::array<int, kLeadCount>>& frames) {
    std::string text = name + " " + std::to_string(kLeadCount) + " " + std::to_string(record.rate) +
                       " " + std::to_string(frames.size()) + "\n";
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        const int initial = frames.empty() ? 0 : frames.front()[i];
        text += name + ".dat " + std::to_string(storage.number) + " " +
                std::to_string(storage.unitsPerMillivolt) + "/mV " + std::to_string(storage.bits) +
                " 0 " + std::to_string(initial) + " " + std::to_string(Checksum(frames, i)) +
                " 0 " + kNames[i] + "\n";
    }
    return text + "# Synthetic rest ECG, computed from a published model; no patient's data.\n";
}

} // namespace

Demonstration MakeDemonstration(int64_t rate, int seconds, double beatsPerMinute) {
    const double beats = std::max(1.0, std::round(beatsPerMinute * seconds / 60.0));
    const double breaths = std::max(1.0, std::round(seconds / kSecondsPerBreath));
    const Beat beat = AtHeartRate(NormalBeat(), beats * 60.0 / seconds);
    const int64_t count = rate * seconds;

    Demonstration record{rate, {}};
    for (auto& lead : record.microvolts) {
        lead.reserve(static_cast<std::size_t>(count));
    }
    for (int64_t n = 0; n < count; ++n) {
        const double turn = 2.0 * kPi * static_cast<double>(n) / static_cast<double>(count);
        const double phase = kStartPhase + beats * turn + kBreathPhase * std::sin(breaths * turn);
        const auto leads = LeadsAt(beat, phase);
        for (std::size_t i = 0; i < kLeadCount; ++i) {
            record.microvolts[i].push_back(static_cast<int16_t>(std::lround(leads[i] * 1000.0)));
        }
    }
    return record;
}

bool WriteRecord(const Demonstration& record, const std::string& path, SignalFormat format) {
    const Storage& storage = format == SignalFormat::k16 ? kStorage16 : kStorage212;
    std::vector<std::array<int, kLeadCount>> frames(record.microvolts[0].size());
    for (std::size_t n = 0; n < frames.size(); ++n) {
        for (std::size_t i = 0; i < kLeadCount; ++i) {
            frames[n][i] = ToUnits(record.microvolts[i][n], storage);
            if (!Fits(frames[n][i], storage)) {
                return false;
            }
        }
    }
    return WriteFile(path + ".dat", PackFrames(frames, format)) &&
           WriteFile(path + ".hea", HeaderText(record, LastPart(path), storage, frames));
}

} // namespace synthesis
