#pragma once

#include "CommandLine.h"
#include "tools/emulator/Identity.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

// `ravo run` on plans that a test writes.

using namespace std::chrono_literals;
using json = nlohmann::ordered_json;

inline constexpr int kRate = 250;
inline constexpr const char* kSpeed = "20";
inline constexpr auto kPatience = 60s;

class RunTest : public testing::Test {
  protected:
    static emulator::Settings Unit(double speed = 20.0) {
        emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kSixteenBit, 0);
        settings.behaviour.speed = speed;
        settings.bufferBytes = 16 * emulator::kBufferBytes;
        return settings;
    }

    // Leads I and II, 8 s, of one value each.
    void WriteRecord(const std::string& name = "r") const {
        std::vector<int16_t> samples;
        for (int n = 0; n < 8 * kRate; ++n) {
            samples.push_back(static_cast<int16_t>(n % kRate * 4));
            samples.push_back(static_cast<int16_t>(n % 125 * 8 - 500));
        }
        m_directory.Write(name + ".dat", Format16(samples));
        const std::string base = name.substr(name.find_last_of('/') + 1);
        m_directory.Write(name + ".hea", base + " 2 250 2000\n" + base +
                                             ".dat 16 1000/mV 16 0 0 0 0 first\n" + base +
                                             ".dat 16 1000/mV 16 0 0 0 0 II\n");
    }

    std::string WritePlan(const std::string& steps) const {
        return m_directory.Write("plan.toml", "title = \"A day\"\n" + steps);
    }

    std::vector<std::string> Arguments(const std::vector<std::string>& more) const {
        std::vector<std::string> arguments = {
            "run", m_directory / "plan.toml", "--output", Out(), "--speed-up", kSpeed, "--port",
            "0"};
        if (std::find(more.begin(), more.end(), "--timeout") == more.end()) {
            arguments.insert(arguments.end(), {"--timeout", "60"});
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    Result Run(const std::vector<std::string>& more = {}) const { return Ravo(Arguments(more)); }

    std::string Out() const { return m_directory / "out"; }

    json ReadResult() const { return json::parse(ReadFile(Out() + "/result.json")); }

    json Step(const std::string& name) const {
        const json result = ReadResult();
        for (const json& step : result["steps"]) {
            if (step["name"] == name) {
                return step;
            }
        }
        return {};
    }

    std::string Events() const {
        std::string events;
        std::istringstream lines(ReadFile(Out() + "/journal.jsonl"));
        for (std::string line; std::getline(lines, line);) {
            const json event = json::parse(line, nullptr, false);
            events += event.is_object() ? event.value("event", "") + " " : "torn ";
        }
        return events;
    }

    // Waits until the journal contains that event.
    void AwaitEvent(const std::string& event, int times = 1) const {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        const auto count = [&] {
            const std::string events = Events();
            int found = 0;
            for (auto at = events.find(event + " "); at != std::string::npos;
                 at = events.find(event + " ", at + 1)) {
                ++found;
            }
            return found;
        };
        while (count() < times && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(10ms);
        }
        ASSERT_GE(count(), times) << Events();
    }

    void WriteHook(const std::string& script) const {
        const std::string path = m_directory.Write("hook.sh", "#!/bin/sh\n" + script);
        ::chmod(path.c_str(), 0755);
    }

    // As in the same run without any trouble: times and attempts differ.
    static json WithoutTimes(json result) {
        for (const char* field : {"started", "ended"}) {
            result.erase(field);
        }
        for (json& step : result["steps"]) {
            for (const char* field : {"started", "ended", "attempts", "measuredRate", "framesSent",
                                      "requests", "delays", "largestDelay"}) {
                step.erase(field);
            }
            if (step["kind"] != "material") {
                step.erase("seconds");
            }
        }
        return result;
    }

    std::string Sha256Of(const std::string& name) const {
        const Result result = ByShell("/usr/bin/sha256sum", {m_directory / name}, "");
        return result.out.substr(0, 64);
    }

    Scratch m_directory;
};

inline constexpr const char* kRecordStep =
    "[[step]]\nname = \"r\"\nmaterial = \"r.hea\"\nstart = 2\nseconds = 5\n"
    "map = { first = \"I\" }\n";
