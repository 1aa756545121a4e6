// A night on the bench in short: thousands of connections, losses, starts and stops at random
// moments, and a play of days. scripts/soak runs one of them and says how often; each prints its
// figures, one a line.
#include "api/ravo.h"
#include "Delays.h"
#include "tests/api/ExpectedCodes.h"
#include "tests/api/Listener.h"
#include "tests/api/Process.h"
#include "tests/support/Eventually.h"
#include "tests/support/SearchReport.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using emulator::Codes;
using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kPatience(60);
constexpr seconds kLineEvery(300);

std::uint64_t Times() {
    const char* times = std::getenv("RAVO_SOAK_TIMES");
    return times == nullptr ? 20 : std::strtoull(times, nullptr, 10);
}

unsigned Seed() {
    const char* seed = std::getenv("RAVO_SOAK_SEED");
    return seed == nullptr ? static_cast<unsigned>(getpid())
                           : static_cast<unsigned>(std::strtoul(seed, nullptr, 10));
}

long ResidentKilobytes() {
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

void Print(const char* name, double value, const char* unit) {
    std::printf("%-24s %.10g %s\n", name, value, unit);
    std::fflush(stdout);
}

// Whether the process holds the same resources at the end as after the first rounds.
class Footprint {
  public:
    void BeginOnce() {
        if (m_threads == 0) {
            Begin();
        }
    }
    void Begin() {
        m_descriptors = Descriptors();
        m_threads = Threads();
        m_kilobytes = ResidentKilobytes();
    }
    // Both settle only when the threads of the last round have ended.
    void ExpectUnchanged() const {
        EXPECT_TRUE(Eventually([&] { return Threads() <= m_threads; })) << Threads();
        // The monitor opens a pipe for a moment at each of its checks, at the beginning as at the
        // end.
        EXPECT_TRUE(Eventually([&] { return Descriptors() <= m_descriptors; })) << Descriptors();
        Print("descriptors", static_cast<double>(Descriptors()), "");
        Print("threads", static_cast<double>(Threads()), "");
        Print("memory before", static_cast<double>(m_kilobytes), "kB");
        Print("memory after", static_cast<double>(ResidentKilobytes()), "kB");
    }

  private:
    size_t m_descriptors = 0;
    size_t m_threads = 0;
    long m_kilobytes = 0;
};

class Soak : public testing::Test {
  protected:
    void SetUp() override { Print("seed", Seed(), ""); }
    void TearDown() override {
        DelaySteps(false);
        RAVOFree();
    }

    int UpTo(int most) { return std::uniform_int_distribution<int>(0, most)(m_random); }
    void Pause(int mostMilliseconds) {
        std::this_thread::sleep_for(std::chrono::microseconds(UpTo(mostMilliseconds * 1000)));
    }

    // Waits for the next call of the listener, whatever was reported before.
    bool Await(bool connected) {
        const auto begin = Clock::now();
        const bool came = Eventually([&] {
            const std::vector<bool> heard = Listener::Heard();
            return !heard.empty() && heard.back() == connected;
        });
        if (!came) {
            ADD_FAILURE() << "not told " << connected << " within a minute:\n"
                          << SearchReportText();
        }
        m_longest = std::max(m_longest, Clock::now() - begin);
        Listener::Forget();
        return came;
    }
    double LongestSeconds() const { return std::chrono::duration<double>(m_longest).count(); }

    // Under another number, because a return under the same one may go unnoticed.
    void MoveTo(Simulator& simulator, int& port) {
        port = (port + 1) % 100;
        simulator.Return(port);
    }

  private:
    std::mt19937 m_random{Seed()};
    Clock::duration m_longest{0};
};

TEST_F(Soak, Connections) {
    int port = 0;
    Simulator simulator(Settings::Of(Unit::kSixteenBit, port));
    Footprint footprint;
    DelaySteps(true);
    std::uint64_t connections = 0;
    while (connections < Times()) {
        if (connections >= std::min<std::uint64_t>(5, Times() / 2)) {
            footprint.BeginOnce();
        }
        Listener::Forget();
        ASSERT_TRUE(RAVOInit(Listener::Hear));
        if (UpTo(3) == 0) { // released in the middle of the search
            Pause(500);
            RAVOFree();
            continue;
        }
        ASSERT_TRUE(Await(true));
        ++connections;
        for (int losses = UpTo(2); losses > 0; --losses) {
            Pause(100);
            simulator.Vanish();
            if (UpTo(1) == 0) { // back before the loss is noticed, or after
                Pause(1500);
                MoveTo(simulator, port);
                ASSERT_TRUE(Await(true));
            } else {
                ASSERT_TRUE(Await(false));
                Pause(300);
                MoveTo(simulator, port);
                ASSERT_TRUE(Await(true));
            }
            ++connections;
        }
        Pause(50);
        RAVOFree();
    }
    DelaySteps(false);
    Print("connections", static_cast<double>(connections), "");
    Print("longest wait", LongestSeconds(), "s");
    footprint.ExpectUnchanged();
}

TEST_F(Soak, Unplugs) {
    int port = 0;
    Settings settings = Settings::Of(Unit::kSixteenBit, port);
    settings.keepFrames = 0; // the emulator's own frames must not count as the library's memory
    Simulator simulator(settings);
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Await(true));
    Footprint footprint;
    for (std::uint64_t unplugs = 0; unplugs < Times(); ++unplugs) {
        if (unplugs == 5) {
            footprint.Begin();
        }
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
        Pause(1000);
        simulator.Vanish();
        ASSERT_TRUE(Await(false));
        ASSERT_TRUE(Eventually([] { return !RAVOIsOutputting(); }));
        MoveTo(simulator, port);
        ASSERT_TRUE(Await(true));
    }
    Print("unplugs", static_cast<double>(Times()), "");
    Print("longest wait", LongestSeconds(), "s");
    footprint.ExpectUnchanged();
}

