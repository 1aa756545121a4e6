#pragma once

#include "api/ravo.h"
#include "device/Device.h"
#include "Listener.h"
#include "platform/SharedValue.h"
#include "tools/emulator/Simulator.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>

// The library searching for an emulated simulator.

using Clock = std::chrono::steady_clock;
using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;
using std::chrono::milliseconds;
using std::chrono::seconds;

// The monitor gives up the path when the simulator has gone, also at the end of a test.
inline std::string DevicePath() {
    char path[sizeof g_szDevicePath];
    LoadSharedBytes(path, g_szDevicePath, sizeof path);
    return path;
}

inline void HearNothing(bool /*connected*/) {
    ADD_FAILURE() << "the replaced listener was called";
}

class ConnectionTest : public testing::Test {
  protected:
    void SetUp() override { Listener::Forget(); }
    void TearDown() override { RAVOFree(); }
};
