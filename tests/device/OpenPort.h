#pragma once

#include "device/Device.h"
#include "platform/Platform.h"
#include "PseudoPort.h"

#include <csignal>

// The library with a pseudo-terminal as its open port.
class OpenPort : public testing::Test {
  protected:
    void SetUp() override {
        g_nDeviceReadTimeout = 1000;
        g_nDeviceWriteTimeout = 2000;
        g_hDevice = m_port.OpenHostSide();
        ASSERT_NE(g_hDevice, -1);
    }
    void TearDown() override { DeviceClose(); }

    const PseudoPort& Device() const { return m_port; }
    PseudoPort& Device() { return m_port; }

  private:
    PseudoPort m_port;
};

// Sends signals at short intervals to the thread that creates it, as long as the object exists.
class SignalStorm {
  public:
    SignalStorm() : m_timer(CreateNewTimer(3, m_signal)) {}
    ~SignalStorm() { DeleteTimer(0, m_timer); }

  private:
    unsigned int m_signal = SIGUSR1;
    void* m_timer;
};
