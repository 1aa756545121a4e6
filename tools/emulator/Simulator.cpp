#include "tools/emulator/Simulator.h"

#include "tools/emulator/MakePort.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace emulator {
namespace {

constexpr Clock::duration kRetryFullPort = std::chrono::milliseconds(1);
constexpr Clock::duration kLookForHost = std::chrono::milliseconds(5);
constexpr Clock::duration kSoon = std::chrono::milliseconds(100);
constexpr std::size_t kReadBytes = 4096;

// Blocks the host's signals in the simulator's threads, whichever thread creates it.
class BlockedSignals {
  public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &m_before);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

  private:
    sigset_t m_before = {};
};

timespec Until(Clock::time_point time) {
    const auto left = std::max(Clock::duration::zero(), time - Clock::now());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds);
    return {seconds.count(), rest.count()};
}

void Lower(std::optional<Clock::time_point>& wake, std::optional<Clock::time_point> other) {
    if (other) {
        wake = wake ? std::min(*wake, *other) : *other;
    }
}

} // namespace

Simulator::Simulator(const Settings& settings, Sink* sink)
    : m_settings(settings), m_journal(settings), m_sink(sink), m_behaviour(settings.behaviour),
      m_port(MakePort(settings.deviceDirectory, settings.port)) {
    m_wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_wake == -1) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    try {
        if (m_settings.isPresent) {
            SwitchOn();
        }
        const BlockedSignals blocked;
        m_thread = std::thread(&Simulator::Serve, this);
    } catch (...) {
        close(m_wake);
        throw;
    }
}

Simulator::~Simulator() {
    Do([this] {
        SwitchOff();
        m_isEnding = true;
    });
    m_thread.join();
    close(m_wake);
}

Behaviour Simulator::CurrentBehaviour() {
    Behaviour behaviour;
    Do([&] { behaviour = m_behaviour; });
    return behaviour;
}

void Simulator::Change(const std::function<void(Behaviour&)>& change) {
    Do([&] {
        const Behaviour before = m_behaviour;
        change(m_behaviour);
        Apply(before);
    });
}

void Simulator::Vanish() {
    Do([this] { SwitchOff(); });
}

void Simulator::Return() {
    Do([this] { SwitchOn(); });
}

void Simulator::Return(int port) {
    Do([this, port] {
        if (!m_port->IsPresent()) {
            m_port->Renumber(port);
            SwitchOn();
        }
    });
}

void Simulator::LoseCarrier() {
    Do([this] {
        try {
            m_port->LoseCarrier(m_behaviour.echoes);
        } catch (...) {
            SwitchOff();
            throw;
        }
        KeepLineStopped();
    });
}

bool Simulator::IsPresent() {
    bool isPresent = false;
    Do([&] { isPresent = m_port->IsPresent(); });
    return isPresent;
}

std::string Simulator::Path() {
    std::string path;
    Do([&] { path = m_port->Path(); });
    return path;
}

std::optional<Clock::time_point> Simulator::FrameTime(std::uint64_t frame) {
    LookAtClock();
    return m_journal.FrameTime(frame);
}

std::uint64_t Simulator::FramesLeftBy(Clock::time_point time) {
    LookAtClock();
    return m_journal.FramesLeftBy(time);
}

void Simulator::LookAtClock() {
    Do([this] {
        if (m_firmware) {
            m_firmware->Advance(Clock::now(), false);
        }
    });
}

void Simulator::TakeRest() {
    Do([this] {
        if (!m_firmware) {
            return;
        }
        TakeAllInput();
    });
}

void Simulator::Send(const Bytes& bytes) {
    Do([&] {
        if (m_firmware && !bytes.empty()) {
            m_firmware->Out().Send(bytes, Clock::now());
            SendNow();
        }
    });
}

void Simulator::SendStatus() {
    Do([this] {
        if (m_firmware) {
            m_firmware->SendStatus(Clock::now());
            SendNow();
        }
    });
}

void Simulator::Do(const std::function<void()>& task) {
    std::packaged_task<void()> packaged(task);
    std::future<void> done = packaged.get_future();
    {
        const lab::MutexGuard lock(m_taskMutex);
        m_tasks.push_back(std::move(packaged));
    }
    const std::uint64_t one = 1;
    while (write(m_wake, &one, sizeof one) == -1 && errno == EINTR) {
    }
    done.get();
}

void Simulator::Serve() {
    while (!m_isEnding) {
        RunTasks();
        if (m_firmware) {
            // In this order, so that a host that has just opened the port gets its reply and one
            // that has just closed it does not.
            const Clock::time_point looked = Clock::now();
            const bool isLineEmpty = TakeInput();
            NoticeHost();
            const Clock::time_point now = Clock::now();
            // A thread that was starved since its last check does not know what has arrived in the
            // meantime.
            m_firmware->Advance(now, isLineEmpty && now - looked < kSoon);
            SendDue(Clock::now());
        }
        Sleep();
    }
}

