#pragma once

#include "tools/emulator/Commands.h"
#include "tools/emulator/Journal.h"
#include "tools/emulator/Outbox.h"
#include "tools/emulator/Playout.h"
#include "tools/emulator/Settings.h"

#include <optional>
#include <vector>

// The simulator's side of the protocol from power-on: its input is bytes and the time, its output
// bytes to send.  It has no line and no thread, so that it can be tested at any pace.
namespace emulator {

// Receives the frames that are played, on the simulator's thread.  It must not call the simulator.
class Sink {
  public:
    Sink() = default;
    virtual ~Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    virtual void Started(const SeenStart& start) = 0;
    virtual void Arrived(const std::vector<Codes>& frames) = 0;
    virtual void Stopped() = 0;
};

class Firmware {
  public:
    // The behaviour may be changed between any two calls; a flash table that the host writes goes
    // there.  The sink may be null.
    Firmware(const Settings& settings, Behaviour& behaviour, Journal& journal, Sink* sink);

    // How many bytes can be accepted now.  While playing, bytes without room stay on the line.
    std::size_t Room() const;

    void Receive(const std::uint8_t* bytes, std::size_t count, Clock::time_point now);

    // Does everything that is due. isLineEmpty: nothing was left to receive.  When it is called
    // noticeably later than NextEvent requested, the sample clock ignores that time: a delay of the
    // emulator on a busy machine is not the host's.
    void Advance(Clock::time_point now, bool isLineEmpty);

    // Applies a changed speed or clock.
    void ApplySpeed(Clock::time_point now);

    // Sends a status record.
    void SendStatus(Clock::time_point now);

    // Ends a play that is still running.
    void SwitchOff(Clock::time_point now);

    // The latest time for the next call of Advance, unless bytes arrive first.
    std::optional<Clock::time_point> NextEvent() const;

    Outbox& Out() { return m_out; }
    const Outbox& Out() const { return m_out; }

  private:
    struct Play {
        Playout playout;
        double rate;
        std::size_t expectedPackets; // of the buffer that the host still has to send
        std::optional<Clock::time_point> askedAt;
        std::size_t packetOfBuffer = 0;
        std::uint8_t nextSequence = 0;
        Clock::time_point startedAt;
    };

    void Obey(Command command, const std::uint8_t* bytes, std::size_t length,
              Clock::time_point now);
    void Answer(Bytes reply, Clock::time_point now);
    void ReadFlash(Clock::time_point now);
    void WriteFlash(const std::uint8_t* table, Clock::time_point now);
    double RealRate(double nominal) const;
    void TakeStart(const std::uint8_t* bytes, Clock::time_point now);
    void TakePacket(const std::uint8_t* packet, Clock::time_point now);
    void CheckPacket(const std::uint8_t* packet);
    void Hold(Clock::time_point now);
    void HandOnArrived();
    void CountArrival(Clock::time_point now);
    void AskForBuffer(Clock::time_point now);
    void ReportDelay(Clock::duration held, Clock::time_point now);
    void EndPlay(Clock::time_point now);
    void ForgiveLateness(Clock::time_point now);
    void DropStalePart(Clock::time_point now);

    const Unit m_unit;
    const std::size_t m_capacityPackets;
    Behaviour& m_behaviour;
    Journal& m_journal;
    Sink* m_sink;

    Outbox m_out;
    Bytes m_pending; // the beginning of an incomplete command
    Clock::time_point m_lastArrival;
    std::optional<Play> m_play;
    std::vector<Codes> m_arrived;
    std::optional<Clock::time_point> m_planned; // for the next Advance
};

} // namespace emulator
