// The examples do what they promise: the simulator's outputs carry the record, frame by frame.
#include "tests/api/ExpectedCodes.h"
#include "tests/examples/Program.h"
#include "tests/support/Files.h"
#include "tests/support/RecordFile.h"
#include "tools/emulator/Simulator.h"

#include <array>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using emulator::Codes;
using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;
using std::chrono::seconds;

constexpr int kRate = 500;
constexpr std::size_t kSignals = 8;
const std::string kPrograms = EXAMPLE_PROGRAMS;

// Microvolts; no two leads and no two neighbouring frames are alike.
int ValueAt(int frame, int signal) {
    return (frame * (37 + 2 * signal) + 211 * signal) % 3001 - 1000;
}

std::array<double, kSignals> VoltagesAt(int frame) {
    std::array<double, kSignals> voltages{};
    for (std::size_t signal = 0; signal < kSignals; ++signal) {
        voltages[signal] = ValueAt(frame, static_cast<int>(signal)) / 1000.0;
    }
    return voltages;
}

// A record of the eight leads in a directory that is deleted with it.
class Source {
  public:
    explicit Source(int frames) : m_frames(frames) {
        std::ofstream header(Header());
        header << "source 8 " << kRate << ' ' << frames << '\n';
        for (const char* lead : {"I", "II", "V1", "V2", "V3", "V4", "V5", "V6"}) {
            header << "source.dat 16 1000/mV 16 0 0 0 0 " << lead << '\n';
        }
        std::ofstream data(m_directory / "source.dat", std::ios::binary);
        for (int frame = 0; frame < frames; ++frame) {
            for (int signal = 0; signal < static_cast<int>(kSignals); ++signal) {
                const auto value = static_cast<unsigned>(ValueAt(frame, signal));
                data.put(static_cast<char>(value & 0xFFU)).put(static_cast<char>(value >> 8U));
            }
        }
    }

    std::string Header() const { return m_directory / "source.hea"; }
    std::string Outputs() const { return m_directory / "outputs"; }

    // The codes of frame n of an output that repeats the record.
    Codes CodesAt(std::size_t n) const {
        const auto frame = static_cast<int>(n % static_cast<std::size_t>(m_frames));
        return Converter(Unit::kSixteenBit).Frame(VoltagesAt(frame));
    }

  private:
    int m_frames;
    Scratch m_directory;
};

// The decoded record holds I, II, V1 to V6; the channels are I, II, V6 to V1.
std::int16_t DecodedValue(const Codes& codes, std::size_t signal) {
    const std::size_t channel = signal < 2 ? signal : 9 - signal;
    return static_cast<std::int16_t>(codes[channel] - 32768);
}

void ExpectWholeRecord(const Source& source, std::size_t frames) {
    const RecordFile outputs = ReadRecordFile(source.Outputs() + ".hea");
    EXPECT_EQ(outputs.rate, kRate);
    ASSERT_EQ(outputs.signals.size(), kSignals);
    ASSERT_GE(outputs.frames, frames);
    for (std::size_t n = 0; n < outputs.frames; ++n) {
        const Codes expected = source.CodesAt(n);
        for (std::size_t signal = 0; signal < kSignals; ++signal) {
            ASSERT_EQ(outputs.signals[signal].samples[n], DecodedValue(expected, signal))
                << "frame " << n << " of " << outputs.signals[signal].description;
        }
    }
}

// As a reader of the guide runs it on a machine without a simulator, but so fast that even a busy
// machine finishes the record while the host waits for its end.
void ExpectToPlay(std::vector<std::string> host) {
    constexpr int kFrames = 2 * kRate;
    const Source source(kFrames);
    std::vector<std::string> command = {RAVO_EMULATOR_PROGRAM, "--speed", "8", "-o",
                                        source.Outputs(),      "--"};
    command.insert(command.end(), host.begin(), host.end());
    command.push_back(source.Header());
    Program program(command);
    EXPECT_EQ(program.ReadRest(), "");
    ASSERT_EQ(program.Wait(), 0);
    ExpectWholeRecord(source, kFrames);
}

} // namespace

// ---- The smallest hosts ------------------------------------------------------------------------

TEST(HostTest, PlaysTheRecordInC) {
    ExpectToPlay({kPrograms + "/host_c"});
}

TEST(HostTest, PlaysTheRecordInCpp) {
    ExpectToPlay({kPrograms + "/host_cpp"});
}

TEST(HostTest, PlaysTheRecordInPython) {
    if (access(PYTHON_PROGRAM, X_OK) != 0) {
        GTEST_SKIP() << "There is no python3.";
    }
    setenv("RAVO_LIBRARY", RAVO_SHARED_LIBRARY, 1);
    ExpectToPlay({PYTHON_PROGRAM, "-B", EXAMPLE_SCRIPTS "/host.py"});
}

TEST(HostTest, SaysThatTheRecordIsMissing) {
    EXPECT_EQ(Program({kPrograms + "/host_c", "/no/such/record.hea"}).Wait(), 2);
    EXPECT_EQ(Program({kPrograms + "/host_cpp", "/no/such/record.hea"}).Wait(), 1);
}

// ---- Coming and going --------------------------------------------------------------------------