void Simulator::RunTasks() {
    std::uint64_t wakes = 0;
    while (read(m_wake, &wakes, sizeof wakes) > 0) {
    }
    for (;;) {
        std::packaged_task<void()> task;
        {
            const lab::MutexGuard lock(m_taskMutex);
            if (m_tasks.empty()) {
                return;
            }
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        task();
    }
}

void Simulator::NoticeHost() {
    const bool wasOpened = m_port->ConsumeOpeningNotice();
    const bool isPresent = m_port->IsOpenByHost();
    if (!isPresent && m_isHostPresent) {
        TakeAllInput(); // its last bytes still belong to this opening
    }
    SetHostPresent(isPresent);
    // Nothing else reports the bytes of a host that has opened and closed the port since the last
    // check.
    m_isMoreOnLine = m_isMoreOnLine || (wasOpened && !m_isHostPresent);
}

void Simulator::SetHostPresent(bool isPresent) {
    if (isPresent == m_isHostPresent) {
        return;
    }
    m_isHostPresent = isPresent;
    if (!isPresent) {
        m_port->Refresh(m_behaviour.echoes);
    }
    m_journal.Update([&](Counters& counters) {
        counters.hostOpenings += isPresent ? 1 : 0;
        counters.hostClosings += isPresent ? 0 : 1;
    });
}

bool Simulator::AcceptsBytes() const {
    return m_behaviour.line == Line::kWorking || m_behaviour.line == Line::kMute;
}

std::size_t Simulator::AcceptableBytes() const {
    return AcceptsBytes() ? std::min(m_firmware->Room(), m_behaviour.takesBytes) : 0;
}

// Reads the bytes on the line while there is room.  Returns whether nothing is left that the
// simulator would accept.
bool Simulator::TakeInput() {
    std::array<std::uint8_t, kReadBytes> bytes{};
    m_isMoreOnLine = false;
    m_firmware->Advance(Clock::now(), false);
    while (const std::size_t acceptable = std::min(AcceptableBytes(), bytes.size())) {
        const std::size_t count = m_port->Read(bytes.data(), acceptable);
        if (count == 0) {
            return true;
        }
        // A host may have opened the port, written and closed it since the last check.
        SetHostPresent(true);
        const std::size_t lost =
            m_behaviour.line == Line::kMute ? count : std::min(count, m_behaviour.losesBytes);
        m_behaviour.losesBytes -= std::min(m_behaviour.losesBytes, lost);
        m_firmware->Receive(bytes.data() + lost, count - lost, Clock::now());
        if (m_behaviour.takesBytes != SIZE_MAX) {
            const Behaviour before = m_behaviour;
            m_behaviour.takesBytes -= count;
            Apply(before);
        }
        // One piece at a time, so that replies that are due are sent in between.
        if (count == acceptable) {
            m_isMoreOnLine = true;
            return false;
        }
    }
    return !AcceptsBytes();
}

void Simulator::TakeAllInput() {
    do {
        TakeInput();
    } while (m_isMoreOnLine && AcceptableBytes() > 0);
}

// Requests sent while no host had the port open are not meant for a host that opens it later.
void Simulator::SendNow() {
    NoticeHost();
    SendDue(Clock::now());
}

void Simulator::SendDue(Clock::time_point now) {
    Outbox& out = m_firmware->Out();
    const bool isSilent = m_behaviour.line == Line::kDead || m_behaviour.line == Line::kMute ||
                          (!m_isHostPresent && !m_behaviour.keepsUnsent);
    if (isSilent) {
        out.Clear();
        return;
    }
    if (!m_isHostPresent || now < m_notBefore) {
        return;
    }
    while (const Bytes* bytes = out.Due(now)) {
        const std::size_t count = m_port->Write(bytes->data(), bytes->size());
        if (count == 0) {
            m_notBefore = now + kRetryFullPort;
            return;
        }
        out.Said(count);
    }
}

void Simulator::Sleep() {
    std::array<pollfd, 3> waits{};
    nfds_t count = 0;
    waits[count++] = {m_wake, POLLIN, 0};

    std::optional<Clock::time_point> wake;
    if (m_firmware) {
        if (m_port->OpeningNotice() != -1) {
            waits[count++] = {m_port->OpeningNotice(), POLLIN, 0};
        }
        if (m_isHostPresent) {
            // Polling for bytes that cannot be accepted would return at once.
            const short bytes = AcceptableBytes() > 0 ? POLLIN : 0;
            waits[count++] = {m_port->Control(), bytes, 0};
            if (const auto due = m_firmware->Out().NextDue()) {
                wake = std::max(*due, m_notBefore);
            }
        } else if (m_port->OpeningNotice() == -1) {
            wake = Clock::now() + kLookForHost;
        }
        Lower(wake, m_firmware->NextEvent());
        if (m_isMoreOnLine && AcceptableBytes() > 0) {
            wake = Clock::time_point();
        }
    }
    if (m_isEnding) {
        return;
    }
    const timespec timeout = wake ? Until(*wake) : timespec{};
    ppoll(waits.data(), count, wake ? &timeout : nullptr, nullptr);
}

void Simulator::SwitchOn() {
    if (m_port->IsPresent()) {
        return;
    }
    m_port->Appear(m_behaviour.echoes);
    m_firmware.emplace(m_settings, m_behaviour, m_journal, m_sink);
    m_isHostPresent = false;
    m_notBefore = {};
    KeepLineStopped();
}

void Simulator::KeepLineStopped() {
    if (m_port->IsPresent() && m_behaviour.line == Line::kFull) {
        m_port->StopLine(true);
    }
}

void Simulator::SwitchOff() {
    m_port->Vanish();
    if (m_firmware) {
        m_firmware->SwitchOff(Clock::now());
        m_firmware.reset();
    }
}

// Applies a changed behaviour to the line and the clock.
void Simulator::Apply(const Behaviour& before) {
    if (m_behaviour.takesBytes == 0) {
        m_behaviour.takesBytes = SIZE_MAX;
        m_behaviour.line = Line::kFull;
    }
    if (!m_firmware) {
        return;
    }
    const bool isStopped = m_behaviour.line == Line::kFull;
    if (isStopped != (before.line == Line::kFull)) {
        m_port->StopLine(isStopped);
    }
    if (m_behaviour.echoes != before.echoes && !m_isHostPresent) {
        m_port->Refresh(m_behaviour.echoes);
    }
    if (m_behaviour.speed != before.speed || m_behaviour.clockPpm != before.clockPpm) {
        m_firmware->ApplySpeed(Clock::now());
    }
}

} // namespace emulator
