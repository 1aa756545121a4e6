#include "lab/serve/Player.h"

#include "lab/machine/CalibrationFile.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/LoadRecord.h"
#include "lab/session/Calibration.h"
#include "lab/session/Due.h"

#include "api/ravo.h"

#include <algorithm>
#include <utility>

namespace lab::serve {
namespace {

using namespace std::chrono_literals;

constexpr auto kLookInterval = 50ms;
constexpr std::size_t kMostOrders = 64;

// The output reports that it is running only after its last thread has started.
constexpr auto kStartGrace = 2s;

// A write to a simulator that has been unplugged ends the output before the monitor reports the
// loss.
constexpr auto kLossPatience = 2s;

// A stop takes effect at a request, about a second later; a simulator that sends none is given up
// by the library after ten.
constexpr auto kLongestStop = 5s;

constexpr int kConflict = 409;
constexpr int kUnprocessable = 422;
constexpr int kInternal = 500;

RAVO_OUTPUT_POSITION OutputPosition() {
    RAVO_OUTPUT_POSITION position{};
    RAVOGetOutputPosition(&position);
    return position;
}

void RequireWanted(Ticket& ticket) {
    if (ticket.IsWithdrawn()) {
        RefuseOvertaken();
    }
}

int64_t DueFramesPlayed(const Playing& playing) {
    const auto played = static_cast<int64_t>(OutputPosition().FramesPlayed);
    return playing.framesDue == 0 ? played : std::min(played, playing.framesDue);
}

} // namespace

Player::Player(const PlayerOptions& options, Sampler& sampler, std::function<void()> changed)
    : m_options(options), m_sampler(sampler), m_changed(std::move(changed)) {}

void Player::Begin() {
    m_thread = std::thread([this] { Work(); });
}

Player::~Player() {
    if (m_thread.joinable()) {
        Stop(Clock::now());
        m_thread.join();
    }
}

bool Player::Stop(Clock::time_point deadline) {
    const MutexGuard lock(m_lock);
    m_isEnding = true;
    m_isOver = m_isOver || !m_thread.joinable();
    m_wake.NotifyAll();
    while (!m_isOver && m_hasEnded.WaitUntil(m_lock, deadline)) {
    }
    return m_isOver;
}

bool Player::Post(std::shared_ptr<Order> order) {
    {
        const MutexGuard lock(m_lock);
        if (m_orders.size() >= kMostOrders || m_isEnding) {
            return false;
        }
        m_orders.push_back(std::move(order));
    }
    m_wake.NotifyAll();
    return true;
}

PlayerState Player::Now() const {
    const MutexGuard lock(m_stateLock);
    return m_state;
}

void Player::Change(const std::function<void(PlayerState&)>& change) {
    {
        const MutexGuard lock(m_stateLock);
        change(m_state);
    }
    m_changed();
}

bool Player::IsSilent() const {
    return Now().playing != nullptr && HasStoppedAsking(m_options.speedUp);
}

// ---- The thread ---------------------------------------------------------------------------------

void Player::Work() {
    try {
        const Simulator simulator(m_options.port);
        Serve(simulator);
    } catch (const Failure& failure) {
        PrintFailure(failure);
    }
    const MutexGuard lock(m_lock);
    m_isOver = true;
    m_hasEnded.NotifyAll();
}

void Player::Serve(const Simulator& simulator) {
    for (;;) {
        const std::shared_ptr<Order> order = NextOrder();
        {
            const MutexGuard lock(m_lock);
            if (m_isEnding) {
                break;
            }
        }
        LookAtConnection(simulator);
        LookAtOutput();
        if (order != nullptr) {
            CarryOut(*order);
        }
    }
    if (Now().playing != nullptr) {
        EndPlay("stopped");
    }
}

std::shared_ptr<Order> Player::NextOrder() {
    const Clock::time_point deadline = Clock::now() + kLookInterval;
    const MutexGuard lock(m_lock);
    while (!m_isEnding && m_orders.empty() && m_wake.WaitUntil(m_lock, deadline)) {
    }
    if (m_orders.empty()) {
        return nullptr;
    }
    std::shared_ptr<Order> order = std::move(m_orders.front());
    m_orders.pop_front();
    return order;
}

void Player::LookAtConnection(const Simulator& simulator) {
    const bool isConnected = simulator.IsConnected();
    const int losses = simulator.Losses();
    const bool wasLost = losses != m_losses;
    m_losses = losses;
    if (wasLost || isConnected != Now().isConnected) {
        const SimulatorInformation information =
            isConnected ? DescribeSimulator() : SimulatorInformation();
        const Finding calibration =
            isConnected ? CheckCalibration(information.dacBits, information.calibrationFile)
                        : Finding();
        Change([&](PlayerState& state) {
            state.isConnected = isConnected;
            state.simulator = information;
            state.calibration = calibration;
        });
    }
    if (wasLost && Now().playing != nullptr) {
        EndPlay("lost");
    }
}

void Player::LookAtOutput() {
    if (Now().playing == nullptr) {
        return;
    }
    if (const std::optional<const char*> result = ResultNow()) {
        EndPlay(*result);
    }
}

// The proof takes precedence: frames that have left the outputs can no longer be lost.
std::optional<const char*> Player::ResultNow() {
    const Playing& playing = *Now().playing;
    const auto isProven = [&] {
        return playing.framesDue != 0 && DueFramesPlayed(playing) == playing.framesDue;
    };
    if (isProven()) {
        return "finished";
    }
    if (RAVOIsOutputting() || Clock::now() - m_started < kStartGrace) {
        m_outputEnded.reset();
        return std::nullopt;
    }
    m_outputEnded = m_outputEnded.value_or(Clock::now());
    if (isProven()) {
        return "finished";
    }
    return Clock::now() - *m_outputEnded < kLossPatience ? std::nullopt
                                                         : std::optional<const char*>("short");
}

// ---- Orders -------------------------------------------------------------------------------------

void Player::CarryOut(const Order& order) {
    Ticket& ticket = *order.ticket;
    try {
        RequireWanted(ticket);
        switch (order.kind) {
        case Order::Kind::kPlay:
            Play(order.play, ticket);
            break;
        case Order::Kind::kStop:
            if (Now().playing != nullptr) {
                EndPlay("stopped");
            }
            break;
        case Order::Kind::kNoise:
            SwitchNoise(order.on);
            break;
        }
        ticket.Done();
    } catch (const Failure& failure) {
        ticket.Failed(failure);
    } catch (const std::exception& error) {
        ticket.Failed(HttpFailure(kInternal, "ravo-serve", error.what()));
    }
}

void Player::Play(const PlayOrder& order, Ticket& ticket) {
    const PlayerState state = Now();
    if (!state.isConnected) {
        Fail(kNoSimulator, "simulator", "is not connected.", "The state's findings say why.");
    }
    if (IsSilent()) {
        FailSilent();
    }
    RequireCalibration(state.simulator, order.request.requireCalibrated);
    if (state.playing != nullptr) {
        Replace();
    }
    RequireWanted(ticket); // a stop may have been waiting for the simulator
    const std::shared_ptr<Playing> playing = Load(order);
    RequireWanted(ticket); // and a long record takes time to load
    Start(playing);
}

void Player::Replace() {
    const Clock::time_point begin = Clock::now();
    EndPlay("replaced");
    if (Clock::now() - begin > kLongestStop) {
        FailSilent();
    }
}

void Player::FailSilent() const {
    Fail(kNoSimulator, Now().simulator.device, "has stopped asking for data.",
         "Check its cable and power, and plug it in again.");
}

std::shared_ptr<Playing> Player::Load(const PlayOrder& order) const {
    const Record record = LoadRecord(order.request.material);
    RequirePlayable(record);
    RequireStart(order.request, record);
    auto playing = MakePlaying(order.material, order.request, record, m_noiseIndex);
    if (record.noise == order.request.material.builtinNoise) {
        playing->record.noise = order.noise; // clients do not see a record's path
    }
    RAVOEnableNoise(!playing->libraryNoise.empty());
    return playing;
}

void Player::Start(const std::shared_ptr<Playing>& playing) {
    if (!StartOutput(playing->request, playing->record, nullptr)) {
        Fail(kOutputLost, Now().simulator.device, "did not accept the start command.",
             "Play again; if that does not help, plug the simulator in again.");
    }
    m_started = Clock::now();
    m_sampler.Begin(playing);
    Change([&](PlayerState& state) {
        state.playing = playing;
        state.isNoiseOn = !playing->record.noise.empty();
    });
}

// Noise that the library adds can be switched; all other noise is part of what was loaded.
void Player::SwitchNoise(bool on) {
    const PlayerState state = Now();
    if (state.playing == nullptr) {
        Refuse(kConflict, "noise", "cannot be switched while nothing plays.",
               "Play with the field \"noise\".");
    }
    if (on == state.isNoiseOn) {
        return;
    }
    if (state.playing->libraryNoise.empty()) {
        Refuse(kUnprocessable, "noise",
               on ? "was not chosen when this was started."
                  : "is part of this material as it was loaded.",
               on ? "Play again with the field \"noise\"." : "Play again without \"noise\".");
    }
    RAVOEnableNoise(on);
    m_sampler.SetNoise(on, static_cast<int64_t>(OutputPosition().FramesSent));
    Change([&](PlayerState& changed) { changed.isNoiseOn = on; });
}

void Player::EndPlay(const char* result) {
    const std::shared_ptr<const Playing> playing = Now().playing;
    const bool isLost = std::string(result) == "lost";
    const auto end = [&] {
        const int64_t frames = DueFramesPlayed(*playing);
        const auto rate = static_cast<double>(playing->record.FramesPerSecond());
        Change([&](PlayerState& state) {
            state.framesBefore += frames;
            state.delaysBefore += OutputPosition().DelayReports;
            state.last = EndedPlay{playing->material, result, static_cast<double>(frames) / rate};
            state.playing = nullptr;
            state.isNoiseOn = false;
        });
    };
    if (isLost) {
        end(); // a stop may wait for a simulator that was unplugged
    }
    RAVOStopOutput();
    const auto sent = static_cast<int64_t>(OutputPosition().FramesSent);
    m_noiseIndex = NoiseIndexAfter(*playing, sent);
    m_sampler.Finish(DueFramesPlayed(*playing));
    if (!isLost) {
        end();
    }
}

} // namespace lab::serve
