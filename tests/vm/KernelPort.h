#pragma once

#include "api/ravo.h"
#include "tests/api/Listener.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

// Shared by the tests in the virtual machine: a library that searches, and a simulator that is a
// USB device under the kernel's cdc_acm.

using emulator::Behaviour;
using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

// Longer than anything that the library or the kernel waits for: a close waits 30 s for its output,
// and more than one thread may have to.
constexpr seconds kHang{150};

inline double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// A line of the report.
inline void Report(const std::string& what, double value, const char* unit) {
    std::printf("figure: %s: %.6g %s\n", what.c_str(), value, unit);
}

template <typename Value>
Value Quantile(std::vector<Value> values, double part) {
    const auto last = static_cast<double>(values.size() - 1);
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(last * part);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

template <typename Condition>
bool Within(milliseconds patience, const Condition& condition) {
    const auto end = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(5));
    }
    return true;
}

class KernelPort : public testing::Test {
  protected:
    void SetUp() override {
        const char* kind = std::getenv("RAVO_EMULATOR_PORT");
        if (kind == nullptr || std::string(kind) != "usb") {
            GTEST_SKIP() << "these tests run in the virtual machine of scripts/vm";
        }
        Listener::Forget();
    }
    void TearDown() override { RAVOFree(); }

    static void Search() { ASSERT_TRUE(RAVOInit(Listener::Hear)); }
    // The library has reported this many changes, the last of them this one.
    static bool IsTold(size_t times, bool isConnected) {
        return Within(kHang, [&] { return Listener::Heard().size() >= times; }) &&
               Listener::Heard()[times - 1] == isConnected;
    }
    static bool Play() {
        return RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0) && RAVOOutputWaveform(0, nullptr, nullptr);
    }
    static std::string DevicePath() {
        RAVO_OUTPUT_INFORMATION information{};
        return RAVOGetOutputInformation(&information) ? information.DevicePath : "";
    }
};
