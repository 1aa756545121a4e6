// Every kind of file from the disk to the outputs of the emulated simulator: the frames that are
// played are, one by one, those that the file was made from.
#include "api/ravo.h"
#include "ExpectedCodes.h"
#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "tests/support/PublicRecord.h"
#include "tests/WFDB/EDFFile.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;

using emulator::Codes;
using Voltages = std::array<double, 8>; // I, II, V1 to V6
using Samples = std::vector<int>;
using FrameAt = std::function<Codes(size_t frame)>;

constexpr double kRange = 5.0;

struct HeaderReleaser {
    void operator()(ECG_HEADER* header) const { RAVOFreeECGHeader(header); }
};
using Header = std::unique_ptr<ECG_HEADER, HeaderReleaser>;

// Different noise for each lead, so that a sample or a lead that is off by one shows.
Samples Made(size_t lead, size_t count, int amplitude) {
    Samples samples;
    std::uint32_t state = static_cast<std::uint32_t>(lead) * 7919 + 1;
    for (size_t i = 0; i < count; ++i) {
        state = state * 1664525 + 1013904223;
        samples.push_back(
            static_cast<int>((state >> 8) % static_cast<unsigned>(2 * amplitude + 1)) - amplitude);
    }
    return samples;
}

std::vector<Samples> MadeLeads(size_t leads, size_t count, int amplitude) {
    std::vector<Samples> made;
    for (size_t lead = 0; lead < leads; ++lead) {
        made.push_back(Made(lead, count, amplitude));
    }
    return made;
}

// ---- The bench ---------------------------------------------------------------------------------

std::string NameOfUnit(const testing::TestParamInfo<emulator::Unit>& info) {
    return info.param == emulator::Unit::kSixteenBit ? "SixteenBit" : "TwelveBitCalibrated";
}

// A connected simulator that plays as fast as the host delivers; the 12-bit one is calibrated.
class LoaderPlay : public testing::TestWithParam<emulator::Unit> {
  protected:
    LoaderPlay() : m_corrected(GetParam()), m_uncorrected(GetParam()) {
        emulator::Settings settings = emulator::Settings::Of(GetParam());
        settings.behaviour.speed = 0;
        if (GetParam() == emulator::Unit::kTwelveBit) {
            const std::string path =
                emulator::CalibrationFilePath(settings.unit, settings.behaviour);
            EXPECT_TRUE(emulator::ConverterModel::Uncalibrated().WriteCalibrationFile(path));
            m_corrected.Calibrate(path);
            EXPECT_TRUE(m_corrected.IsCalibrated());
        }
        m_simulator = std::make_unique<emulator::Simulator>(settings);
    }
    ~LoaderPlay() override { RAVOFree(); }

    void SetUp() override {
        ASSERT_TRUE(RAVOConnect(0, 60000));
        RAVOEnableLoop(true);
        RAVOEnableNoise(false);
    }

    // Plays at least `count` frames of the loaded material and compares all that arrived.
    void ExpectPlays(size_t count, const FrameAt& expected) {
        const auto before = static_cast<size_t>(m_simulator->Seen().Count().frames);
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
        EXPECT_TRUE(m_simulator->Seen().WaitForFrames(before + count, 100s));
        RAVOStopOutput();
        const std::vector<Codes> frames = m_simulator->Seen().Frames();
        ASSERT_GE(frames.size(), before + count);
        for (size_t i = before; i < frames.size(); ++i) {
            ASSERT_EQ(frames[i], expected(i - before)) << "frame " << i - before;
        }
    }

    Codes DirectFrame(const Voltages& leads) const { return m_corrected.Frame(leads); }

    // Two leads, no chest signals, and never a correction.
    Codes AHAFrame(double first, double second) const {
        const double leadI = std::clamp(first, -kRange, kRange);
        const double leadII = std::clamp(second, -kRange, kRange);
        const double w = (leadI + leadII) * 0.33333333333;
        Codes codes{m_uncorrected.Code(leadI, 0), m_uncorrected.Code(leadII, 1)};
        for (size_t channel = 2; channel < 8; ++channel) {
            codes[channel] = m_uncorrected.Code(w / 1.665, channel);
        }
        return codes;
    }

