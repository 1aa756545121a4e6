#include "CommandLine.h"

#include "tests/support/PublicRecord.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr int kRate = 250;
constexpr auto kPatience = 60s;

// The 16-bit code of a voltage within +-5 mV.
std::uint16_t CodeOf(double millivolts) {
    return static_cast<std::uint16_t>(millivolts / 5.0 * 32000.0 + 32768.0);
}

// Lead I of the source, in microvolts: a value that identifies its frame.
int16_t ValueAt(int frame) {
    return static_cast<int16_t>(frame - 1000);
}

std::vector<int16_t> RandomSamples(std::size_t count, int amplitude, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<int16_t> samples(count);
    for (int16_t& sample : samples) {
        sample = static_cast<int16_t>(
            static_cast<int>(random() % static_cast<unsigned>(2 * amplitude + 1)) - amplitude);
    }
    return samples;
}

// The first of the two 12-bit samples that a format 212 file holds in three bytes.
int FirstOfPair(const std::string& bytes, std::size_t pair) {
    const auto low = static_cast<unsigned char>(bytes[3 * pair]);
    const auto high = static_cast<unsigned char>(bytes[3 * pair + 1]);
    const int value = low + high % 16 * 256;
    return value < 2048 ? value : value - 4096;
}

class PlayTest : public testing::Test {
  protected:
    // Lead I alone, of `seconds` seconds.
    std::string WriteSource(int seconds) const {
        std::vector<int16_t> samples;
        for (int frame = 0; frame < seconds * kRate; ++frame) {
            samples.push_back(ValueAt(frame));
        }
        m_directory.Write("source.dat", Format16(samples));
        return m_directory.Write("source.hea", "source 1 " + std::to_string(kRate) + " " +
                                                   std::to_string(samples.size()) +
                                                   "\nsource.dat 16 1000/mV 16 0 0 0 0 I\n");
    }

    void WriteTwoSignals(const std::string& name, const std::vector<int16_t>& samples) const {
        m_directory.Write(name + ".dat", Format16(samples));
        m_directory.Write(name + ".hea", name + " 2 " + std::to_string(kRate) + " " +
                                             std::to_string(samples.size() / 2) + "\n" + name +
                                             ".dat 16 200/mV 12 0 0 0 0 I\n" + name +
                                             ".dat 16 200/mV 12 0 0 0 0 II\n");
    }

    static emulator::Settings Unit(double speed, int port = 0,
                                   emulator::Unit unit = emulator::Unit::kSixteenBit) {
        emulator::Settings settings = emulator::Settings::Of(unit, port);
        settings.behaviour.speed = speed;
        return settings;
    }

    // Expects the frames to be the source's from `first` to its end, and from `first` again.
    static void ExpectFrames(const std::vector<emulator::Codes>& frames, int first, int count) {
        for (std::size_t n = 0; n < frames.size(); ++n) {
            const int frame = first + static_cast<int>(n) % (count - first);
            ASSERT_EQ(frames[n][0], CodeOf(ValueAt(frame) / 1000.0)) << "frame " << n;
        }
    }

    // The same for a single play: then the last frame is held.
    static void ExpectFramesOnce(const std::vector<emulator::Codes>& frames, int first, int count) {
        for (std::size_t n = 0; n < frames.size(); ++n) {
            const int frame = std::min(first + static_cast<int>(n), count - 1);
            ASSERT_EQ(frames[n][0], CodeOf(ValueAt(frame) / 1000.0)) << "frame " << n;
        }
    }

    Scratch m_directory;
};

} // namespace