TEST_F(Soak, Starts) {
    Settings settings = Settings::Of(Unit::kSixteenBit);
    settings.behaviour.speed = 20; // a stop waits for the next request
    settings.keepFrames = 0;
    const Simulator simulator(settings);
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Await(true));
    Footprint footprint;
    for (std::uint64_t starts = 0; starts < Times(); ++starts) {
        if (starts == 5) {
            footprint.Begin();
        }
        ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr)) << "start " << starts;
        Pause(30);
        RAVOStopOutput();
        ASSERT_FALSE(RAVOIsOutputting());
    }
    const emulator::Counters seen = simulator.Seen().Count();
    EXPECT_EQ(seen.starts, Times());
    EXPECT_GE(seen.stops, Times()); // the library may report it twice
    EXPECT_EQ(seen.sequenceGaps, 0U);
    Print("starts", static_cast<double>(seen.starts), "");
    footprint.ExpectUnchanged();
}

// Compares on the simulator's thread each frame that arrives with the next of the cycle.
class Comparison : public emulator::Sink {
  public:
    explicit Comparison(std::vector<Codes> cycle) : m_cycle(std::move(cycle)) {}
    void Started(const emulator::SeenStart& /*start*/) override {}
    void Arrived(const std::vector<Codes>& frames) override {
        for (const Codes& frame : frames) {
            m_different += frame == m_cycle[m_next] ? 0 : 1;
            m_next = m_next + 1 == m_cycle.size() ? 0 : m_next + 1;
        }
        m_compared += frames.size();
    }
    void Stopped() override {}

    std::uint64_t Compared() const { return m_compared; }
    std::uint64_t Different() const { return m_different; }

  private:
    const std::vector<Codes> m_cycle;
    size_t m_next = 0;
    std::atomic<std::uint64_t> m_compared{0};
    std::atomic<std::uint64_t> m_different{0};
};

// Two channels of 1,000 samples a second and no repetition within 100 s, written as a record, so
// that the whole path through the library is used.
constexpr size_t kCycle = 100003;
constexpr double kUnitsPerMillivolt = 200.0;