namespace {

class ListenerTest : public testing::TestWithParam<int> {
  protected:
    // Expects that the frames from `first` on are those of the record, from its beginning.
    static void ExpectRecordFrom(std::size_t first, const Source& source,
                                 const std::vector<Codes>& frames, std::size_t end) {
        ASSERT_LT(first, end);
        for (std::size_t n = first; n < end; ++n) {
            ASSERT_EQ(frames[n], source.CodesAt(n - first)) << "frame " << n;
        }
    }
};

} // namespace

// On its old port and on another one.
TEST_P(ListenerTest, PlaysAgainWhenTheSimulatorReturns) {
    const Source source(kRate);
    Settings settings = Settings::Of(Unit::kSixteenBit);
    settings.behaviour.speed = 4.0;
    Simulator simulator(settings);
    Program listener({kPrograms + "/listener", source.Header()});
    EXPECT_EQ(listener.ReadLine(), "searching");
    EXPECT_EQ(listener.ReadLine(), "connected: TAB2105-170042");
    EXPECT_EQ(listener.ReadLine(), "playing");
    ASSERT_TRUE(simulator.Seen().WaitForFrames(600, seconds(60)));

    simulator.Vanish();
    ASSERT_EQ(listener.ReadLine(), "lost");
    const std::size_t before = simulator.Seen().Frames().size();
    simulator.Return(GetParam());
    EXPECT_EQ(listener.ReadLine(), "connected: TAB2105-170042");
    EXPECT_EQ(listener.ReadLine(), "playing");
    ASSERT_TRUE(simulator.Seen().WaitForFrames(before + 600, seconds(60)));

    listener.Signal(SIGINT);
    EXPECT_EQ(listener.ReadLine(), "done");
    EXPECT_EQ(listener.ReadRest(), "");
    EXPECT_EQ(listener.Wait(), 0);
    const std::vector<Codes> frames = simulator.Seen().Frames();
    ASSERT_EQ(simulator.Seen().Starts().size(), 2U);
    EXPECT_EQ(simulator.Seen().Starts()[1].firstFrame, before);
    ExpectRecordFrom(0, source, frames, before);
    ExpectRecordFrom(before, source, frames, frames.size());
}

INSTANTIATE_TEST_SUITE_P(Ports, ListenerTest, testing::Values(0, 3));

// No simulator is connected: it waits, and can be ended.
TEST(ListenerTest, EndsWhileItSearches) {
    const Source source(kRate);
    Program listener({kPrograms + "/listener", source.Header()});
    EXPECT_EQ(listener.ReadLine(), "searching");
    listener.Signal(SIGTERM);
    EXPECT_EQ(listener.ReadRest(), "done\n");
    EXPECT_EQ(listener.Wait(), 0);
}

// ---- The preview -------------------------------------------------------------------------------

namespace {

// I, II, III, aVR, aVL, aVF, V1 to V6.
std::array<double, 12> TwelveLeads(int frame) {
    const auto v = VoltagesAt(frame);
    return {v[0],
            v[1],
            v[1] - v[0],
            -(v[0] + v[1]) / 2,
            v[0] - v[1] / 2,
            v[1] - v[0] / 2,
            v[2],
            v[3],
            v[4],
            v[5],
            v[6],
            v[7]};
}

// The value farthest from zero within 40 ms, on a scale of eighths from -1 to 2 mV.
int HeightOf(int column, std::size_t lead) {
    double farthest = 0.0;
    for (int frame = column * 20; frame < (column + 1) * 20; ++frame) {
        const double value = TwelveLeads(frame)[lead];
        farthest = std::fabs(value) > std::fabs(farthest) ? value : farthest;
    }
    return farthest < -1.0 ? 0 : std::min(7, static_cast<int>((farthest + 1.0) * 8 / 3));
}

std::string ExpectedStrip(std::size_t lead, int firstColumn, int endColumn) {
    std::string strip;
    for (int column = firstColumn; column < endColumn; ++column) {
        // U+2581 to U+2588
        strip += "\xE2\x96";
        strip += static_cast<char>(0x81 + HeightOf(column, lead));
    }
    return strip;
}

} // namespace

// Three seconds are 75 columns, the last 60 of which stay.
TEST(PreviewTest, ShowsTheTwelveLeads) {
    const Source source(3 * kRate);
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    Program preview({kPrograms + "/preview", source.Header()});
    std::size_t lead = 0;
    for (const char* name : {"I   ", "II  ", "III ", "aVR ", "aVL ", "aVF ", "V1  ", "V2  ", "V3  ",
                             "V4  ", "V5  ", "V6  "}) {
        EXPECT_EQ(preview.ReadLine(), name + ExpectedStrip(lead, 15, 75));
        ++lead;
    }
    EXPECT_EQ(preview.ReadRest(), "");
    EXPECT_EQ(preview.Wait(), 0);
}

TEST(PreviewTest, EndsWithTheSimulator) {
    const Source source(60 * kRate);
    Simulator simulator(Settings::Of(Unit::kSixteenBit));
    Program preview({kPrograms + "/preview", source.Header()});
    ASSERT_TRUE(simulator.Seen().WaitForFrames(150, seconds(60)));
    simulator.Vanish();
    EXPECT_EQ(preview.ReadLine().substr(0, 4), "I   ");
    preview.ReadRest();
    EXPECT_EQ(preview.Wait(), 0);
}
