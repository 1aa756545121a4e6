// A plan under kills and unplugs at random moments: nothing lost, nothing repeated without a record
// of it, the same result as without them. Two days of half hours without a gap, and plans of ten
// thousand steps against the clock.
//
// scripts/soak runs them: RAVO_SOAK_TIMES says how often, RAVO_SOAK_SEED at which moments.
#include "CommandLine.h"

#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

namespace {

constexpr double kSpeed = 50.0;

// A starved machine may need more than a minute to find a simulator that is present; one that is
// not found in this time is really lost.
constexpr const char* kSearchTime = "600";

int FromEnvironment(const char* name, int usual) {
    const char* text = std::getenv(name);
    return text == nullptr ? usual : std::atoi(text);
}

int Times(int usual) {
    return FromEnvironment("RAVO_SOAK_TIMES", usual);
}

double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

class RunSoak : public testing::Test {
  protected:
    static emulator::Settings Unit() {
        emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kSixteenBit, 0);
        settings.behaviour.speed = kSpeed;
        settings.bufferBytes = 64 * emulator::kBufferBytes;
        return settings;
    }

    void WritePlan(int steps) const {
        m_directory.Write(
            "plan.toml",
            "title = \"Soak\"\n[[step]]\nname = \"p\"\nmaterial = \"sine\"\n"
            "seconds = 20\nmatrix = { amplitude = [0.5, 1.0] }\nrepeat = " +
                std::to_string(steps) +
                "\n[[step]]\nname = \"w\"\nwait = 5\nrepeat = " + std::to_string(steps) + "\n");
    }

    // Records in files of their own, and a plan that plays them all.
    void WriteHalfHours(int records, int rate, int frames) const {
        std::vector<int16_t> samples;
        for (int n = 0; n < frames; ++n) {
            samples.push_back(static_cast<int16_t>(n % rate));
            samples.push_back(static_cast<int16_t>(n % 1000 - 500));
        }
        const std::string bytes = Format16(samples);
        const std::string hook = m_directory.Write(
            "memory.sh", "#!/bin/sh\nkb=$(sed -n 's/VmRSS:[^0-9]*\\([0-9]*\\) kB/\\1/p' "
                         "/proc/$PPID/status)\n"
                         "echo \"{\\\"verdict\\\": \\\"none\\\", \\\"values\\\": "
                         "{\\\"kB\\\": $kb}}\"\n");
        ::chmod(hook.c_str(), 0755);
        std::string plan = "title = \"Half hours\"\n";
        for (int i = 1; i <= records; ++i) {
            const std::string name = "r" + std::to_string(i);
            m_directory.Write(name + ".dat", bytes);
            m_directory.Write(name + ".hea", name + " 2 " + std::to_string(rate) + " " +
                                                 std::to_string(frames) + "\n" + name +
                                                 ".dat 16 1000/mV 16 0 0 0 0 I\n" + name +
                                                 ".dat 16 1000/mV 16 0 0 0 0 II\n");
            plan += "[[step]]\nname = \"" + name + "\"\nmaterial = \"" + name + ".hea\"\n";
            if (i == 8 || i == records) {
                plan += std::string("[[step]]\nname = \"") + (i == 8 ? "early" : "late") +
                        "\"\nhook = [\"./memory.sh\"]\n";
            }
        }
        m_directory.Write("plan.toml", plan);
    }

    std::vector<std::string> Arguments(const std::string& out, bool isResumed) const {
        std::vector<std::string> arguments = {"run",        m_directory / "plan.toml",
                                              "--output",   m_directory / out,
                                              "--speed-up", "50",
                                              "--port",     "0",
                                              "--timeout",  kSearchTime};
        if (isResumed) {
            arguments.emplace_back("--resume");
        }
        return arguments;
    }

    json ReadResult(const std::string& out) const {
        return json::parse(ReadFile(m_directory / out + "/result.json"));
    }