int SampleOf(size_t signal, size_t k) {
    const double time = static_cast<double>(k);
    return static_cast<int>(std::lround(900.0 * std::sin(time * (signal == 0 ? 0.0113 : 0.0177))));
}

std::string WriteRecord() {
    const std::string record = "/dev/shm/ravo-soak-" + std::to_string(getpid());
    std::ofstream header(record + ".hea");
    const std::string name = record.substr(record.rfind('/') + 1);
    header << name << " 2 1000 " << kCycle << "\n";
    for (const char* lead : {"I", "II"}) {
        header << name << ".dat 16 200 16 0 0 0 0 " << lead << "\n";
    }
    std::ofstream samples(record + ".dat", std::ios::binary);
    for (size_t k = 0; k < kCycle; ++k) {
        for (size_t signal = 0; signal < 2; ++signal) {
            const auto sample = static_cast<std::int16_t>(SampleOf(signal, k));
            samples.write(reinterpret_cast<const char*>(&sample), sizeof sample);
        }
    }
    return record;
}

std::vector<Codes> ExpectedCycle() {
    const Converter converter(Unit::kSixteenBit);
    std::vector<Codes> cycle;
    for (size_t k = 0; k < kCycle; ++k) {
        cycle.push_back(converter.Frame(
            {SampleOf(0, k) / kUnitsPerMillivolt, SampleOf(1, k) / kUnitsPerMillivolt}));
    }
    return cycle;
}

TEST_F(Soak, Endurance) {
    const char* speed = std::getenv("RAVO_SOAK_SPEED");
    Settings settings = Settings::Of(Unit::kSixteenBit);
    settings.behaviour.speed = speed == nullptr ? 0.0 : std::strtod(speed, nullptr);
    settings.keepFrames = 0;
    Comparison comparison(ExpectedCycle());
    const Simulator simulator(settings, &comparison);
    const std::string record = WriteRecord();
    ECG_HEADER* header = RAVOLoadMITHeader((record + ".hea").c_str());
    ASSERT_NE(header, nullptr);
    ASSERT_TRUE(RAVOLoadMITDatabase(header));
    RAVOEnableLoop(true);
    ASSERT_TRUE(RAVOInit(Listener::Hear));
    ASSERT_TRUE(Await(true));
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    Footprint footprint;
    footprint.Begin();
    const auto begin = Clock::now();
    const std::uint64_t wanted = Times() * 1000; // seconds of play
    std::uint64_t before = 0;
    auto lastArrival = begin;
    auto nextLine = begin + kLineEvery;
    while (comparison.Compared() < wanted && comparison.Different() == 0) {
        std::this_thread::sleep_for(seconds(1));
        if (comparison.Compared() != before) {
            before = comparison.Compared();
            lastArrival = Clock::now();
        }
        ASSERT_LT(Clock::now() - lastArrival, kPatience) << "nothing came after " << before;
        if (Clock::now() >= nextLine) { // details of a run that is aborted
            Print("so far", static_cast<double>(before), "frames");
            Print("memory", static_cast<double>(ResidentKilobytes()), "kB");
            nextLine += kLineEvery;
        }
    }
    const std::chrono::duration<double> took = Clock::now() - begin;
    const emulator::Counters seen = simulator.Seen().Count();
    EXPECT_TRUE(RAVOIsOutputting());
    footprint.ExpectUnchanged();
    RAVOStopOutput();
    RAVOFreeECGHeader(header);
    EXPECT_EQ(comparison.Different(), 0U);
    EXPECT_EQ(seen.sequenceGaps, 0U);
    EXPECT_EQ(seen.underruns, 0U);
    Print("frames compared", static_cast<double>(comparison.Compared()), "");
    Print("frames different", static_cast<double>(comparison.Different()), "");
    Print("hours of play", static_cast<double>(comparison.Compared()) / 3.6e6, "h");
    Print("took", took.count(), "s");
    for (const char* suffix : {".hea", ".dat"}) {
        unlink((record + suffix).c_str());
    }
}

} // namespace