TEST_F(PlayTest, PlaysARecordToItsEnd) {
    const std::string source = WriteSource(8);
    emulator::Simulator simulator(Unit(4.0));
    const Result result = Ravo({"play", source, "--speed-up", "4"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("played source on ", 0), 0U) << result.out;
    EXPECT_NE(result.out.find(" at /dev/ttyACM0\n"
                              "  8.0 s from second 0, 250 samples per second, finished\n"
                              "  delays reported: "),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.err.find(" of 0:08.0  250/s  delays "), std::string::npos) << result.err;
    EXPECT_EQ(simulator.Seen().Count().starts, 1U);
    const auto frames = simulator.Seen().Frames();
    EXPECT_GE(frames.size(), 8U * kRate);
    ExpectFramesOnce(frames, 0, 8 * kRate);
}

TEST_F(PlayTest, JsonIsStable) {
    const std::string source = WriteSource(2);
    emulator::Simulator simulator(Unit(1.0));
    const Result result = Ravo({"play", source, "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const std::string serial = emulator::LongSerial(simulator.CurrentBehaviour().flash);
    EXPECT_EQ(
        result.out.rfind("{\"record\":\"source\",\"path\":\"" + source +
                             "\",\"source\":\"file\",\"device\":\"/dev/ttyACM0\",\"model\":\"",
                         0),
        0U)
        << result.out;
    for (const std::string& part :
         {",\"serial\":\"" + serial + "\",\"calibrated\":false,\"calibration\":\"not-needed\"," +
              "\"version\":\"1.0.5.4\",\"map\":{\"I\":\"I\"},\"noise\":null,\"gain\":{}," +
              "\"offset\":0,\"missing\":0,\"resampledFrom\":null,\"clipped\":{}," +
              "\"startedAt\":\"20",
          std::string(",\"start\":0,\"seconds\":2,\"elapsed\":"),
          std::string(",\"rate\":250,\"nominalRate\":250,\"measuredRate\":"),
          std::string(",\"framesDue\":500,\"framesPlayed\":500,\"framesSent\":"),
          std::string(",\"delays\":"), std::string(",\"result\":\"finished\"}\n")}) {
        EXPECT_NE(result.out.find(part), std::string::npos) << part << "\n" << result.out;
    }
}

TEST_F(PlayTest, GainIsThatOfTheLeadsThatAreFed) {
    const std::string source = WriteSource(1);
    emulator::Simulator simulator(Unit(4.0));
    const Result result =
        Ravo({"play", source, "--gain", "0.5", "--gain", "V2=3", "--speed-up", "4", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("\"gain\":{\"I\":0.5},"), std::string::npos) << result.out;
}

TEST_F(PlayTest, StartsAtTheSecondAskedFor) {
    const std::string source = WriteSource(8);
    emulator::Simulator simulator(Unit(4.0));
    const Result result = Ravo({"play", source, "--start", "5", "--speed-up", "4"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("3.0 s from second 5"), std::string::npos) << result.out;
    ExpectFramesOnce(simulator.Seen().Frames(), 5 * kRate, 8 * kRate);
}

TEST_F(PlayTest, LoopsUntilTheSecondsAreOver) {
    const std::string source = WriteSource(3);
    emulator::Simulator simulator(Unit(4.0));
    const Result result =
        Ravo({"play", source, "--loop", "--seconds", "10", "--start", "1", "--speed-up", "4"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("10.0 s from second 1"), std::string::npos) << result.out;
    const auto frames = simulator.Seen().Frames();
    EXPECT_GE(frames.size(), 10U * kRate);
    ExpectFrames(frames, kRate, 3 * kRate);
}

TEST_F(PlayTest, SecondsDoNotReachBeyondTheEnd) {
    const std::string source = WriteSource(2);
    emulator::Simulator simulator(Unit(4.0));
    const Result result = Ravo({"play", source, "--seconds", "600", "--speed-up", "4"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("  2.0 s from second 0"), std::string::npos) << result.out;
}

TEST_F(PlayTest, StartBehindTheEndIsRefusedBeforeAnythingIsSent) {
    const std::string source = WriteSource(3);
    emulator::Simulator simulator(Unit(1.0));
    const Result result = Ravo({"play", source, "--start", "3"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ravo: --start 3: is past the end: source lasts 3.000 s.\n"
                          "      Give an earlier second.\n");
    EXPECT_EQ(simulator.Seen().Count().starts, 0U);
}

TEST_F(PlayTest, MaterialWithoutALeadIsRefused) {
    const std::string source = WriteSource(2);
    const Result result = Ravo({"play", source, "--map", "I=none"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("Map one: --map SIGNAL=LEAD"), std::string::npos) << result.err;
}

TEST_F(PlayTest, ClippingIsWarnedOf) {
    std::vector<int16_t> samples(kRate, 100);
    samples[7] = -5250;
    m_directory.Write("high.dat", Format16(samples));
    const std::string source =
        m_directory.Write("high.hea", "high 1 250 250\nhigh.dat 16 1000/mV 16 0 0 0 0 V3\n");
    emulator::Simulator simulator(Unit(1.0));
    const Result result = Ravo({"play", source});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("ravo: warning: high: lead V3 reaches 5.250 mV and is clipped at "
                              "5 mV\n"),
              std::string::npos)
        << result.err;
}

TEST_F(PlayTest, WaveformPlaysForTheSecondsAskedFor) {
    emulator::Simulator simulator(Unit(1.0));
    const Result result =
        Ravo({"play", "square", "--frequency", "1", "--amplitude", "4", "--seconds", "3"});
    EXPECT_EQ(result.status, 0) << result.err;
    const auto frames = simulator.Seen().Frames();
    ASSERT_GE(frames.size(), 3000U);
    EXPECT_EQ(frames[250][0], CodeOf(2.0));
    EXPECT_EQ(frames[750][0], CodeOf(-2.0));
    EXPECT_EQ(frames[2250][0], CodeOf(2.0));
}

TEST_F(PlayTest, EveryOutputCanHaveAnAmplitudeOfItsOwn) {
    emulator::Simulator simulator(Unit(1.0));
    const Result result = Ravo(
        {"play", "square", "--frequency", "1", "--amplitude", "4,0,0,0,0,0,0,0", "--seconds", "1"});
    EXPECT_EQ(result.status, 0) << result.err;
    const auto frames = simulator.Seen().Frames();
    ASSERT_GE(frames.size(), 300U);
    EXPECT_EQ(frames[250][0], CodeOf(2.0));
    EXPECT_EQ(frames[250][1], CodeOf(0.0));
}

TEST_F(PlayTest, EveryKindOfFilePlays) {
    const std::vector<std::string> files = {
        m_directory.Write("a.txt", "400,800\n400,800\n"),
        m_directory.Write("c.txt",
                          "1000 2000 0 0 0 0 0 0 0 0 0 0\n1000 2000 0 0 0 0 0 0 0 0 0 0\n"),
        m_directory.Write("n.txt", "500\n2\nstart\nLead I\n1000\n1000\nLead II\n2000\n2000\n"),
    };
    for (const std::string& file : files) {
        emulator::Simulator simulator(Unit(1.0));
        const Result result = Ravo({"play", file, "--loop", "--seconds", "0.5"});
        EXPECT_EQ(result.status, 0) << file << result.err;
        const auto frames = simulator.Seen().Frames();
        ASSERT_GE(frames.size(), 150U) << file;
        EXPECT_EQ(frames[100][0], CodeOf(1.0)) << file;
        EXPECT_EQ(frames[100][1], CodeOf(2.0)) << file;
    }
}

// Five minutes clean, then noise: the outputs carry what `ravo nst` writes with the same records.
TEST_F(PlayTest, NoiseRecordIsMixedIn) {
    constexpr std::size_t kCleanFrames = std::size_t{300} * kRate;
    constexpr std::size_t kFrames = std::size_t{304} * kRate;
    const std::vector<int16_t> clean = RandomSamples(2 * kFrames, 300, 1);
    WriteTwoSignals("clean", clean);
    WriteTwoSignals("noise", RandomSamples(2 * kFrames, 200, 2));
    const Result mixing =
        Ravo({"nst", "clean", "noise", "--snr", "6", "-o", "mixed"}, m_directory.Path());
    ASSERT_EQ(mixing.status, 0) << mixing.err;
    const std::string mixed = ReadFile(m_directory / "mixed.dat");
    ASSERT_EQ(mixed.size(), 3 * kFrames);

    emulator::Simulator simulator(Unit(1.0));
    const Result result = Ravo({"play", "clean", "--noise-record", "noise", "--snr", "6", "--start",
                                "299", "--seconds", "3"},
                               m_directory.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    const auto frames = simulator.Seen().Frames();
    ASSERT_GE(frames.size(), 3U * kRate);
    std::size_t noisy = 0;
    for (std::size_t n = 0; n < std::size_t{3} * kRate; ++n) {
        const std::size_t frame = std::size_t{299} * kRate + n;
        const int sample = FirstOfPair(mixed, frame);
        ASSERT_EQ(frames[n][0], CodeOf(sample / 200.0)) << frame;
        noisy += std::abs(sample - clean[2 * frame]) > 1 ? 1U : 0U; // rounding changes it by one
        ASSERT_TRUE(frame >= kCleanFrames || noisy == 0) << frame;
    }
    EXPECT_GT(noisy, std::size_t{kRate});
}

TEST_F(PlayTest, EdfFilePlays) {
    const std::string path = PublicRecord("test_generator_2.edf");
    if (path.empty()) {
        GTEST_SKIP() << "the EDF file is missing; RAVO_TEST_DATA names its folder";
    }
    emulator::Simulator simulator(Unit(1.0));
    const Result result = Ravo({"play", path, "--map", "squarewave=I", "--seconds", "1"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_GE(simulator.Seen().Frames().size(), 200U);
}

// ---- Ports and identities -----------------------------------------------------------------------

TEST_F(PlayTest, NoSimulator) {
    const Result result = Ravo({"play", WriteSource(2), "--timeout", "1"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("ravo: /dev/ttyACM*: there is no such port, so no simulator.\n", 0),
              0U)
        << result.err;
}

TEST_F(PlayTest, OtherDeviceOnThePort) {
    emulator::Settings settings = Unit(1.0);
    settings.behaviour.identity = {'M', 'O', 'D', 'E', 'M'};
    emulator::Simulator simulator(settings);
    const Result result = Ravo({"devices", "--timeout", "1"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("no port answers like a simulator"), std::string::npos) << result.err;
}

TEST_F(PlayTest, PortIsTheOneAskedFor) {
    emulator::Simulator simulator(Unit(1.0, 7));
    const Result found = Ravo({"devices", "--port", "7"});
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(found.out.rfind("/dev/ttyACM7\n", 0), 0U) << found.out;
    const auto openings = simulator.Seen().Count().hostOpenings;
    const Result missed = Ravo({"devices", "--port", "3", "--timeout", "1"});
    EXPECT_EQ(missed.status, 3);
    EXPECT_NE(missed.err.find("/dev/ttyACM3: there is no such port"), std::string::npos)
        << missed.err;
    EXPECT_EQ(simulator.Seen().Count().hostOpenings, openings);
}

TEST_F(PlayTest, DevicesTellsTheCalibration) {
    const emulator::Settings settings = Unit(1.0, 2, emulator::Unit::kTwelveBit);
    const std::string file = emulator::CalibrationFilePath(settings.unit, settings.behaviour);
    emulator::Simulator simulator(settings);
    const Result without = Ravo({"devices"});
    EXPECT_EQ(without.status, 0) << without.err;
    EXPECT_NE(without.out.find("  converter    12 bits\n  calibration  " + file +
                               " (missing: uncalibrated)\n"),
              std::string::npos)
        << without.out;

    ASSERT_TRUE(emulator::ConverterModel::Uncalibrated().WriteCalibrationFile(file));
    const Result with = Ravo({"devices", "--json"});
    EXPECT_EQ(with.status, 0) << with.err;
    EXPECT_EQ(with.out.rfind("{\"devices\":[{\"device\":\"/dev/ttyACM2\",\"model\":\"", 0), 0U)
        << with.out;
    EXPECT_NE(
        with.out.find(",\"dacBits\":12,\"calibrationFile\":\"" + file +
                      "\",\"calibrated\":true,\"calibration\":\"loaded\",\"holder\":null}]}\n"),
        std::string::npos)
        << with.out;
    std::filesystem::remove(file);
}

TEST_F(PlayTest, DevicesTellsTheSerialNumber) {
    const emulator::Settings settings = Unit(1.0);
    emulator::Simulator simulator(settings);
    const Result result = Ravo({"devices"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(
        result.out.find("  serial       " + emulator::LongSerial(settings.behaviour.flash) + "\n"),
        std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("  converter    16 bits\n  calibration  none needed\n"),
              std::string::npos)
        << result.out;
}

// ---- Interruption and loss ----------------------------------------------------------------------

TEST_F(PlayTest, CtrlCStopsOutputCleanly) {
    emulator::Simulator simulator(Unit(1.0));
    Process play("ravo", {"play", WriteSource(30)});
    ASSERT_TRUE(simulator.Seen().WaitForFrames(300, kPatience));
    play.Signal(SIGINT);
    const Result result = play.Wait();
    EXPECT_EQ(result.status, 130) << result.err;
    EXPECT_NE(result.out.find(", interrupted\n"), std::string::npos) << result.out;
    simulator.TakeRest();
    EXPECT_GE(simulator.Seen().Count().stops, 1U);
    EXPECT_GE(simulator.Seen().Count().closes, 1U);
}

// A closed terminal hangs up; a reader that exits breaks the pipe.
TEST_F(PlayTest, OtherSignalsStopOutputCleanly) {
    for (const int number : {SIGTERM, SIGHUP, SIGPIPE}) {
        emulator::Simulator simulator(Unit(1.0));
        Process play("ravo", {"play", "sine"});
        ASSERT_TRUE(simulator.Seen().WaitForFrames(300, kPatience));
        play.Signal(number);
        EXPECT_EQ(play.Wait().status, 128 + number);
        simulator.TakeRest();
        EXPECT_GE(simulator.Seen().Count().stops, 1U) << number;
        EXPECT_GE(simulator.Seen().Count().closes, 1U) << number;
    }
}

TEST_F(PlayTest, NohupIsHeeded) {
    emulator::Simulator simulator(Unit(1.0));
    Process play("/usr/bin/nohup", {RAVO_PROGRAM_DIRECTORY "/ravo", "play", "sine"});
    ASSERT_TRUE(simulator.Seen().WaitForFrames(300, kPatience));
    play.Signal(SIGHUP);
    const std::size_t more = simulator.Seen().Count().frames + 4000; // more than its buffer holds
    EXPECT_TRUE(simulator.Seen().WaitForFrames(more, kPatience));
    play.Signal(SIGTERM);
    EXPECT_EQ(play.Wait().status, 128 + SIGTERM);
}

TEST_F(PlayTest, CtrlCEndsTheSearch) {
    Process play("ravo", {"play", WriteSource(2), "--timeout", "600"});
    std::this_thread::sleep_for(500ms);
    play.Signal(SIGINT);
    EXPECT_EQ(play.Wait().status, 130);
}

TEST_F(PlayTest, FailureIsToldBehindTheResults) {
    emulator::Simulator simulator(Unit(1.0));
    Process play("/bin/sh", {"-c", "exec " RAVO_PROGRAM_DIRECTORY "/ravo play sine 2>&1"});
    ASSERT_TRUE(simulator.Seen().WaitForFrames(300, kPatience));
    simulator.Vanish();
    const std::string all = play.Wait().out;
    const std::size_t result = all.find(", lost\n");
    const std::size_t failure = all.find("ravo: ");
    ASSERT_NE(result, std::string::npos) << all;
    ASSERT_NE(failure, std::string::npos) << all;
    EXPECT_LT(result, failure) << all;
}

TEST_F(PlayTest, LostSimulatorIsAFailure) {
    emulator::Simulator simulator(Unit(1.0));
    Process play("ravo", {"play", WriteSource(60)});
    ASSERT_TRUE(simulator.Seen().WaitForFrames(300, kPatience));
    simulator.Vanish();
    const Result result = play.Wait();
    EXPECT_EQ(result.status, 4) << result.err;
    EXPECT_NE(result.out.find(", lost\n"), std::string::npos) << result.out;
    EXPECT_NE(result.err.find("the simulator was disconnected"), std::string::npos) << result.err;
}

TEST_F(PlayTest, StalledSimulatorIsAFailure) {
    emulator::Simulator simulator(Unit(1.0));
    Process play("ravo", {"play", WriteSource(600)});
    ASSERT_TRUE(simulator.Seen().WaitForFrames(300, kPatience));
    simulator.Change([](emulator::Behaviour& behaviour) { behaviour.asks = false; });
    EXPECT_EQ(play.Wait().status, 4);
}
