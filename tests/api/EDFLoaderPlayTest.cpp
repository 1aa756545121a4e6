#include "api/ravo.h"
#include "LoaderPlayFixture.h"
#include "tests/support/Files.h"
#include "tests/support/PublicRecord.h"
#include "tests/WFDB/EDFFile.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace {

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
        GTEST_SKIP() << "test_generator_2.edf is missing (RAVO_TEST_DATA names its directory).";
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
