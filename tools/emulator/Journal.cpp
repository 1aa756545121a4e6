#include "tools/emulator/Journal.h"

#include <algorithm>

namespace emulator {
namespace {

constexpr std::size_t kKeepCommands = 10'000;
constexpr std::size_t kKeepAnswerTimes = 1'000'000;

} // namespace

Journal::Journal(const Settings& settings)
    : m_keepFrames(settings.keepFrames), m_keepBytes(settings.keepBytes) {}

Counters Journal::Count() const {
    const lab::MutexGuard lock(m_mutex);
    return m_counters;
}

std::vector<Codes> Journal::Frames() const {
    const lab::MutexGuard lock(m_mutex);
    return m_frames;
}

std::vector<SeenStart> Journal::Starts() const {
    const lab::MutexGuard lock(m_mutex);
    return m_starts;
}

std::vector<SeenCommand> Journal::Commands() const {
    const lab::MutexGuard lock(m_mutex);
    return m_commands;
}

std::uint64_t Journal::CountOf(Command command) const {
    const lab::MutexGuard lock(m_mutex);
    const auto found = m_countOf.find(command);
    return found == m_countOf.end() ? 0 : found->second;
}

std::vector<Codes> Journal::StaticValues() const {
    const lab::MutexGuard lock(m_mutex);
    return m_staticValues;
}

Bytes Journal::ReceivedBytes() const {
    const lab::MutexGuard lock(m_mutex);
    return m_bytes;
}

std::vector<std::chrono::microseconds> Journal::AnswerTimes() const {
    const lab::MutexGuard lock(m_mutex);
    return m_answerTimes;
}

template <typename IsMet>
bool Journal::WaitUntil(const IsMet& isMet, Milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const lab::MutexGuard lock(m_mutex);
    bool isInTime = true;
    while (!isMet(m_counters, m_countOf)) {
        if (!isInTime) {
            return false;
        }
        isInTime = m_changed.WaitUntil(m_mutex, deadline);
    }
    return true;
}

bool Journal::WaitFor(const std::function<bool(const Counters&)>& condition,
                      Milliseconds timeout) const {
    return WaitUntil([&](const Counters& seen, const auto&) { return condition(seen); }, timeout);
}

bool Journal::WaitForFrames(std::uint64_t frames, Milliseconds timeout) const {
    return WaitFor([&](const Counters& seen) { return seen.frames >= frames; }, timeout);
}

bool Journal::WaitForStarts(std::uint64_t starts, Milliseconds timeout) const {
    return WaitFor([&](const Counters& seen) { return seen.starts >= starts; }, timeout);
}

bool Journal::WaitForStops(std::uint64_t stops, Milliseconds timeout) const {
    return WaitFor([&](const Counters& seen) { return seen.stops >= stops; }, timeout);
}

bool Journal::WaitForCommand(Command command, std::uint64_t times, Milliseconds timeout) const {
    return WaitUntil(
        [&](const Counters&, const auto& countOf) {
            const auto found = countOf.find(command);
            return times == 0 || (found != countOf.end() && found->second >= times);
        },
        timeout);
}

void Journal::Update(const std::function<void(Counters&)>& change) {
    const lab::MutexGuard lock(m_mutex);
    change(m_counters);
    m_changed.NotifyAll();
}

void Journal::AddBytes(const std::uint8_t* bytes, std::size_t count) {
    const lab::MutexGuard lock(m_mutex);
    m_counters.bytes += count;
    if (m_keepBytes) {
        m_bytes.insert(m_bytes.end(), bytes, bytes + count);
    }
    m_changed.NotifyAll();
}

void Journal::AddFrames(const std::vector<Codes>& frames) {
    const lab::MutexGuard lock(m_mutex);
    const std::size_t kept = std::min(frames.size(), m_keepFrames - m_frames.size());
    m_frames.insert(m_frames.end(), frames.begin(),
                    frames.begin() + static_cast<std::ptrdiff_t>(kept));
    m_counters.frames += frames.size();
    m_changed.NotifyAll();
}

void Journal::AddStart(SeenStart start) {
    const lab::MutexGuard lock(m_mutex);
    start.firstFrame = m_counters.frames;
    m_starts.push_back(start);
    ++m_counters.starts;
    m_changed.NotifyAll();
}

void Journal::AddCommand(Command command, const std::uint8_t* bytes, std::size_t length) {
    const lab::MutexGuard lock(m_mutex);
    ++m_countOf[command];
    if (m_commands.size() < kKeepCommands) {
        m_commands.push_back({command, Bytes(bytes, bytes + length)});
    }
    m_changed.NotifyAll();
}

void Journal::AddStaticValue(const Codes& codes) {
    const lab::MutexGuard lock(m_mutex);
    m_staticValues.push_back(codes);
    m_changed.NotifyAll();
}

void Journal::AddAnswerTime(Clock::duration time) {
    const lab::MutexGuard lock(m_mutex);
    if (m_answerTimes.size() < kKeepAnswerTimes) {
        m_answerTimes.push_back(std::chrono::duration_cast<std::chrono::microseconds>(time));
    }
}

} // namespace emulator
