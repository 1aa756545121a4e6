#pragma once

#include "tools/emulator/Port.h"
#include "tools/emulator/usb/AcmDevice.h"
#include "tools/emulator/usb/VirtualSocket.h"

#include <optional>

// A USB device on the kernel's virtual host controller, driven by the kernel's own cdc_acm.  It
// requires root and the modules vhci-hcd and cdc-acm, which the machine of scripts/vm provides.
//
// In a sandbox the name with the requested number refers to the terminal that the kernel creates
// for the device.  Outside, the port has the kernel's name and number.
namespace emulator {

class UsbPort : public Port {
  public:
    UsbPort(std::string directory, int number);
    ~UsbPort() override;
    UsbPort(const UsbPort&) = delete;
    UsbPort& operator=(const UsbPort&) = delete;

    void Appear(bool echoes) override;
    void Vanish() override;
    void LoseCarrier(bool echoes) override;
    bool IsPresent() const override { return m_device.has_value(); }
    const std::string& Path() const override { return m_path; }
    void Renumber(int number) override;
    int Control() const override;
    int OpeningNotice() const override;
    bool ConsumeOpeningNotice() override;
    bool IsOpenByHost() const override;
    std::size_t Read(std::uint8_t* bytes, std::size_t length) override;
    std::size_t Write(const std::uint8_t* bytes, std::size_t length) override;

    // The kernel does what closing does; a line that is stopped is one from which nothing is read.
    void Refresh(bool /*echoes*/) override {}
    void StopLine(bool /*stop*/) override {}

  private:
    void Name(const std::string& terminal);

    const std::string m_directory;
    std::string m_path;
    bool m_hasOwnName = false; // beside the kernel's
    std::optional<usb::AcmDevice> m_device;
    std::optional<usb::VirtualSocket> m_place;
};

} // namespace emulator
