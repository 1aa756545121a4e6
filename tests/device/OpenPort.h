#pragma once

#include "device/Device.h"
#include "PseudoPort.h"

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
