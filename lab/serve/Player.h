#pragma once

#include "lab/common/Mutex.h"
#include "lab/machine/Finding.h"
#include "lab/serve/Playing.h"
#include "lab/serve/PlayOrder.h"
#include "lab/serve/Sampler.h"
#include "lab/serve/Ticket.h"
#include "lab/session/Simulator.h"

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace lab::serve {

// An order from a client to the simulator.
struct Order {
    enum class Kind { kPlay, kStop, kNoise };

    Kind kind = Kind::kStop;
    PlayOrder play; // with its names resolved
    bool on = false;
    std::shared_ptr<Ticket> ticket = std::make_shared<Ticket>();
};

// A play that has ended.
struct EndedPlay {
    std::string material;
    std::string result; // "finished", "stopped", "replaced", "short" or "lost"
    double seconds = 0; // seconds of material that the requests prove
};

// The state at one moment.
struct PlayerState {
    bool isConnected = false;
    SimulatorInformation simulator; // nothing while none is connected
    Finding calibration;            // of the connected simulator
    std::shared_ptr<const Playing> playing;
    bool isNoiseOn = false;
    std::optional<EndedPlay> last;
    int64_t framesBefore = 0; // played by plays that have ended
    int64_t delaysBefore = 0;
};

struct PlayerOptions {
    std::optional<int> port;
    double speedUp = 1;
};

// Owns the connection: its thread makes all calls of the library that may block.
class Player {
  public:
    // `changed` is called on the player's thread whenever the state has changed.
    Player(const PlayerOptions& options, Sampler& sampler, std::function<void()> changed);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Begins to search for the simulator. The receiver of `changed` must already exist.
    void Begin();

    // False when too many wait.
    bool Post(std::shared_ptr<Order> order);

    PlayerState Now() const;

    // The simulator plays but has stopped asking for data.
    bool IsSilent() const;

    // Stops output and disconnects. False when this is not done by `deadline`, because a silent
    // simulator blocks the library.
    bool Stop(std::chrono::steady_clock::time_point deadline);

  private:
    using Clock = std::chrono::steady_clock;

    void Work();
    void Serve(const Simulator& simulator);
    std::shared_ptr<Order> NextOrder();
    void LookAtConnection(const Simulator& simulator);
    void LookAtOutput();
    std::optional<const char*> ResultNow();
    void CarryOut(const Order& order);
    void Play(const PlayOrder& order, Ticket& ticket);
    void Replace();
    [[noreturn]] void FailSilent() const;
    std::shared_ptr<Playing> Load(const PlayOrder& order) const;
    void Start(const std::shared_ptr<Playing>& playing);
    void SwitchNoise(bool on);
    void EndPlay(const char* result);
    void Change(const std::function<void(PlayerState&)>& change);

    const PlayerOptions m_options;
    Sampler& m_sampler;
    const std::function<void()> m_changed;

    mutable Mutex m_stateLock;
    PlayerState m_state RAVO_GUARDED_BY(m_stateLock);

    Mutex m_lock; // of the orders
    Condition m_wake;
    Condition m_hasEnded;
    std::deque<std::shared_ptr<Order>> m_orders RAVO_GUARDED_BY(m_lock);
    bool m_isEnding RAVO_GUARDED_BY(m_lock) = false;
    bool m_isOver RAVO_GUARDED_BY(m_lock) = false;

    // Used by the player's thread only.
    int m_losses = 0;
    Clock::time_point m_started;
    std::optional<Clock::time_point> m_outputEnded;
    std::size_t m_noiseIndex = 0; // position of the library's noise, with which a loop continues

    std::thread m_thread;
};

} // namespace lab::serve
