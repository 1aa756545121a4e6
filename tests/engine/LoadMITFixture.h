#pragma once

#include "engine/LeadMapping.h"
#include "engine/loaders/LoadMIT.h"
#include "engine/Record.h"
#include "tests/engine/LoadedMaterial.h"
#include "tests/support/Encoding.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

// Records of format 16 that a test writes and loads.

using Header = LoadedHeader;

// A signal line of format 16 with gain 100: a sample of 100 is 1 mV.
inline std::string Signal16(const std::string& description, const std::string& gain = "100/mV") {
    return "a.dat 16 " + gain + " 12 0 0 0 0 " + description + "\n";
}

class LoadMIT : public testing::Test {
  protected:
    // Writes the record, loads its header and keeps it.
    ECG_HEADER* LoadHeader(const std::string& header, const std::vector<int>& samples) {
        m_directory.Write("a.hea", header);
        m_directory.Write("a.dat", EncodeFormat16(samples));
        m_header.reset(LoadMITHeader((m_directory / "a.hea").c_str()));
        return m_header.get();
    }
    void Load(const std::string& header, const std::vector<int>& samples) {
        ASSERT_NE(LoadHeader(header, samples), nullptr);
        ASSERT_EQ(LoadMITDatabase(m_header.get()), 1);
    }
    static std::vector<double> Channel(int channel) {
        return std::vector<double>(g_pECGData[channel], g_pECGData[channel] + g_nSampleCount);
    }

    Scratch m_directory;
    Header m_header;
};

using Values = std::vector<double>;
