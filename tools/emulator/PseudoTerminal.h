#pragma once

#include "tools/emulator/Port.h"

// A pseudo-terminal whose other end appears as /dev/ttyACMN: no driver of the kernel is needed, and
// none is tested.
namespace emulator {

class PseudoTerminal : public Port {
  public:
    PseudoTerminal(std::string directory, int number);
    ~PseudoTerminal() override;
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    void Appear(bool echoes) override;
    void Vanish() override;
    void LoseCarrier(bool echoes) override;
    bool IsPresent() const override { return m_control != -1; }
    const std::string& Path() const override { return m_path; }
    void Renumber(int number) override;
    int Control() const override { return m_control; }
    int OpeningNotice() const override { return m_openings; }
    bool ConsumeOpeningNotice() override;
    bool IsOpenByHost() const override;
    std::size_t Read(std::uint8_t* bytes, std::size_t length) override;
    std::size_t Write(const std::uint8_t* bytes, std::size_t length) override;
    void Refresh(bool echoes) override;
    void StopLine(bool stop) override;

  private:
    void Open(bool echoes);
    void Close();
    void Configure(bool echoes) const;
    int OpenHostSide() const;

    std::string m_directory;
    std::string m_path;
    std::string m_hostSide;
    int m_control = -1;
    int m_openings = -1;
};

} // namespace emulator