    // The details of a run that ended in an unexpected way.
    std::string Told(const Result& result, const std::string& out) const {
        return std::to_string(result.status) + "\n" + result.out + result.err +
               ReadFile(m_directory / out + "/journal.jsonl");
    }

    // A play was cut twice, by unplugs or because something was starved; the run can be resumed.
    static bool IsCut(const Result& result) {
        return result.status == 4 &&
               result.err.find("; --resume repeats them") != std::string::npos;
    }

    // Repeated until nothing cuts it any more; returns how many runs had a play cut twice.
    int ResumeToTheEnd(const std::string& out) const {
        for (int cut = 0;; ++cut) {
            const Result result = Ravo(Arguments(out, true));
            if (!IsCut(result)) {
                EXPECT_EQ(result.status, 0) << Told(result, out);
                return cut;
            }
        }
    }

    // Every step has passed, once, and has as many attempts as the journal has beginnings of it. A
    // play that was cut twice in one run has an earlier end of its own.
    void ExpectWhole(const std::string& out, const json& whole) const {
        std::map<std::string, int> begins;
        std::map<std::string, int> ends;
        std::istringstream lines(ReadFile(m_directory / out + "/journal.jsonl"));
        for (std::string line; std::getline(lines, line);) {
            const json event = json::parse(line);
            const std::string step = event.value("step", "");
            begins[step] += event["event"] == "begin" ? 1 : 0;
            ends[step] += event["event"] == "end" && event["outcome"] == "passed" ? 1 : 0;
        }
        const json result = ReadResult(out);
        EXPECT_EQ(result["outcome"], "passed");
        ASSERT_EQ(result["steps"].size(), whole["steps"].size());
        for (std::size_t i = 0; i < whole["steps"].size(); ++i) {
            const json& step = result["steps"][i];
            const std::string name = step["name"];
            EXPECT_EQ(name, whole["steps"][i]["name"]);
            EXPECT_EQ(ends[name], 1) << name;
            EXPECT_EQ(step["attempts"], begins[name]) << name;
            for (const char* field : {"outcome", "material", "options", "leads", "clipped",
                                      "framesDue", "framesPlayed", "nominalRate"}) {
                EXPECT_EQ(step.value(field, json()), whole["steps"][i].value(field, json()))
                    << name << " " << field;
            }
        }
    }

    Scratch m_directory;
    const unsigned m_seed = static_cast<unsigned>(FromEnvironment("RAVO_SOAK_SEED", getpid()));
    std::mt19937 m_random{m_seed};
};

} // namespace

TEST_F(RunSoak, Kills) {
    const int wanted = Times(50);
    WritePlan(std::max(3, wanted / 20));
    emulator::Simulator simulator(Unit());
    const Result undisturbed = Ravo(Arguments("whole", false));
    ASSERT_EQ(undisturbed.status, 0) << Told(undisturbed, "whole");
    int kills = 0;
    int rounds = 0;
    int cut = 0;
    while (kills < wanted) {
        const std::string out = "killed" + std::to_string(rounds++);
        while (kills < wanted) {
            Process run("ravo", Arguments(out, true));
            std::this_thread::sleep_for(std::chrono::milliseconds(20 + m_random() % 4000));
            run.Signal(SIGKILL);
            const Result result = run.Wait();
            if (result.status == 0) {
                break;
            }
            ASSERT_TRUE(result.status == 128 + SIGKILL || IsCut(result)) << Told(result, out);
            ++(result.status == 4 ? cut : kills);
        }
        cut += ResumeToTheEnd(out);
        ExpectWhole(out, ReadResult("whole"));
    }
    std::printf("seed %u: %d kills in %d runs, %d runs with a play cut twice\n", m_seed, kills,
                rounds, cut);
}

