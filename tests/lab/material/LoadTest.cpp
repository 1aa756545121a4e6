#include "EdfFile.h"
#include "lab/material/LoadRecord.h"
#include "lab/material/Noise.h"
#include "lab/material/Outputs.h"
#include "LoadFixture.h"
#include "Scratch.h"
#include "tests/support/PublicRecord.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

TEST_F(LoadTest, PlainRecordIsTheLibrarys) {
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(record.signalFormat, 16);
    EXPECT_EQ(record.origin, "file");
    EXPECT_EQ(Text(Loaded(0)), "0.1 0.3 0.5 ");
    EXPECT_EQ(record.files.size(), 2U);
}

TEST_F(LoadTest, GainThenOffset) {
    m_request.gain = {"2", "V2=-0.5"};
    m_request.offset = 0.25;
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(Text(Loaded(0)), "0.45 0.85 1.25 ");
    EXPECT_EQ(Text(Loaded(7)), "0.35 0.45 0.55 ");
    EXPECT_EQ(record.gain[ECG_LEAD_V2], -0.5);
    EXPECT_EQ(record.offset, 0.25);
    EXPECT_EQ(record.rate, 100);
}

// Means of 0.3 and -0.4 mV. From 5 mV on the library would take the offset away again.
TEST_F(LoadTest, OffsetThatWouldBeCentredIsRefused) {
    m_request.offset = 4.69;
    LoadRecord(m_request);
    EXPECT_EQ(Text(Loaded(0)), "4.79 4.99 5.19 ");
    m_request.offset = 4.7;
    EXPECT_EQ(Failed(), "1 --offset 4.7: brings the mean of signal \"I\" to 5.000 mV; the library "
                        "centres a signal that is 5 mV or more off zero.\n"
                        "      Give an --offset above -4.599 and below 4.699.");
    m_request.offset = -4.7;
    EXPECT_EQ(Failed().rfind("1 --offset -4.7: brings the mean of signal \"V2\" to -5.100 mV;", 0),
              0U);
    m_request.offset = 0.0;
    m_request.gain = {"20"};
    EXPECT_NE(Failed().find("1 --gain: brings the mean of signal \"I\" to 6.000 mV;"),
              std::string::npos);
    EXPECT_NE(Failed().find("\n      Give a smaller --gain."), std::string::npos);
}

// The request contained nothing that the library would undo.
TEST_F(LoadTest, MaterialThatIsFarOffByItselfIsCentredAndToldOf) {
    m_scratch.Write("r.dat", Words({6100, 0, 6300, 0, 6500, 0}, 16));
    m_request.builtinNoise = "50HZ";
    const Record record = LoadRecord(m_request);
    ASSERT_EQ(record.warnings.size(), 1U);
    EXPECT_NE(record.warnings[0].find("signal \"I\" lies 6.3"), std::string::npos);
    m_request.gain = {"V2=2"};
    EXPECT_EQ(Failed(), "");
}

TEST_F(LoadTest, RatesThatWouldTakeMemoryWithoutBoundAreRefused) {
    m_scratch.Write("r.hea", "r 2 0.001 3\nr.dat 16 1000/mV 16 0 0 0 0 I\n"
                             "r.dat 16 1000/mV 16 0 0 0 0 V2\n");
    EXPECT_EQ(Failed().rfind("2 " + m_request.name +
                                 ": signal 0 \"I\" has 0.001 samples per second; "
                                 "below 0.1 it is not played.",
                             0),
              0U);
    // Two data records of 285.5 samples per second, almost a year apart.
    const Channel notes = {"EDF Annotations", "", "-1", "1", "-32768", "32767", "8"};
    std::string body = std::string("+0\x14\x14", 4) + std::string(12, '\0');
    body += std::string(2 * 571, '\0') + std::string("+30000000\x14\x14", 11) +
            std::string(5 + 2 * 571, '\0');
    m_request.name =
        m_scratch.Write("e.edf", EdfHeader({notes, Lead("I", "571")}, "2", "2", "EDF+D") + body);
    EXPECT_EQ(Failed().rfind("2 " + m_request.name +
                                 ": would be 17130001142 samples long at the 571 "
                                 "per second at which it is played.",
                             0),
              0U);
}

