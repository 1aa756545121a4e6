#pragma once

#include "tests/support/Files.h"
#include "tests/WFDB/RecordModel.h"
#include "WFDB/sigamp.h"

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// Amplitudes of a record that a test makes.

using Amplitudes = std::vector<double>;

// Annotations of the given times and types.
inline std::vector<uint8_t> EncodeAnnotations(const std::vector<model::Beat>& beats) {
    std::vector<uint8_t> bytes;
    const auto addWord = [&](unsigned word) {
        bytes.push_back(static_cast<uint8_t>(word % 256));
        bytes.push_back(static_cast<uint8_t>(word / 256));
    };
    uint32_t time = 0;
    for (const model::Beat& beat : beats) {
        // The first word of a file cannot be a SKIP.
        if (bytes.empty()) {
            addWord(22 * 1024 + 0);
        }
        const uint32_t interval = beat.time - time;
        addWord(59 * 1024);
        addWord(interval / 65536);
        addWord(interval % 65536);
        addWord(static_cast<unsigned>(beat.type) * 1024 + 0);
        time = beat.time;
    }
    addWord(0);
    return bytes;
}

// Makes the record r; restores the settings afterwards.
class Amplitude : public testing::Test {
  protected:
    ~Amplitude() override {
        g_nRunMax = 300;
        g_nMovingWindowSize = 360;
    }

    void MakeRecord(const std::string& headerLine, const std::vector<std::string>& signalLines,
                    const std::vector<uint8_t>& bytes) {
        std::string header = headerLine + "\n";
        for (const std::string& line : signalLines) {
            header += line + "\n";
        }
        m_directory.Write("r.hea", header);
        m_directory.Write("r.dat", bytes);
    }
    void Annotate(const std::vector<model::Beat>& beats) {
        m_directory.Write("r.atr", EncodeAnnotations(beats));
    }

    // Amplitudes by the path of the record.
    Amplitudes Measure() { return MeasurePath(m_directory / "r.hea"); }
    static Amplitudes MeasurePath(const std::string& path) {
        double* amplitudes = nullptr;
        const int count = sigamp(path.c_str(), &amplitudes);
        if (amplitudes == nullptr) {
            EXPECT_EQ(count, 0);
            return {};
        }
        const Amplitudes result(amplitudes, amplitudes + count);
        WFDBMemFree(amplitudes);
        return result;
    }

    Scratch m_directory;
};

inline const std::vector<std::string> kTwoSignals = {"r.dat 212 200 12 0", "r.dat 212 200 12 0"};
