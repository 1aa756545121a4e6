#pragma once

#include "lab/common/Mutex.h"
#include "tools/emulator/Firmware.h"
#include "tools/emulator/Journal.h"
#include "tools/emulator/Port.h"
#include "tools/emulator/Settings.h"

#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>

// The emulated simulator: it runs from its construction to its destruction on a thread of its own.
//
//     emulator::Simulator simulator(emulator::Settings::Of(emulator::Unit::kTwelveBit, 2));
//     ... a host opens /dev/ttyACM2 and plays ...
//     simulator.Seen().WaitForFrames(1000, 10s);
//
// It shares no code and no header with the driver library.
namespace emulator {

class Simulator {
  public:
    // Makes the port appear, unless the settings say otherwise.  Throws std::system_error when it
    // cannot.  The sink, which may be null, must outlive the simulator.
    explicit Simulator(const Settings& settings, Sink* sink = nullptr);
    // Disappears from its port.
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    const Journal& Seen() const { return m_journal; }

    // The functions below may be called from any thread but the sink's, and return when the
    // requested change has taken effect.

    Behaviour CurrentBehaviour();
    // change must not call the simulator.
    void Change(const std::function<void(Behaviour&)>& change);

    // Pulls the plug: the name disappears and the port is hung up.
    void Vanish();
    // Plugs it in again, newly powered on, under the same or another number.  Throws as the
    // constructor does; does nothing while it is present.
    void Return();
    void Return(int port);
    // The port is hung up while its name stays, or returns before any host sees it go.
    void LoseCarrier();
    bool IsPresent();
    std::string Path();

    // The true course of the outputs by the host's monotonic clock: when a frame left, and how many
    // had left by a time.  Timeline says how frames are counted.
    std::optional<Clock::time_point> FrameTime(std::uint64_t frame);
    std::uint64_t FramesLeftBy(Clock::time_point time);

    // Reads the bytes that a host has written so far, while there is room.
    void TakeRest();

    // Sends bytes as they are.
    void Send(const Bytes& bytes);
    void SendStatus();

  private:
    void Do(const std::function<void()>& task);
    void Serve();
    void RunTasks();
    void NoticeHost();
    void SetHostPresent(bool isPresent);
    void LookAtClock();
    bool TakeInput();
    void TakeAllInput();
    std::size_t AcceptableBytes() const;
    void SendNow();
    void SendDue(Clock::time_point now);
    void Sleep();
    void SwitchOn();
    void SwitchOff();
    void KeepLineStopped();
    void Apply(const Behaviour& before);
    bool AcceptsBytes() const;

    const Settings m_settings;
    Journal m_journal;
    Sink* const m_sink;

    // Everything below belongs to the simulator's thread.
    Behaviour m_behaviour;
    const std::unique_ptr<Port> m_port;
    std::optional<Firmware> m_firmware;
    bool m_isHostPresent = false;
    bool m_isMoreOnLine = false;   // as far as known
    Clock::time_point m_notBefore; // while the host's side is full
    bool m_isEnding = false;

    lab::Mutex m_taskMutex;
    std::deque<std::packaged_task<void()>> m_tasks RAVO_GUARDED_BY(m_taskMutex);
    int m_wake = -1;
    std::thread m_thread;
};

} // namespace emulator