TEST_F(LoadTest, WrongGainsAreUsageErrors) {
    for (const char* gain : {"x", "V7=1", "none=2", "I=", "1e9"}) {
        m_request.gain = {gain};
        EXPECT_EQ(Failed().substr(0, 2), "1 ") << gain;
    }
}

TEST_F(LoadTest, NoiseRecordIsAddedFromItsFirstSampleAndRepeats) {
    m_scratch.Write("n.dat", Words({1000, 2000}, 16));
    m_request.builtinNoise =
        m_scratch.Write("n.hea", "n 1 100 2\nn.dat 16 1000/mV 16 0 0 0 0 noise\n");
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(Text(Loaded(0)), "1.1 2.3 1.5 ");
    EXPECT_EQ(Text(Loaded(7)), "0.8 1.6 0.4 ");
    EXPECT_EQ(record.noise, m_request.builtinNoise);
}

TEST_F(LoadTest, BuiltinNoiseIsBroughtToTheRate) {
    const auto noise = Noise("BL").At(MakeRate(1000, 1), 0);
    m_request.builtinNoise = "BL";
    LoadRecord(m_request);
    const auto samples = Loaded(0);
    ASSERT_EQ(samples.size(), 3U);
    EXPECT_NEAR(samples[1], 0.3 + noise[10], 1e-3);
    EXPECT_NEAR(samples[2], 0.5 + noise[20], 1e-3);
    m_request.builtinNoise = "70HZ";
    EXPECT_NE(Failed().find("is not a noise"), std::string::npos);
}

// 25 microvolts of mains noise on built-in material are added by the library; the display shows
// what its outputs carry.
TEST_F(LoadTest, BuiltinNoiseOnBuiltinMaterialIsShown) {
    m_request.name = "builtin:CAL20000";
    LoadRecord(m_request);
    const auto without = Loaded(0, 0, 1);
    m_request.builtinNoise = "50HZ";
    const Record record = LoadRecord(m_request);
    const auto noise = Noise("50HZ").At(MakeRate(1000, 1), 0);
    EXPECT_EQ(record.type, MATERIAL_DIRECT);
    EXPECT_DOUBLE_EQ(Loaded(0, 0, 1)[5], without[5] + noise[5]);
    const Outputs outputs = ExpectedOutputs(record, 0, 10);
    EXPECT_NEAR(outputs.millivolts[2][5],
                (without[5] + 2 * without[5] / 3) * 0.592731022038923 + noise[5], 1e-9);
    m_request.builtinNoise = "none";
    LoadRecord(m_request);
    EXPECT_EQ(Loaded(0, 0, 1), without);
}

