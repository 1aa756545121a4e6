// Every kind of file from the disk to the outputs of the emulated simulator: what is played is,
// frame by frame, what the file was made of.
#include "api/ravo.h"
#include "LoaderPlayFixture.h"
#include "tests/support/Encoding.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace {

// ---- AHA ---------------------------------------------------------------------------------------

class AHALoaderPlay : public LoaderPlay {
  protected:
    void ExpectPlaysMade(const std::string& path) {
        const Header header(RAVOLoadDatabaseAHA(path.c_str()));
        ASSERT_NE(header, nullptr);
        ExpectPlays(3 * kCount, [this](size_t frame) {
            const size_t sample = frame % kCount;
            return AHAFrame(m_leads[0][sample] / 400.0, m_leads[1][sample] / 400.0);
        });
    }

    static constexpr size_t kCount = 1111;
    const std::vector<Samples> m_leads = MadeLeads(2, kCount, 2400); // up to 6 mV
};

INSTANTIATE_TEST_SUITE_P(Units, AHALoaderPlay,
                         testing::Values(emulator::Unit::kSixteenBit, emulator::Unit::kTwelveBit),
                         NameOfUnit);

// Five bytes per sample: both leads, low byte first, and an annotation code.
TEST_P(AHALoaderPlay, Binary) {
    std::vector<std::uint8_t> bytes;
    for (size_t i = 0; i < kCount; ++i) {
        const std::vector<std::uint8_t> frame = EncodeFormat16({m_leads[0][i], m_leads[1][i]});
        bytes.insert(bytes.end(), frame.begin(), frame.end());
        bytes.push_back('N');
    }
    ExpectPlaysMade(m_directory.Write("1001.ecg", bytes));
}

TEST_P(AHALoaderPlay, Text) {
    std::string text;
    for (size_t i = 0; i < kCount; ++i) {
        text += std::to_string(m_leads[0][i]) + ", " + std::to_string(m_leads[1][i]) + "\r\n";
    }
    ExpectPlaysMade(m_directory.Write("1001.txt", text));
}

// ---- CSE ---------------------------------------------------------------------------------------

class CSELoaderPlay : public LoaderPlay {
  protected:
    void ExpectPlaysMade(const std::string& path) {
        const Header header(RAVOLoadDatabaseCSE(path.c_str()));
        ASSERT_NE(header, nullptr);
        ExpectPlays(3 * kCount, [this](size_t frame) {
            Voltages leads{};
            for (size_t lead = 0; lead < 8; ++lead) {
                const size_t column = lead < 2 ? lead : lead + 4;
                leads[lead] = m_columns[column][frame % kCount] / 1000.0;
            }
            return DirectFrame(leads);
        });
    }

    static constexpr size_t kCount = 1234;
    // I, II, III, aVR, aVL, aVF, V1 to V6 in microvolts.
    const std::vector<Samples> m_columns = MadeLeads(12, kCount, 6000);
};

INSTANTIATE_TEST_SUITE_P(Units, CSELoaderPlay,
                         testing::Values(emulator::Unit::kSixteenBit, emulator::Unit::kTwelveBit),
                         NameOfUnit);

// 3000 bytes, of which four hold the count; four blocks of three leads, high byte first; a byte
// more.
TEST_P(CSELoaderPlay, Binary) {
    std::string bytes(3000, '\xAA');
    bytes.replace(36, 4, std::to_string(kCount));
    for (size_t block = 0; block < 4; ++block) {
        for (size_t i = 0; i < kCount; ++i) {
            for (size_t lead = 3 * block; lead < 3 * block + 3; ++lead) {
                const int code = (m_columns[lead][i] + 65536) % 65536;
                bytes += static_cast<char>(code / 256);
                bytes += static_cast<char>(code % 256);
            }
        }
    }
    ExpectPlaysMade(m_directory.Write("MO1_001.DCD", bytes + '\0'));
}

TEST_P(CSELoaderPlay, Text) {
    std::string text;
    for (size_t i = 0; i < kCount; ++i) {
        for (const Samples& column : m_columns) {
            text += std::to_string(column[i]) + "\t ";
        }
        text += "\r\n";
    }
    ExpectPlaysMade(m_directory.Write("mo1_001.asc", text));
}

// ---- Native text -------------------------------------------------------------------------------

// The lead names of the file in the order of the outputs' leads; V4 is left out.
constexpr const char* kNativeNames[] = {"Lead I", "lead ii", "V1", "v2", "V3", "", "V5", "V6"};

std::string EncodeNative(size_t rate, size_t count, const std::vector<Samples>& leads) {
    std::string text = std::to_string(rate) + "\n" + std::to_string(count) + "\nStart\n";
    for (size_t lead = 0; lead < leads.size(); ++lead) {
        if (*kNativeNames[lead] != '\0') {
            text += std::string(kNativeNames[lead]) + "\n";
            for (const int sample : leads[lead]) {
                text += std::to_string(sample) + "\n";
            }
        }
    }
    return text;
}

