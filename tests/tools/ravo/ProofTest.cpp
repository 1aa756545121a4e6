// A play is finished only when the simulator's requests prove it: the report is compared with the
// count of the emulated simulator.

#include "CommandLine.h"

#include "tools/emulator/Decoder.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>

using namespace std::chrono_literals;

namespace {

constexpr int kRate = 250;
constexpr int kFramesPerRequest = 150; // 50 packets of 3 frames of 16 bits
constexpr auto kPatience = 60s;

// The number after `name` in one line of JSON; not a number when there is none.
double NumberOf(const std::string& json, const std::string& name) {
    const std::size_t at = json.find("\"" + name + "\":");
    return at == std::string::npos ? std::nan("") : std::atof(&json[at + name.size() + 3]);
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class ProofTest : public testing::Test {
  protected:
    std::string WriteSource(int seconds) const {
        m_directory.Write("source.dat", Format16(std::vector<int16_t>(
                                            static_cast<std::size_t>(seconds * kRate))));
        return m_directory.Write("source.hea", "source 1 250 " + std::to_string(seconds * kRate) +
                                                   "\nsource.dat 16 1000/mV 16 0 0 0 0 I\n");
    }

    // Every figure of a play that did not finish follows from the number of requests.
    static void ExpectUnfinished(const Result& result, const emulator::Simulator& simulator,
                                 int seconds) {
        EXPECT_EQ(result.status, 4) << result.err;
        const double requests = NumberOf(result.out, "requests");
        const double played = requests < 2 ? 0 : (requests - 1) * kFramesPerRequest;
        EXPECT_LE(requests, static_cast<double>(simulator.Seen().Count().requests));
        EXPECT_EQ(NumberOf(result.out, "framesDue"), seconds * kRate) << result.out;
        EXPECT_EQ(NumberOf(result.out, "framesPlayed"), played) << result.out;
        EXPECT_LT(played, seconds * kRate);
        EXPECT_NEAR(NumberOf(result.out, "seconds"), played / kRate, 1e-8) << result.out;
        EXPECT_FALSE(Contains(result.out, "finished")) << result.out;
        EXPECT_TRUE(Contains(result.out, "\"error\":{\"status\":4,\"where\":\"/dev/ttyACM"))
            << result.out;
    }

    Scratch m_directory;
};

emulator::Settings Sixteen(int port) {
    return emulator::Settings::Of(emulator::Unit::kSixteenBit, port);
}

} // namespace

// A 16-bit unit whose first reply about itself is truncated, as if it were late.
TEST_F(ProofTest, AUnitThatHasNotSaidWhichItIsIsAskedAgain) {
    const std::string source = WriteSource(1);
    emulator::Settings settings = Sixteen(0);
    settings.behaviour.replies.truncateTo = 5; // the answer to the probe stays whole
    settings.behaviour.replies.replies = 2;
    settings.behaviour.legacyReply.clear();
    emulator::Simulator simulator(settings);
    const Result result = Ravo({"play", source, "--json", "--timeout", "60"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(Contains(result.out, "\"calibration\":\"not-needed\"")) << result.out;
    EXPECT_EQ(simulator.Seen().Count().sequenceGaps, 0U);
    EXPECT_GE(NumberOf(result.out, "framesSent"), kRate);
    EXPECT_EQ(std::fmod(NumberOf(result.out, "framesSent"), kFramesPerRequest), 0);
}

TEST_F(ProofTest, AUnitThatNeverSaysWhichItIsPlaysWithAWarning) {
    const std::string source = WriteSource(1);
    emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kLegacy, 0);
    settings.behaviour.legacyReply.clear();
    const emulator::Simulator simulator(settings);
    const Result result = Ravo({"play", source, "--json", "--timeout", "60"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(Contains(result.err, "did not identify itself")) << result.err;
}

TEST_F(ProofTest, AFinishedPlayWasAskedForToItsEnd) {
    const std::string source = WriteSource(2);
    emulator::Simulator simulator(Sixteen(0));
    const Result result = Ravo({"play", source, "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(NumberOf(result.out, "framesDue"), 500);
    EXPECT_EQ(NumberOf(result.out, "framesPlayed"), 500);
    EXPECT_EQ(NumberOf(result.out, "seconds"), 2);
    // Four buffers hold the 500 frames: the fifth request proves the fourth.
    const double requests = NumberOf(result.out, "requests");
    EXPECT_GE(requests, 5);
    EXPECT_EQ(requests, static_cast<double>(simulator.Seen().Count().requests));
    EXPECT_EQ(NumberOf(result.out, "framesSent"),
              static_cast<double>(simulator.Seen().Count().frames));
    EXPECT_EQ(NumberOf(result.out, "framesBeyondEnd"), (requests - 1) * kFramesPerRequest - 500);
}

// From 0.52 s to 2 s at 250 per second: frames 130 to 499, after which the outputs hold the last.
TEST_F(ProofTest, AStartWithAFractionIsExactAndTheEndIsHeld) {
    std::vector<int16_t> samples(500);
    for (std::size_t n = 0; n < samples.size(); ++n) {
        samples[n] = static_cast<int16_t>(n * 4);
    }
    m_directory.Write("ramp.dat", Format16(samples));
    const std::string source =
        m_directory.Write("ramp.hea", "ramp 1 250 500\nramp.dat 16 1000/mV 16 0 0 0 0 I\n");
    emulator::Simulator simulator(Sixteen(0));
    const Result result = Ravo({"play", source, "--start", "0:00.52", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(NumberOf(result.out, "framesDue"), 370);
    EXPECT_NEAR(NumberOf(result.out, "seconds"), 1.48, 1e-9);
    const auto frames = simulator.Seen().Frames();
    ASSERT_GE(frames.size(), 370U);
    for (std::size_t n = 0; n < frames.size(); ++n) {
        const std::size_t sample = std::min(n + 130, samples.size() - 1);
        const double millivolts = static_cast<double>(4 * sample) / 1000.0;
        ASSERT_NEAR(frames[n][0], millivolts / 5.0 * 32000.0 + 32768.0, 1.0) << n;
    }
}

// Three simulators at once, since each silence lasts more than ten seconds.
TEST_F(ProofTest, SilenceIsNeverCalledFinished) {
    const std::string source = WriteSource(6);
    emulator::Settings refusing = Sixteen(0);
    refusing.behaviour.refusesStart = true;
    emulator::Simulator refuses(refusing);
    emulator::Simulator silent(Sixteen(1));
    emulator::Simulator full(Sixteen(2));
    const auto play = [&source](const char* port) {
        return std::make_unique<Process>(
            "ravo", std::vector<std::string>{"play", source, "--json", "--port", port});
    };
    const auto first = play("0");
    const auto second = play("1");
    const auto third = play("2");
    const auto hasAsked = [](const emulator::Counters& count) { return count.requests >= 2; };
    ASSERT_TRUE(silent.Seen().WaitFor(hasAsked, kPatience));
    silent.Change([](emulator::Behaviour& behaviour) { behaviour.asks = false; });
    ASSERT_TRUE(full.Seen().WaitFor(hasAsked, kPatience));
    full.Change([](emulator::Behaviour& behaviour) { behaviour.line = emulator::Line::kFull; });

    const Result refused = first->Wait();
    ExpectUnfinished(refused, refuses, 6);
    EXPECT_EQ(NumberOf(refused.out, "requests"), 0);
    EXPECT_TRUE(Contains(refused.err, "does not start: it asked for no data")) << refused.err;
    const Result silence = second->Wait();
    ExpectUnfinished(silence, silent, 6);
    EXPECT_TRUE(Contains(silence.out, "\"result\":\"short\"")) << silence.out;
    EXPECT_TRUE(Contains(silence.err, "of 6.000 s: the simulator stopped asking for data"))
        << silence.err;
    ExpectUnfinished(third->Wait(), full, 6);
}

TEST_F(ProofTest, AReplugTooShortToBeSeenIsALoss) {
    emulator::Simulator simulator(Sixteen(0));
    Process play("ravo", {"play", WriteSource(8), "--json"});
    ASSERT_TRUE(simulator.Seen().WaitFor(
        [](const emulator::Counters& count) { return count.requests >= 2; }, kPatience));
    simulator.LoseCarrier();
    const Result result = play.Wait();
    ExpectUnfinished(result, simulator, 8);
}

TEST_F(ProofTest, ADamagedCalibrationIsAnError) {
    const emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kTwelveBit, 0);
    const std::string file = emulator::CalibrationFilePath(settings.unit, settings.behaviour);
    ASSERT_TRUE(emulator::ConverterModel::Uncalibrated().WriteCalibrationFile(file));
    const std::string whole = ReadFile(file);
    std::size_t end = 0;
    for (int line = 0; line < 100; ++line) {
        end = whole.find('\n', end) + 1;
    }
    emulator::Simulator simulator(settings);
    for (const std::size_t length : {end, std::size_t{0}}) {
        std::filesystem::resize_file(file, length);
        const Result devices = Ravo({"devices", "--json"});
        EXPECT_EQ(devices.status, 0) << devices.err;
        EXPECT_TRUE(Contains(devices.out,
                             "\"calibrated\":false,\"calibration\":\"damaged\",\"holder\":null"))
            << devices.out;
        const Result play = Ravo({"play", "sine", "--seconds", ".3", "--json"});
        EXPECT_EQ(play.status, 3);
        EXPECT_EQ(play.out.rfind("{\"error\":{\"status\":3,\"where\":\"/dev/ttyACM0\",\"problem\":"
                                 "\"would play wrong voltages: its calibration file " +
                                     file + " ends after line " + (length == 0 ? "0" : "100") + ";",
                                 0),
                  0U)
            << play.out;
    }
    EXPECT_EQ(simulator.Seen().Count().starts, 0U);
    std::filesystem::remove(file);
}

TEST_F(ProofTest, AMissingCalibrationIsAWarningUnlessItIsRequired) {
    emulator::Simulator simulator(emulator::Settings::Of(emulator::Unit::kTwelveBit, 0));
    const Result required = Ravo({"play", "sine", "--seconds", ".3", "--require-calibrated"});
    EXPECT_EQ(required.status, 3);
    EXPECT_TRUE(
        Contains(required.err, "ravo: /dev/ttyACM0: is not calibrated: /usr/local/tarnwick"))
        << required.err;
    EXPECT_EQ(simulator.Seen().Count().starts, 0U);
    const Result played = Ravo({"play", "sine", "--seconds", ".3", "--json"});
    EXPECT_EQ(played.status, 0) << played.err;
    EXPECT_TRUE(Contains(played.err, "ravo: warning: /dev/ttyACM0 is not calibrated: "))
        << played.err;
    EXPECT_TRUE(Contains(played.out, "\"calibrated\":false,\"calibration\":\"missing\""))
        << played.out;
}

// ---- More than one simulator --------------------------------------------------------------------

TEST_F(ProofTest, ASimulatorIsChosenByItsSerialNumber) {
    emulator::Settings other = Sixteen(1);
    other.behaviour.flash[12] = 43; // the last digits of the number
    emulator::Simulator first(Sixteen(0));
    emulator::Simulator second(other);
    const std::string serial = emulator::LongSerial(other.behaviour.flash);
    ASSERT_NE(serial, emulator::LongSerial(first.CurrentBehaviour().flash));

    const Result both = Ravo({"devices"});
    EXPECT_TRUE(Contains(both.out, "/dev/ttyACM0\n")) << both.out;
    EXPECT_TRUE(Contains(both.out, "/dev/ttyACM1\n")) << both.out;
    const Result played = Ravo({"play", "sine", "--seconds", ".3", "--json", "--serial", serial});
    EXPECT_EQ(played.status, 0) << played.err;
    EXPECT_TRUE(Contains(played.out, "\"device\":\"/dev/ttyACM1\"")) << played.out;
    EXPECT_EQ(first.Seen().Count().starts, 0U);
    const Result none = Ravo({"play", "sine", "--serial", "TAB0", "--timeout", "1"});
    EXPECT_EQ(none.status, 3);
    EXPECT_TRUE(Contains(none.err, "no simulator with the serial number TAB0 answers")) << none.err;
}

TEST_F(ProofTest, AHeldSimulatorIsNamedWithItsHolderAndWaitedFor) {
    emulator::Simulator simulator(Sixteen(0));
    Process holder("ravo", {"play", "sine"});
    ASSERT_TRUE(simulator.Seen().WaitForFrames(300, kPatience));
    const Result devices = Ravo({"devices", "--json"});
    EXPECT_EQ(devices.out.rfind(
                  "{\"devices\":[{\"device\":\"/dev/ttyACM0\",\"holder\":\"ravo (process ", 0),
              0U)
        << devices.out;
    const Result refused = Ravo({"play", "sine", "--timeout", "1"});
    EXPECT_EQ(refused.status, 3);
    EXPECT_EQ(refused.err.rfind("ravo: /dev/ttyACM0: is in use by ravo (process ", 0), 0U)
        << refused.err;

    Process patient("ravo", {"play", "sine", "--seconds", ".3", "--timeout", "20", "--wait"});
    holder.Signal(SIGTERM);
    EXPECT_EQ(holder.Wait().status, 128 + SIGTERM);
    const Result result = patient.Wait();
    EXPECT_EQ(result.status, 0) << result.err;
}