    // Lead I feeds both limb outputs; the chest leads are not limited to the range before they are
    // summed, and those from `limit` on are silent.
    Codes EDFFrame(const Voltages& leads, size_t limit) const {
        const double limb = std::clamp(leads[0], -kRange, kRange);
        const double w = (limb + limb) * 0.33333333333;
        Codes codes{m_corrected.Code(limb, 0), m_corrected.Code(limb, 1)};
        for (size_t channel = 2; channel < 8; ++channel) {
            const size_t lead = 9 - channel;
            const double chest = lead < limit ? leads[lead] : 0.0;
            codes[channel] = m_corrected.Code((chest + w) / 1.665, channel);
        }
        return codes;
    }

    Scratch m_directory;

  private:
    Converter m_corrected;
    Converter m_uncorrected;
    std::unique_ptr<emulator::Simulator> m_simulator;
};

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

// 3000 bytes, of which four tell the count; four blocks of three leads, high byte first; a byte
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

// ---- EDF ---------------------------------------------------------------------------------------

// Puts converted files into a directory of the test's own.
class EDFLoaderPlay : public LoaderPlay {
  protected:
    EDFLoaderPlay() : m_repository(m_directory / "repository") {
        g_pszRepository = m_repository.data();
    }
    ~EDFLoaderPlay() override { g_pszRepository = m_initial; }

    // Loads header and samples; `leads` become the mapping unless it is empty.
    void Load(const std::string& path, WaveformType type, const std::vector<ECG_Lead>& leads,
              size_t samples) {
        const Header header(LoadDatabaseEDF(path.c_str(), type));
        ASSERT_NE(header, nullptr);
        EXPECT_EQ(static_cast<size_t>(header->NumberOfSamples), samples);
        for (size_t i = 0; i < leads.size(); ++i) {
            header->Signal[i].Lead = leads[i];
        }
        if (!leads.empty()) {
            RAVOUpdateECGHeaderMappingLead(header.get());
        }
        ASSERT_TRUE(RAVOLoadMITDatabase(header.get()));
        g_WaveformType = type;
    }

  private:
    std::string m_repository;
    char* m_initial = g_pszRepository;
};

INSTANTIATE_TEST_SUITE_P(Units, EDFLoaderPlay,
                         testing::Values(emulator::Unit::kSixteenBit, emulator::Unit::kTwelveBit),
                         NameOfUnit);

constexpr size_t kDataRecords = 12;
constexpr size_t kPerRecord = 100;

// Eight leads of 12 seconds within 10 mV: V3 is given in microvolts, V6 has two samples per frame.
struct MadeEDF {
    std::vector<Samples> leads = MadeLeads(8, kDataRecords* kPerRecord, 1000);
    EDFFile file;

    MadeEDF() {
        leads[7] = Made(7, 2 * kDataRecords * kPerRecord, 1000);
        file.DataRecords = std::to_string(kDataRecords);
        for (const char* label : {"I", "II", "V1", "V2", "V3", "V4", "V5", "V6"}) {
            const std::string perRecord = std::to_string(kPerRecord);
            file.Signals.push_back(
                {std::string("ECG ") + label, "mV", "-10", "10", "-1000", "1000", perRecord});
        }
        file.Signals[4].Dimension = "uV";
        file.Signals[4].PhysicalMinimum = "-10000";
        file.Signals[4].PhysicalMaximum = "10000";
        file.Signals[7].SamplesPerRecord = std::to_string(2 * kPerRecord);
        for (size_t record = 0; record < kDataRecords; ++record) {
            for (const Samples& lead : leads) {
                const size_t perRecord = lead.size() / kDataRecords;
                const auto first = lead.begin() + static_cast<std::ptrdiff_t>(record * perRecord);
                file.Samples.insert(file.Samples.end(), first,
                                    first + static_cast<std::ptrdiff_t>(perRecord));
            }
        }
    }

    // 100 units are 1 mV and the baseline of a symmetric range is 1.
    Voltages At(size_t k) const {
        Voltages voltages{};
        for (size_t lead = 0; lead < 7; ++lead) {
            voltages[lead] = (leads[lead][k] - 1) / 100.0;
        }
        voltages[4] = (leads[4][k] - 1) / 0.1 / 1000.0;
        voltages[7] = ((leads[7][2 * k] - 1) / 100.0 + (leads[7][2 * k + 1] - 1) / 100.0) / 2;
        return voltages;
    }
};

