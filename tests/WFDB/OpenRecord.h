#pragma once

#include "tests/support/Files.h"
#include "WFDB/main.h"
#include "WFDB/signal.h"
#include "WFDB/stdafx.h"

#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <vector>

inline constexpr double kUntouched = 12345.0;

// A record in a directory of its own, opened for reading.
class Record {
  public:
    Record(const std::string& header, const std::vector<uint8_t>& samples,
           const std::string& fileName = "a.dat") {
        std::string path = m_directory.Write("a.hea", header);
        m_directory.Write(fileName, samples);
        m_header = WFDBReadHeader(path.data());
        m_loaded = WFDBLoadSignal(m_directory.Path().c_str(), m_header);
    }
    ~Record() { WFDBFreeHeader(m_header); }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    WFDB_HEADER* Header() { return m_header; }
    int Loaded() const { return m_loaded; }
    const SIGNAL_HANDLER* Handler() { return GetSignalHandler(m_header); }

    std::vector<double> Next(int frames, int expectedFrames) {
        const auto signals = static_cast<size_t>(m_header->NumberOfSignals);
        std::vector<double> out(signals * static_cast<size_t>(frames), kUntouched);
        EXPECT_EQ(WFDBNextSample(m_header, out.data(), frames), expectedFrames);
        return out;
    }
    std::vector<int> NextEx(int frames, int expectedFrames) {
        const auto signals = static_cast<size_t>(m_header->NumberOfSignals);
        std::vector<int> out(signals * static_cast<size_t>(frames), -12345);
        EXPECT_EQ(Handler()->NextSampleEx(m_header, out.data(), frames), expectedFrames);
        return out;
    }
    long Position() { return std::ftell(GetSignalFile(m_header)); }

  private:
    Scratch m_directory;
    WFDB_HEADER* m_header = nullptr;
    int m_loaded = 0;
};

inline std::string OneSignal(const std::string& format, int frames, const std::string& gain = "1") {
    return "a 1 100 " + std::to_string(frames) + "\na.dat " + format + " " + gain + " 12 0\n";
}

inline std::string TwoSignals(const std::string& format, int frames) {
    return "a 2 100 " + std::to_string(frames) + "\na.dat " + format + " 1 12 0\na.dat " + format +
           " 1 12 0\n";
}

using Values = std::vector<double>;
using Codes = std::vector<int>;
