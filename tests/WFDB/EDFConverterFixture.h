#pragma once

#include "tests/support/Files.h"
#include "tests/WFDB/EDFFile.h"
#include "WFDB/edf2mit.h"

#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// EDF files that a test writes and converts.

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

inline Lines ReadLines(const std::string& path) {
    std::ifstream file(path);
    Lines lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

class EDFConverter : public testing::Test {
  protected:
    int Convert(const std::string& content) {
        const std::string input = m_input.Write("record.edf", content);
        return edf2mit(input.c_str(), m_output.Path().c_str());
    }
    int Convert(const EDFFile& file) { return Convert(file.Encode()); }

    Lines HeaderLines() const { return ReadLines(m_output / "record.hea"); }
    std::string SignalBytes() const { return ReadFile(m_output / "record.dat"); }

    // One signal of 5,000 samples.
    static EDFFile Long() {
        EDFFile file;
        file.Signals.resize(1);
        file.Signals[0].SamplesPerRecord = "5000";
        file.Samples.resize(5000);
        return file;
    }

    // The signal line of a file with this one signal.
    std::string LineOf(const EDFSignal& signal) {
        EDFFile file;
        file.Signals = {signal};
        EXPECT_EQ(Convert(file), 1);
        const Lines lines = HeaderLines();
        return lines.size() == 2 ? lines[1] : "";
    }

    // The second field of the record line of a file with one signal for each sample count.
    std::string FrequencyOf(const std::string& duration, const Lines& sampleCounts) {
        EDFFile file;
        file.Duration = duration;
        for (const std::string& count : sampleCounts) {
            file.Signals.emplace_back();
            file.Signals.back().SamplesPerRecord = count;
        }
        EXPECT_EQ(Convert(file), 1);
        const Lines lines = HeaderLines();
        const std::string prefix = "record " + std::to_string(sampleCounts.size()) + " ";
        EXPECT_EQ(lines.at(0).rfind(prefix, 0), 0U) << lines[0];
        const std::string rest = lines[0].substr(prefix.size());
        return rest.substr(0, rest.find(' '));
    }

    Scratch m_input;
    Scratch m_output;
};

inline EDFFile TwoSignals() {
    EDFFile file;
    file.Signals.resize(2);
    file.Signals[1].Label = "ECG II";
    file.DataRecords = "2";
    file.Samples = {1, 2, 3, 4, -1, -2, -3, -4, 5, 6, 7, 8, -5, -6, -7, -8};
    return file;
}
