// Random faults during plays: whatever happens to the simulator, the result is compared with the
// frames that left its outputs.
//
// RAVO_FAULT_TRIALS sets how many (6 in the suite), RAVO_FAULT_AT_ONCE how many at a time (6),
// RAVO_FAULT_SEED which.

#include "CommandLine.h"

#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>

using namespace std::chrono_literals;
using emulator::Behaviour;

namespace {

constexpr unsigned kTrials = 6;
constexpr std::uint64_t kBufferFrames16 = 150;
constexpr std::uint64_t kBufferFrames12 = 250;

unsigned FromEnvironment(const char* name, unsigned otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

struct Fault {
    const char* name;
    std::function<void(emulator::Simulator&, unsigned)> strike; // with a random number
};

void Change(emulator::Simulator& simulator, const std::function<void(Behaviour&)>& change) {
    simulator.Change(change);
}

const std::vector<Fault> kFaults = {
    {"none", [](emulator::Simulator&, unsigned) {}},
    {"silence",
     [](emulator::Simulator& s, unsigned) { Change(s, [](Behaviour& b) { b.asks = false; }); }},
    {"full line",
     [](emulator::Simulator& s, unsigned) {
         Change(s, [](Behaviour& b) { b.line = emulator::Line::kFull; });
     }},
    {"dead line",
     [](emulator::Simulator& s, unsigned) {
         Change(s, [](Behaviour& b) { b.line = emulator::Line::kDead; });
     }},
    {"mute line",
     [](emulator::Simulator& s, unsigned) {
         Change(s, [](Behaviour& b) { b.line = emulator::Line::kMute; });
     }},
    {"lost bytes",
     [](emulator::Simulator& s, unsigned random) {
         Change(s, [random](Behaviour& b) { b.losesBytes = 1 + random % 5000; });
     }},
    {"unplugged", [](emulator::Simulator& s, unsigned) { s.Vanish(); }},
    {"replugged",
     [](emulator::Simulator& s, unsigned random) {
         s.Vanish();
         std::this_thread::sleep_for(std::chrono::milliseconds(random % 400));
         s.Return();
     }},
    {"lost carrier", [](emulator::Simulator& s, unsigned) { s.LoseCarrier(); }},
};

// One play of the triangle waveform, and the fault that interrupts it.
class Trial {
  public:
    Trial(unsigned seed, int port) : m_random(seed), m_port(port) {
        emulator::Settings settings = emulator::Settings::Of(
            m_isSixteen ? emulator::Unit::kSixteenBit : emulator::Unit::kLegacy, port);
        settings.behaviour.refusesStart = Number(20) == 0;
        m_refuses = settings.behaviour.refusesStart;
        m_simulator = std::make_unique<emulator::Simulator>(settings);
        m_play = std::make_unique<Process>(
            "ravo",
            std::vector<std::string>{"play", "triangle", "--json", "--port", std::to_string(port),
                                     "--timeout", "60", "--seconds", std::to_string(m_seconds)});
    }

    // Waits for the start, or for the bytes sent after a start that is refused, triggers the fault
    // at a random time, and judges the result.
    void Run() {
        m_simulator->Seen().WaitFor(
            [](const emulator::Counters& count) {
                return count.starts > 0 || count.packetsOutsidePlay > 0;
            },
            60s);
        std::this_thread::sleep_for(std::chrono::milliseconds(Number(m_seconds * 1100U)));
        m_fault->strike(*m_simulator, Number(100000));
        m_result = m_play->Wait();
        m_left = m_simulator->FramesLeftBy(emulator::Clock::now());
    }

    void Expect() const {
        const std::uint64_t due = m_seconds * 1000U;
        const std::uint64_t buffer = m_isSixteen ? kBufferFrames16 : kBufferFrames12;
        const std::uint64_t proof = (due + buffer - 1) / buffer + 1; // the request that proves it
        const bool isFinished = m_result.out.find("\"finished\"") != std::string::npos;
        SCOPED_TRACE(testing::Message() << m_fault->name << " on port " << m_port << ", " << due
                                        << " frames due, " << m_left << " left the outputs\n"
                                        << m_result.out << m_result.err);
        EXPECT_EQ(m_result.status, isFinished ? 0 : 4);
        if (isFinished) {
            EXPECT_GE(m_left, due); // no frame was missing
        } else {
            EXPECT_LE(m_simulator->Seen().Count().requests, proof); // it came too late, or never
        }
        if (m_fault == &kFaults.front() && !m_refuses) {
            EXPECT_TRUE(isFinished);
        }
    }

  private:
    unsigned Number(unsigned below) { return static_cast<unsigned>(m_random() % below); }

    std::mt19937 m_random;
    const int m_port;
    const unsigned m_seconds = 3 + Number(FromEnvironment("RAVO_FAULT_TRIALS", 0) > 0 ? 28 : 3);
    const bool m_isSixteen = Number(2) == 0;
    const Fault* const m_fault = &kFaults[Number(static_cast<unsigned>(kFaults.size()))];
    bool m_refuses = false;
    std::unique_ptr<emulator::Simulator> m_simulator;
    std::unique_ptr<Process> m_play;
    Result m_result;
    std::uint64_t m_left = 0;
};

} // namespace

TEST(RandomFaultTest, TheResultIsWhatTheOutputsCarried) {
    const unsigned trials = FromEnvironment("RAVO_FAULT_TRIALS", kTrials);
    const unsigned atOnce = std::clamp(FromEnvironment("RAVO_FAULT_AT_ONCE", kTrials), 1U, 128U);
    const unsigned seed = FromEnvironment("RAVO_FAULT_SEED", 1);
    for (unsigned done = 0; done < trials; done += atOnce) {
        std::vector<std::unique_ptr<Trial>> batch;
        std::vector<std::thread> threads;
        for (unsigned i = done; i < std::min(trials, done + atOnce); ++i) {
            batch.push_back(
                std::make_unique<Trial>(seed * 1'000'000 + i, static_cast<int>(i % atOnce)));
        }
        threads.reserve(batch.size());
        for (const auto& trial : batch) {
            threads.emplace_back([&trial] { trial->Run(); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (const auto& trial : batch) {
            trial->Expect();
        }
    }
}