TEST_P(EDFLoaderPlay, FourAndSixChestLeads) {
    const MadeEDF made;
    const std::string path = m_directory.Write("made.edf", made.file.Encode());
    // The length of the record counts the samples of the first signal and is divided by the most
    // samples of any signal in a frame.
    const size_t count = kDataRecords * kPerRecord / 2;
    for (const WaveformType type : {MATERIAL_EDF_FOUR_CHEST, MATERIAL_EDF}) {
        SCOPED_TRACE(type);
        Load(path, type, {}, count);
        const size_t limit = type == MATERIAL_EDF_FOUR_CHEST ? 6 : 8;
        ExpectPlays(3 * count,
                    [&](size_t frame) { return EDFFrame(made.At(frame % count), limit); });
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

// ---- A public file -----------------------------------------------------------------------------

// Its annotation channel has 51 values per second and the eleven signals have 200, so that one
// frame per second remains.
class PublicEDFLoaderPlay : public EDFLoaderPlay {
  protected:
    // The mean of a second of a signal in millivolts; silence after the end of the file.
    double Voltage(size_t signal, size_t second) const {
        if (second >= kKeptSeconds) {
            return 0.0;
        }
        const size_t first = kHeader + second * kDataRecord + 2 * signal * kRate;
        double sum = 0.0;
        for (size_t i = 0; i < kRate; ++i) {
            const unsigned low = static_cast<unsigned char>(m_bytes[first + 2 * i]);
            const unsigned high = static_cast<unsigned char>(m_bytes[first + 2 * i + 1]);
            const auto value = static_cast<int16_t>(high << 8 | low);
            sum += value / 32.7675; // units a microvolt; the baseline is 0
        }
        return sum / kRate / 1000.0;
    }

    // Two minutes out of ten, because each of the converter's flushed values takes a system call.
    static constexpr size_t kKeptSeconds = 120;
    static constexpr size_t kAnnouncedSeconds = 600;
    static constexpr size_t kRate = 200;
    static constexpr size_t kHeader = 256 * 13;
    static constexpr size_t kDataRecord = 2 * (11 * kRate + 51);
    std::string m_bytes;
};

INSTANTIATE_TEST_SUITE_P(Units, PublicEDFLoaderPlay, testing::Values(emulator::Unit::kSixteenBit),
                         NameOfUnit);

TEST_P(PublicEDFLoaderPlay, TestGenerator) {
    const std::string shared = PublicRecord("test_generator_2.edf");
    if (shared.empty()) {
        GTEST_SKIP() << "test_generator_2.edf is not there (RAVO_TEST_DATA names its directory).";
    }
    m_bytes = ReadFile(shared);
    m_bytes.resize(kHeader + kKeptSeconds * kDataRecord);
    const std::string path = m_directory.Write("test_generator_2.edf", m_bytes);

    // Only its "ECG" names a lead, lead II, which EDF material does not play.
    Load(path, MATERIAL_EDF, {}, kAnnouncedSeconds);
    ExpectPlays(150, [this](size_t /*frame*/) { return EDFFrame({}, 8); });

    // Square wave, ramp, pulse, ECG, noise and three sines.
    Load(path, MATERIAL_EDF,
         {ECG_LEAD_II, ECG_LEAD_V1, ECG_LEAD_V2, ECG_LEAD_I, ECG_LEAD_V3, ECG_LEAD_V4, ECG_LEAD_V5,
          ECG_LEAD_V6},
         kAnnouncedSeconds);
    constexpr size_t kSignalOfLead[] = {3, 0, 1, 2, 4, 5, 6, 7};
    ExpectPlays(2 * kAnnouncedSeconds, [&](size_t frame) {
        Voltages voltages{};
        for (size_t lead = 0; lead < 8; ++lead) {
            voltages[lead] = Voltage(kSignalOfLead[lead], frame % kAnnouncedSeconds);
        }
        return EDFFrame(voltages, 8);
    });
}

} // namespace
