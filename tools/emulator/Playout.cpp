#include "tools/emulator/Playout.h"

#include <algorithm>
#include <cmath>

namespace emulator {
namespace {

constexpr double kTimerFrequency = 6'000'000.0;
constexpr int kTimerModulus = 65536;
constexpr int kReloadCounts = 79;
constexpr int kLegacyReloadCounts = 12;

} // namespace

double ClockRate(std::uint16_t reload, Unit unit) {
    const int correction = unit == Unit::kLegacy ? kLegacyReloadCounts : kReloadCounts;
    return kTimerFrequency / (kTimerModulus - reload + correction);
}

Playout::Playout(double framesPerSecond, std::size_t framesPerPacket, std::size_t capacityPackets,
                 Timeline* timeline, std::uint64_t firstFrame)
    : m_clock{{}, framesPerSecond}, m_framesPerPacket(framesPerPacket),
      m_capacityPackets(std::max(capacityPackets, kBufferPackets)), m_timeline(timeline),
      m_nextFrame(firstFrame) {}

void Playout::SetRate(double framesPerSecond, Clock::time_point now) {
    Advance(now);
    m_clock.framesPerSecond = framesPerSecond;
    m_isDry = false;
    m_clock.epoch = now;
    m_taken = 0;
}

void Playout::PutOff(Clock::duration time) {
    // An output that has run out of frames is late because of the host, even if other causes
    // contribute.
    if (!m_isDry) {
        m_clock.epoch += time;
    }
}

std::size_t Playout::RoomPackets() const {
    const std::size_t held = (m_held + m_framesPerPacket - 1) / m_framesPerPacket;
    return m_capacityPackets - std::min(m_capacityPackets, held);
}

std::optional<Clock::duration> Playout::Add(Clock::time_point now) {
    m_held += m_framesPerPacket;
    if (!m_isRunning && m_held >= kBufferPackets * m_framesPerPacket) {
        m_isRunning = true;
        m_clock.epoch = now;
        m_taken = 0;
    }
    if (!m_isDry) {
        return std::nullopt;
    }
    const Clock::duration held = now - DueTime(0);
    m_isDry = false;
    m_clock.epoch = now;
    m_taken = 0;
    return held;
}

void Playout::Advance(Clock::time_point now) {
    if (!m_isRunning) {
        return;
    }
    if (m_clock.framesPerSecond <= 0) {
        m_nextFrame += m_held;
        m_held = 0;
        return;
    }
    // A product of this size may be rounded to one frame too many or too few: all but the last are
    // taken at once, and the rest by the exact times that callers wait for.
    const std::chrono::duration<double> elapsed = now - m_clock.epoch;
    const double surelyDue =
        std::floor(elapsed.count() * m_clock.framesPerSecond) - static_cast<double>(m_taken);
    Take(static_cast<std::size_t>(std::clamp(surelyDue, 0.0, static_cast<double>(m_held))));
    while (m_held > 0 && DueTime(0) <= now) {
        Take(1);
    }
}

void Playout::Take(std::size_t frames) {
    if (frames > 0 && m_timeline != nullptr) {
        m_timeline->Left(m_nextFrame, frames, m_clock, m_taken);
    }
    m_nextFrame += frames;
    m_held -= frames;
    m_taken += frames;
}

bool Playout::NoticeDry(Clock::time_point now) {
    const bool isOverdue =
        m_isRunning && m_clock.framesPerSecond > 0 && m_held == 0 && now > DueTime(0);
    const bool isNew = isOverdue && !m_isDry;
    m_isDry = m_isDry || isOverdue;
    return isNew;
}

std::optional<Clock::time_point> Playout::WhenRoomForBuffer() const {
    const std::size_t most = (m_capacityPackets - kBufferPackets) * m_framesPerPacket;
    if (!m_isRunning || m_clock.framesPerSecond <= 0 || m_held <= most) {
        return std::nullopt;
    }
    return DueTime(m_held - most - 1);
}

std::optional<Clock::time_point> Playout::WhenDry() const {
    if (!m_isRunning || m_clock.framesPerSecond <= 0 || m_isDry) {
        return std::nullopt;
    }
    return DueTime(m_held) + std::chrono::microseconds(1);
}

Clock::time_point Playout::DueTime(std::size_t framesAhead) const {
    return m_clock.TimeOf(m_taken + framesAhead);
}

} // namespace emulator