TEST_F(LoadTest, TreatedWaveformStaysEndless) {
    m_request.name = "sine";
    m_request.frequency = 0.01;
    m_request.gain = {"0.5"};
    const Record record = LoadRecord(m_request);
    EXPECT_TRUE(record.isEndless);
    EXPECT_EQ(record.origin, "waveform");
    EXPECT_EQ(record.samples, 100'000);
    EXPECT_NEAR(Loaded(0)[25'000], 0.25, 1e-4);
}

// A signal named like a lead may be a pressure.
TEST_F(LoadTest, UnitThatIsNoVoltageIsRefusedOrGiven) {
    const auto write = [&](const std::string& name) {
        m_scratch.Write("r.hea", "r 2 100 3\nr.dat 16 1000/mmHg 16 0 0 0 0 " + name +
                                     "\nr.dat 16 1000/mV 16 0 0 0 0 V2\n");
    };
    write("I");
    EXPECT_NE(Failed().find("signal 0 \"I\" is in \"mmHg\""), std::string::npos);
    m_request.gain = {"2"};
    EXPECT_EQ(Failed().substr(0, 2), "2 ");
    m_request.gain.clear();
    m_request.map = {"0=none"};
    EXPECT_EQ(Failed(), "");
    m_request.map.clear();
    m_request.unit = "mV";
    LoadRecord(m_request);
    EXPECT_EQ(Text(Loaded(0)), "0.1 0.3 0.5 ");
    m_request.unit = "uV";
    LoadRecord(m_request);
    EXPECT_EQ(Text(Loaded(0)), "0.0001 0.0003 0.0005 ");
    EXPECT_EQ(Text(Loaded(7)), "-0.2 -0.4 -0.6 ");
    m_request.unit.reset();
    write("ABP");
    EXPECT_EQ(Failed(), "");
}

TEST_F(LoadTest, SecondClaimToALeadFeedsNothing) {
    for (const char* gain : {"", "2"}) {
        m_request.gain = {gain};
        m_request.gain.resize(*gain == '\0' ? 0 : 1);
        m_scratch.Write("r.hea", "r 2 100 3\nr.dat 16 1000/mV 16 0 0 0 0 I\n"
                                 "r.dat 16 1000/mV 16 0 0 0 0 I\n");
        const Record record = LoadRecord(m_request);
        EXPECT_EQ(record.signals[0].lead, ECG_LEAD_I);
        EXPECT_EQ(record.signals[1].lead, ECG_LEAD_NONE);
        ASSERT_EQ(record.warnings.size(), 1U);
        EXPECT_NE(record.warnings[0].find("signal 1 \"I\" feeds no output, signal 0"),
                  std::string::npos);
    }
}

TEST_F(LoadTest, TreatedNativeTextSuppliesTheLeadsOfItsFile) {
    m_request.name = m_scratch.Write("n.txt", "500\n2\nstart\nLead I\n1\n2\nV1\n4\n5\n");
    m_request.offset = 1.0;
    const Record record = LoadRecord(m_request);
    const std::vector<std::pair<std::string, std::string>> fed = {{"I", record.Map()[0].second},
                                                                  {"V1", record.Map()[1].second}};
    EXPECT_EQ(record.Map(), fed);
    EXPECT_TRUE(record.supplied[0]);
    EXPECT_FALSE(record.supplied[1]);
    EXPECT_EQ(Text(Loaded(1)), "0 0 ");
}

// A step of 1 mV across a gap of 100 samples, at 50 per second: the existing samples play at their
// own voltage on both sides, whatever plays in the gap.
TEST_F(LoadTest, GapsDoNotRingWhenResampled) {
    m_scratch.Write("r.hea", "r 1 50 400\nr.dat 16 1000/mV 16 0 0 0 0 I\n");
    std::vector<int64_t> samples(150, 1000);
    samples.insert(samples.end(), 100, -32768);
    samples.insert(samples.end(), 150, 2000);
    m_scratch.Write("r.dat", Words(samples, 16));
    for (const bool holds : {true, false}) {
        m_request.missing = holds ? "hold" : "zero";
        const Record record = LoadRecord(m_request);
        EXPECT_EQ(record.rate, 100);
        EXPECT_EQ(record.signals[0].missing, 100);
        ASSERT_EQ(record.signals[0].gaps.size(), 1U);
        EXPECT_EQ(record.signals[0].gaps[0].begin, 299);
        EXPECT_EQ(record.signals[0].gaps[0].end, 499);
        const auto lead = Loaded(0);
        ASSERT_EQ(lead.size(), 800U);
        for (std::size_t i = 0; i < lead.size(); ++i) {
            const double inGap = holds ? 1.0 : 0.0;
            const double wanted = i < 299 ? 1.0 : i < 499 ? inGap : 2.0;
            // The ramp of the bridge is 10 microvolts a sample.
            EXPECT_NEAR(lead[i], wanted, 0.006) << i;
        }
    }
}

TEST_F(LoadTest, MaterialShorterThanOneSampleIsToldAsSuch) {
    m_request.name = m_scratch.Write("c.csv", "I\n1\n");
    m_request.rate = 1e6;
    EXPECT_EQ(Failed().rfind("2 " + m_request.name + ": is shorter than one sample", 0), 0U);
}

TEST_F(LoadTest, PartOfARecordNamesItsHeader) {
    m_request.name = m_scratch / "r.dat";
    EXPECT_NE(Failed().find("given by its header: " + (m_scratch / "r.hea")), std::string::npos);
}

TEST_F(LoadTest, FractionOfASecondIsLeftOut) {
    m_request.start = 0.01;
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(Text(Loaded(0)), "0.3 0.5 ");
    EXPECT_EQ(record.skippedSeconds, 0.01);
    m_request.start = 0.5;
    EXPECT_EQ(Failed().substr(0, 2), "1 ");
}

TEST_F(LoadTest, SlowRecordIsResampledToARateThatTheClockKeeps) {
    std::string header = "r 1 50 1000\nr.dat 16 1000/mV 16 0 0 0 0 I\n";
    m_scratch.Write("r.hea", header);
    std::vector<int64_t> tone;
    for (int i = 0; i < 1000; ++i) {
        tone.push_back(std::lround(1000 * std::sin(6.283185307179586 * i * 5 / 50)));
    }
    m_scratch.Write("r.dat", Words(tone, 16));
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(record.rate, 100);
    EXPECT_EQ(record.samples, 2000);
    EXPECT_EQ(record.resampledFrom, 50.0);
    EXPECT_NEAR(Loaded(0)[1005], 1.0, 0.002);
    ASSERT_EQ(record.warnings.size(), 1U);
    EXPECT_NE(record.warnings[0].find("resampled from 50 to 100 samples"), std::string::npos);
}

TEST_F(LoadTest, LeadsOfSeveralRatesComeToTheHighest) {
    m_scratch.Write("r.hea", "r 2 100 2\nr.dat 16x2 1000/mV 16 0 0 0 0 I\n"
                             "r.dat 16 1000/mV 16 0 0 0 0 Resp\n");
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(record.rate, 200);
    EXPECT_EQ(record.resampledFrom, 0.0);
    EXPECT_EQ(Text(Loaded(0)), "0.1 -0.2 -0.4 0.5 ");
}

TEST_F(LoadTest, DescriptionsAreWholeAndMapToLeads) {
    m_scratch.Write("r.hea", "r 2 100 3\nr.dat 16 1000/mV 16 0 0 0 0 A long name of a signal\n"
                             "r.dat 16 1000/mV 16 0 0 0 0 Lead I\n");
    m_request.map = {"A long name of a signal=V5"};
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(record.signals[0].lead, ECG_LEAD_V5);
    EXPECT_EQ(record.signals[1].lead, ECG_LEAD_I);
    const auto map = record.Map();
    ASSERT_EQ(map.size(), 2U);
    EXPECT_EQ(map[0].second, "Lead I");
    EXPECT_EQ(map[1].second, "A long name of a signal");
}

// With and without a treatment: for a record that the library reads by itself and for one that it
// does not.
TEST_F(LoadTest, SignalThatAMappingDisplacesIsToldOf) {
    const auto warnings = [&](std::vector<std::string> map) {
        m_request.map = std::move(map);
        return LoadRecord(m_request).warnings;
    };
    m_scratch.Write("r.hea", "r 2 100 3\nr.dat 16 1000/mV 16 0 0 0 0 I\n"
                             "r.dat 16 1000/mV 16 0 0 0 0 Resp\n");
    const std::vector<std::string> displaced = {
        "r: signal 0 \"I\" is not played: --map gives lead I to signal 1"};
    for (const char* gain : {"", "2"}) {
        m_request.gain = {gain};
        m_request.gain.resize(*gain == '\0' ? 0 : 1);
        EXPECT_EQ(warnings({"Resp=I"}), displaced);
        EXPECT_EQ(warnings({"I=V1", "Resp=V1"}),
                  std::vector<std::string>{
                      "r: signal 0 \"I\" is not played: --map gives lead V1 to signal 1"});
        EXPECT_TRUE(warnings({"Resp=I", "I=II"}).empty());
        EXPECT_TRUE(warnings({"I=none", "Resp=I"}).empty());
        EXPECT_TRUE(warnings({"Resp=V6"}).empty());
    }
}

TEST_F(LoadTest, NumbersOf24BitsComeWithinHalfAMicrovolt) {
    m_scratch.Write("r.hea", "r 1 100 3\nr.dat 24 1000000/mV 24 0 0 0 0 I\n");
    m_scratch.Write("r.dat", Words({1234567, -7654321, 42}, 24));
    LoadRecord(m_request);
    const auto samples = Loaded(0);
    EXPECT_NEAR(samples[0], 1.234567, 0.0005);
    EXPECT_NEAR(samples[1], -7.654321, 0.0005);
    EXPECT_NEAR(samples[2], 0.000042, 0.0005);
}

TEST_F(LoadTest, CsvPlays) {
    m_request.name = m_scratch.Write("c.csv", "seconds,I,II,note\n0,1,2,5\n0.01,3,4,6\n");
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(Text(Loaded(0)), "1 3 ");
    EXPECT_EQ(Text(Loaded(1)), "2 4 ");
    EXPECT_EQ(record.format, "csv");
}

TEST_F(LoadTest, AhaTextMayBeNamedCsv) {
    m_request.name = m_scratch.Write("a.csv", "100,-50,\"N\"\n200,-100,\".\"\n");
    m_request.format = "aha";
    EXPECT_EQ(LoadRecord(m_request).samples, 2);
    EXPECT_EQ(Text(Loaded(0)), "0.25 0.5 ");
}

TEST_F(LoadTest, NativeLeadOfZerosIsSupplied) {
    m_request.name = m_scratch.Write("n.txt", "500\n2\nstart\nLead I\n1\n2\nV1\n0\n0\nV2\n");
    const Record record = LoadRecord(m_request);
    EXPECT_TRUE(record.supplied[0]);
    EXPECT_TRUE(record.supplied[6]);  // V1
    EXPECT_FALSE(record.supplied[7]); // V2, which has a name and no values
    EXPECT_EQ(record.Map().size(), 2U);
    ASSERT_EQ(record.warnings.size(), 1U);
    EXPECT_EQ(record.warnings[0], m_request.name + ": V2 has 0 of 2 values, so it is not supplied");
    EXPECT_EQ(record.MissingSamples(), 2);
    EXPECT_TRUE(record.isCut);
}

TEST_F(LoadTest, ShortNativeTextIsWarnedOf) {
    m_request.name = m_scratch.Write("n.txt", "500\n3\nstart\nLead I\n1\n2\n3\nV1\n4\n5\n");
    const Record record = LoadRecord(m_request);
    ASSERT_EQ(record.warnings.size(), 1U);
    EXPECT_NE(record.warnings[0].find("V1 has 2 of 3 values"), std::string::npos);
    EXPECT_EQ(record.Map().size(), 2U);
    EXPECT_EQ(record.MissingSamples(), 1);
    EXPECT_TRUE(record.isCut);
    m_request.offset = 1.0;
    EXPECT_EQ(LoadRecord(m_request).MissingSamples(), 1);
}

TEST_F(LoadTest, NativeTextWithOtherNamesIsWarnedOf) {
    m_request.name = m_scratch.Write("n.txt", "500\n2\nstart\nI\n1\n2\nII\n3\n4\nv1\n5\n6\n");
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(record.Map().size(), 1U);
    ASSERT_EQ(record.warnings.size(), 1U);
    EXPECT_EQ(record.warnings[0], m_request.name + ": line 4 \"I\" and 1 more: no such lead; the "
                                                   "format's names are Lead I, Lead II, V1 to V6");
    EXPECT_FALSE(record.isCut);
}

TEST_F(LoadTest, OptionsThatMeanNothingAreRefused) {
    m_request.rate = 100.0;
    EXPECT_EQ(Failed().substr(0, 8), "1 --rate");
    m_request.rate.reset();
    m_request.asEdf = true;
    EXPECT_EQ(Failed().substr(0, 10), "1 --as-edf");
}

// Amplitudes from the published description of the file: 1 mV either way over 16 bits.
TEST_F(LoadTest, PublicEdfPlaysAtItsOwnRate) {
    m_request.name = PublicRecord("test_generator_2.edf");
    if (m_request.name.empty()) {
        GTEST_SKIP() << "the EDF file is missing; RAVO_TEST_DATA names its folder";
    }
    const Record record = LoadRecord(m_request);
    EXPECT_EQ(record.rate, 200);
    EXPECT_EQ(record.samples, 120'000);
    EXPECT_EQ(record.signals.size(), 11U);
    EXPECT_EQ(record.signals[3].lead, ECG_LEAD_II);
    const auto lead = Loaded(1);
    ASSERT_EQ(lead.size(), 120'000U);
    std::ifstream file(m_request.name, std::ios::binary);
    file.seekg(256 * 13 + 3 * 400);
    for (std::size_t i = 0; i < 200; ++i) {
        const int low = file.get();
        const auto digital = static_cast<int16_t>(low | file.get() << 8);
        ASSERT_NEAR(lead[i], (digital + 32768) * 2.0 / 65535 - 1.0, 0.0005) << i;
    }
}