// The outputs run at 1000 frames a second: millisecond `time` lies between two samples.
double Resampled(const Samples& samples, double rate, size_t time) {
    const double position = static_cast<double>(time) / 1000.0 * rate;
    const auto whole = static_cast<size_t>(position);
    const double part = position - static_cast<double>(whole);
    const size_t j = whole % samples.size();
    const double a = samples[j] / 1000.0;
    const double step =
        j + 1 == samples.size() ? a - samples[j - 1] / 1000.0 : samples[j + 1] / 1000.0 - a;
    return a + step * part;
}

class NativeTextLoaderPlay : public LoaderPlay {};

INSTANTIATE_TEST_SUITE_P(Units, NativeTextLoaderPlay,
                         testing::Values(emulator::Unit::kSixteenBit, emulator::Unit::kTwelveBit),
                         NameOfUnit);

TEST_P(NativeTextLoaderPlay, AnyRate) {
    constexpr size_t kCount = 701;
    std::vector<Samples> leads = MadeLeads(8, kCount, 6000);
    for (const size_t rate : {240U, 500U, 1000U, 2500U}) {
        SCOPED_TRACE(rate);
        const std::string path = m_directory.Write("native.txt", EncodeNative(rate, kCount, leads));
        const Header header(RAVOLoadDatabaseTarnwick(path.c_str()));
        ASSERT_NE(header, nullptr);
        // Three times the record's length.
        ExpectPlays(3 * kCount * 1000 / rate, [&](size_t frame) {
            Voltages voltages{};
            for (size_t lead = 0; lead < 8; ++lead) {
                voltages[lead] = *kNativeNames[lead] == '\0'
                                     ? 0.0
                                     : Resampled(leads[lead], static_cast<double>(rate), frame);
            }
            return DirectFrame(voltages);
        });
    }
}

// ---- WFDB --------------------------------------------------------------------------------------

class WFDBLoaderPlay : public LoaderPlay {
  protected:
    void Load(const std::string& header, const std::vector<std::uint8_t>& samples) {
        m_directory.Write("r.dat", samples);
        const Header loaded(RAVOLoadMITHeader(m_directory.Write("r.hea", header).c_str()));
        ASSERT_NE(loaded, nullptr);
        EXPECT_EQ(static_cast<size_t>(loaded->NumberOfSamples), kCount);
        ASSERT_TRUE(RAVOLoadMITDatabase(loaded.get()));
    }

    static constexpr size_t kCount = 1500;
};

INSTANTIATE_TEST_SUITE_P(Units, WFDBLoaderPlay,
                         testing::Values(emulator::Unit::kSixteenBit, emulator::Unit::kTwelveBit),
                         NameOfUnit);

// Leads out of order, one that feeds none, one in microvolts, one twice per frame, and one so far
// from 0 that it is centred.
TEST_P(WFDBLoaderPlay, Format16) {
    const Samples leadII = Made(0, 2 * kCount, 1200);
    const Samples breath = Made(1, kCount, 3000);
    const Samples chest1 = Made(2, kCount, 6000);
    Samples chest6 = Made(3, kCount, 1000);
    for (int& sample : chest6) {
        sample += 2560; // 10 mV
    }
    Samples stored;
    for (size_t k = 0; k < kCount; ++k) {
        stored.insert(stored.end(),
                      {leadII[2 * k], leadII[2 * k + 1], breath[k], chest1[k], chest6[k]});
    }
    Load("r 4 250 " + std::to_string(2 * kCount) +
             "\n"
             "r.dat 16x2 200(-30)/mV 12 7 0 0 0 MLII\n"
             "r.dat 16 100/mV 12 0 0 0 0 RESP\n"
             "r.dat 16 1/uV 16 5 0 0 0 V1\n"
             "r.dat 16 256/mV 16 0 0 0 0 V6\n",
         EncodeFormat16(stored));

    // The record is shorter than the minute over which the mean is taken.
    double sum = 0.0;
    for (const int sample : chest6) {
        sum += sample / 256.0;
    }
    const double mean = sum / kCount;
    ASSERT_GT(mean, 5.0);
    ExpectPlays(3 * kCount, [&](size_t frame) {
        const size_t k = frame % kCount;
        Voltages voltages{};
        voltages[1] = ((leadII[2 * k] + 30) / 200.0 + (leadII[2 * k + 1] + 30) / 200.0) / 2;
        voltages[2] = (chest1[k] - 5) / 1.0 / 1000.0;
        voltages[7] = chest6[k] / 256.0 - mean;
        return DirectFrame(voltages);
    });
}

TEST_P(WFDBLoaderPlay, Format212) {
    const Samples leadI = Made(0, kCount, 1000);
    const Samples chest5 = Made(1, kCount, 1000);
    Samples stored;
    for (size_t k = 0; k < kCount; ++k) {
        stored.insert(stored.end(), {leadI[k] + 1024, chest5[k]});
    }
    Load("r 2 360 " + std::to_string(kCount) +
             "\n"
             "r.dat 212 160 11 1024 0 0 0 V5\n"
             "r.dat 212 160 11 0 0 0 0 I\n",
         EncodeFormat212(stored));
    ExpectPlays(3 * kCount, [&](size_t frame) {
        const size_t k = frame % kCount;
        return DirectFrame({chest5[k] / 160.0, 0.0, 0.0, 0.0, 0.0, 0.0, leadI[k] / 160.0, 0.0});
    });
}

} // namespace
