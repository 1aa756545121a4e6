#pragma once

#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "WFDB/nst.h"
#include "WFDB/sigamp.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

// The noise stress test on records that a test makes.

using Bytes = std::vector<uint8_t>;

inline Bytes ReadBytes(const std::string& path) {
    const std::string content = ReadFile(path);
    return {content.begin(), content.end()};
}

inline int SignExtend(int code) {
    return code >= 2048 ? code - 4096 : code;
}

// The two signals of a written frame.
inline std::pair<int, int> FrameOf(const Bytes& data, size_t frame) {
    const size_t at = frame * 3;
    return {SignExtend(data.at(at) + data.at(at + 1) % 16 * 256),
            SignExtend(data.at(at + 2) + data.at(at + 1) / 16 * 256)};
}

// Annotations with one normal beat every `interval` frames, at most 1023.
inline Bytes BeatsEvery(unsigned interval, int count) {
    Bytes bytes;
    for (int i = 0; i < count; ++i) {
        bytes.push_back(static_cast<uint8_t>(interval % 256));
        bytes.push_back(static_cast<uint8_t>(4 + interval / 256));
    }
    bytes.push_back(0);
    bytes.push_back(0);
    return bytes;
}

// A directory of generated records and an empty configuration.  Most records run at 1 frame per
// second, which makes the lead-in 300 and a segment 120 frames long.
class NoiseTest : public testing::Test {
  protected:
    ~NoiseTest() override {
        g_nRunMax = 300;
        g_nMovingWindowSize = 360;
        NSTResetNoise();
        NSTSetSignal("");
        g_strOutputFilePath.clear();
    }

    // A record given by its signal lines without their file name, and by its samples in frame
    // order.
    std::string MakeRecord(const std::string& name, int frequency, size_t frames,
                           const std::vector<std::string>& signals,
                           const std::vector<int>& samples) {
        std::string header = name + " " + std::to_string(signals.size()) + " " +
                             std::to_string(frequency) + " " + std::to_string(frames) + "\n";
        for (const std::string& signal : signals) {
            header += name + ".dat " + signal + "\n";
        }
        const bool packed = !signals.empty() && signals[0].substr(0, 3) == "212";
        m_directory.Write(name + ".dat",
                          packed ? EncodeFormat212(samples) : EncodeFormat16(samples));
        m_directory.Write(name + ".hea", header);
        return m_directory / name;
    }

    // A two-signal record s that holds 100 and -100 in turn, and a noise record n of half that
    // height, measured in windows that see all of it.
    void MakeSimpleRecords(size_t frames = 700) {
        g_nRunMax = 1;
        g_nMovingWindowSize = 2;
        std::vector<int> signal;
        for (size_t i = 0; i < frames; ++i) {
            signal.insert(signal.end(), 2, i % 2 == 0 ? 100 : -100);
        }
        MakeRecord("s", 1, frames, {"212 1 12 0 0 0 0 A", "212 1 12 0 0 0 0 B"}, signal);
        MakeRecord("n", 1, 1000, {"212 1 12 0"}, std::vector<int>(1000, 0));
        MakeNoise({50, -50});
    }
    void MakeNoise(std::vector<int> samples) {
        const size_t period = samples.size();
        while (samples.size() < 1000) {
            samples.push_back(samples[samples.size() - period]);
        }
        MakeRecord("n", 1, 1000, {"212 1 12 0"}, samples);
    }

    int Run(const std::vector<double>& ratios, const std::string& output = "o") {
        NSTSetSignal((m_directory / "s").c_str());
        NSTResetNoise();
        for (const double snr : ratios) {
            NSTAddNoise((m_directory / "n").c_str(), snr);
        }
        return NSTOutput((m_directory / output).c_str());
    }
    int RunSingle(const std::string& signal, const std::string& noise, double snr,
                  const std::string& output = "o") {
        std::string signalPath = m_directory / signal;
        std::string noisePath = m_directory / noise;
        std::string outputPath = m_directory / output;
        return nst(signalPath.data(), noisePath.data(), outputPath.data(), snr);
    }

    Bytes Data(const std::string& output = "o") const {
        return ReadBytes(m_directory / (output + ".dat"));
    }
    std::string HeaderText(const std::string& output = "o") const {
        return ReadFile(m_directory / (output + ".hea"));
    }
    bool Exists(const std::string& name) const {
        return std::filesystem::exists(m_directory / name);
    }

    Scratch m_directory;
};