TEST_F(RunSoak, Unplugs) {
    const int wanted = Times(10);
    WritePlan(std::max(3, wanted / 4));
    emulator::Simulator simulator(Unit());
    const Result undisturbed = Ravo(Arguments("whole", false));
    ASSERT_EQ(undisturbed.status, 0) << Told(undisturbed, "whole");
    int unplugs = 0;
    int rounds = 0;
    int cut = 0;
    while (unplugs < wanted) {
        const std::string out = "unplugged" + std::to_string(rounds++);
        Process run("ravo", Arguments(out, true));
        const std::string result = m_directory / out + "/result.json"; // made at the end
        while (unplugs < wanted && !std::filesystem::exists(result)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500 + m_random() % 8000));
            simulator.Vanish();
            std::this_thread::sleep_for(std::chrono::milliseconds(100 + m_random() % 3000));
            simulator.Return(0);
            ++unplugs;
        }
        const Result ended = run.Wait();
        ASSERT_TRUE(ended.status == 0 || IsCut(ended)) << Told(ended, out);
        cut += ended.status == 0 ? 0 : 1 + ResumeToTheEnd(out);
        ExpectWhole(out, ReadResult("whole"));
    }
    std::printf("seed %u: %d unplugs in %d runs, %d runs with a play cut twice\n", m_seed, unplugs,
                rounds, cut);
}

// As fast as the machine allows. Hooks report the resources that the program holds after some
// records and after all: a record that was played leaves nothing behind.
TEST_F(RunSoak, Records) {
    const int records = Times(48);
    constexpr int kRate = 360;
    constexpr int kFrames = 1800 * kRate;
    WriteHalfHours(records, kRate, kFrames);
    emulator::Settings settings = Unit();
    settings.behaviour.speed = 0.0;
    settings.keepFrames = 0;
    emulator::Simulator simulator(settings);
    const auto begin = Clock::now();
    const Result run = Ravo(Arguments("out", false));
    ASSERT_EQ(run.status, 0) << Told(run, "out");
    const double seconds = SecondsSince(begin);
    const json result = ReadResult("out");
    double early = 0.0;
    double late = 0.0;
    for (const json& step : result["steps"]) {
        if (step["kind"] == "material") {
            EXPECT_EQ(step["attempts"], 1);
            EXPECT_EQ(step["framesPlayed"], kFrames);
            EXPECT_EQ(step["delays"], 0);
        } else {
            (step["name"] == "early" ? early : late) = step["values"]["kB"];
        }
    }
    const emulator::Counters seen = simulator.Seen().Count();
    EXPECT_EQ(seen.sequenceGaps, 0U);
    EXPECT_EQ(seen.starts, static_cast<std::uint64_t>(records));
    EXPECT_LT(late - early, 1024.0);
    std::printf("%d half hours in %.0f s (%.0f times real time), memory %.0f kB after 8, %.0f kB "
                "after all\n",
                records, seconds, records * 1800.0 / seconds, early, late);
}

TEST_F(RunSoak, Steps) {
    const int steps = Times(10'000);
    std::string plan = "title = \"Long\"\n";
    for (int n = 0; n < steps; ++n) {
        plan +=
            "[[step]]\nname = \"s" + std::to_string(n) + "\"\n" +
            (n % 2 == 0 ? "material = \"builtin:CAL" + std::string(n % 4 == 0 ? "20000" : "10000") +
                              "\"\nstart = " + std::to_string(n % 8) + "\nseconds = 1\n"
                        : "wait = 0\n");
    }
    m_directory.Write("plan.toml", plan);
    auto begin = Clock::now();
    ASSERT_EQ(Ravo({"run", m_directory / "plan.toml", "--dry-run"}).status, 0);
    std::printf("%d steps checked in %.2f s (10,000: at most 2 s)\n", steps, SecondsSince(begin));

    begin = Clock::now();
    const std::string out = m_directory / "out";
    const Result result =
        Ravo({"run", m_directory / "plan.toml", "--output", out, "--timeout", "1"});
    ASSERT_EQ(result.status, 3) << result.err;
    begin = Clock::now();
    ASSERT_EQ(Ravo({"report", out}).status, 0);
    std::printf("reported in %.2f s (10,000: at most 10 s)\n", SecondsSince(begin));
}
