#pragma once

#include "CommandLine.h"
#include "tools/emulator/Decoder.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <vector>

// `ravo doctor` on machines that a test makes.

using namespace std::chrono_literals;

namespace fs = std::filesystem;

inline constexpr auto kPatience = 60s;
inline constexpr const char* kLock = "/var/lock/tarnwick.ACM0.lock";

// The machine may run a ModemManager of its own, and other users' programs.
inline std::string WithoutTheMachinesOwn(const std::string& text) {
    const std::regex modem(
        "(ok     |warning)  /dev/ttyACM[0-9]+ modem probing: .*\n(           .*\n)*");
    const std::regex unseen("; [0-9]+ processes of other users could not be inspected");
    return std::regex_replace(std::regex_replace(text, modem, ""), unseen, "");
}

// The report's lines about `port` on which `check` was found.
inline std::string Lines(const Result& result, const std::string& check) {
    const std::regex line("(ok     |warning|failed )  " + check + ": .*\n(           .*\n)*");
    std::smatch match;
    const std::string text = WithoutTheMachinesOwn(result.out);
    return std::regex_search(text, match, line) ? match.str() : "no such line in\n" + result.out;
}

inline std::string OwnerBytes(int32_t owner) {
    return {reinterpret_cast<const char*>(&owner), sizeof owner};
}

inline void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

class DoctorTest : public testing::Test {
  protected:
    ~DoctorTest() override {
        ::chmod("/var/lock", 01777);
        for (const fs::path directory : {"/var/lock", "/usr/local/tarnwick/ravo"}) {
            for (const auto& entry : fs::directory_iterator(directory)) {
                fs::remove_all(entry.path());
            }
        }
    }

    static emulator::Settings Unit(emulator::Unit unit = emulator::Unit::kSixteenBit,
                                   int port = 0) {
        return emulator::Settings::Of(unit, port);
    }

    // Any machine, however busy, reaches a healthy simulator in this time.
    static Result Doctor(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"doctor", "--timeout", "60"});
        return Ravo(arguments);
    }

    static Result ImpatientDoctor() { return Ravo({"doctor", "--timeout", "2"}); }

    static void ExpectNothingLeft(const emulator::Simulator& simulator) {
        EXPECT_TRUE(fs::is_empty("/var/lock"));
        EXPECT_TRUE(simulator.Seen().WaitFor(
            [](const emulator::Counters& count) {
                return count.hostOpenings > 0 && count.hostOpenings == count.hostClosings;
            },
            kPatience));
    }

    // A lock file that keeps the library from the port: it is not opened, and the file stays.
    static void ExpectLockInTheWay(const std::string& expected) {
        const std::string content = fs::is_regular_file(kLock) ? ReadFile(kLock) : "";
        emulator::Simulator simulator(Unit());
        const Result result = Doctor();
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(Lines(result, "/dev/ttyACM0 lock"), expected);
        EXPECT_EQ(Lines(result, "/dev/ttyACM0 answer"),
                  "warning  /dev/ttyACM0 answer: not asked, because of the finding above\n");
        EXPECT_TRUE(fs::exists(kLock));
        EXPECT_EQ(fs::is_regular_file(kLock) ? ReadFile(kLock) : "", content);
        EXPECT_EQ(simulator.Seen().Count().hostOpenings, 0U);
    }
};
