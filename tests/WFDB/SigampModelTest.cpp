#include "WFDB/sigamp.h"

#include "tests/support/Encoding.h"
#include "tests/support/PublicRecord.h"
#include "tests/WFDB/RandomNoise.h"
#include "tests/WFDB/RecordModel.h"
#include "tests/WFDB/SigampFixture.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

std::vector<model::Beat> BeatsEvery(uint32_t interval, int count) {
    std::vector<model::Beat> beats;
    for (int i = 1; i <= count; ++i) {
        beats.push_back({interval * static_cast<uint32_t>(i), i % 7 == 0 ? 5 : 1});
    }
    return beats;
}

} // namespace

TEST_F(Amplitude, AgreesWithTheModelOnMadeRecords) {
    const struct {
        const char* header;
        std::vector<std::string> lines;
        bool packed;
        bool annotated;
    } cases[] = {
        {"r 1 250 20000", {"r.dat 212 200 12 0"}, true, false},
        {"r 1 250 20000", {"r.dat 212 200 12 0"}, true, true},
        {"r 3 250 6000", {"r.dat 212 1 12 0", "r.dat 212 1 12 0", "r.dat 212 1 12 0"}, true, false},
        {"r 3 128 6000", {"r.dat 212 1 12 0", "r.dat 212 1 12 0", "r.dat 212 1 12 0"}, true, true},
        {"r 2 100 5000", {"r.dat 212 1 12 0", "r.dat 212x3 1 12 0"}, true, false},
        {"r 2 100 5000", {"r.dat 212 1 12 0", "r.dat 212x3 1 12 0"}, true, true},
        {"r 2 500 9000", {"r.dat 16 1 12 0", "r.dat 16 1 12 0"}, false, false},
        {"r 2 500 5000", {"r.dat 16x2 1 12 0", "r.dat 16 1 12 0"}, false, true},
    };
    const std::vector<int> samples = Noise(20001, 900, 5);
    for (const auto& one : cases) {
        SCOPED_TRACE(one.header);
        MakeRecord(one.header, one.lines,
                   one.packed ? EncodeFormat212(samples) : EncodeFormat16(samples));
        if (one.annotated) {
            Annotate(BeatsEvery(53, 300));
        } else {
            std::filesystem::remove(m_directory / "r.atr");
        }
        for (const int runs : {300, 7}) {
            for (const int window : {360, 5}) {
                g_nRunMax = runs;
                g_nMovingWindowSize = window;
                model::Record record(m_directory.Path(), "r", true);
                EXPECT_EQ(Measure(), record.Amplitude(runs, window)) << runs << " " << window;
            }
        }
    }
}

TEST_F(Amplitude, AgreesWithTheModelOnPublicRecords) {
    if (PublicRecord("100.hea").empty() || PublicRecord("v102s.hea").empty()) {
        GTEST_SKIP() << "The public records 100 and v102s are missing.";
    }
    const std::filesystem::path beats = PublicRecord("100.hea");
    const std::filesystem::path windows = PublicRecord("v102s.hea");
    const Amplitudes measured = MeasurePath(beats);
    EXPECT_EQ(measured, model::Record(beats.parent_path(), "100", true).Amplitude());
    EXPECT_GT(measured[0], 200);
    EXPECT_EQ(MeasurePath(windows),
              model::Record(windows.parent_path(), "v102s", true).Amplitude());

    // The same record without its annotations.
    for (const char* name : {"100.hea", "100.dat"}) {
        std::filesystem::create_symlink(beats.parent_path() / name, m_directory / name);
    }
    EXPECT_EQ(MeasurePath(m_directory / "100.hea"),
              model::Record(m_directory.Path(), "100", false).Amplitude());
}
