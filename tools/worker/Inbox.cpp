#include "tools/worker/Inbox.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace worker {
namespace {

// The worker has to end within 3 s of the interpreter, even in the middle of a request.
constexpr std::chrono::milliseconds kPatience{2000};

std::array<int, 2> s_signalPipe = {-1, -1};

void TakeSignal(int /*number*/) {
    const int savedErrno = errno;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = ::write(s_signalPipe[1], &byte, 1);
    errno = savedErrno;
}

void ListenForSignals() {
    if (::pipe2(s_signalPipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    struct sigaction action {};
    action.sa_handler = TakeSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaction(number, &action, nullptr);
    }
}

// Other processes may have inherited the interpreter's end of the channel and hold it open, so the
// interpreter's end does not always close the channel.
int HandleOf(pid_t process) {
    return process > 0 ? static_cast<int>(::syscall(SYS_pidfd_open, process, 0)) : -1;
}

} // namespace

Inbox::Inbox(const Channel& channel, const lab::Interrupt& interrupt, pid_t interpreter,
             std::function<void()> abandon)
    : m_channel(channel), m_interrupt(interrupt), m_interpreter(HandleOf(interpreter)),
      m_abandon(std::move(abandon)) {
    ListenForSignals();
    m_thread = std::thread([this] { Run(); });
}

Inbox::~Inbox() {
    {
        const lab::MutexGuard guard(m_lock);
        m_isLeft = true;
    }
    m_changed.NotifyAll();
    m_thread.join();
    if (m_interpreter != -1) {
        ::close(m_interpreter);
    }
}

bool Inbox::Next(Message& request) {
    const lab::MutexGuard guard(m_lock);
    m_current = -1;
    while (!m_hasEnded && m_requests.empty()) {
        m_changed.Wait(m_lock);
    }
    if (m_hasEnded) {
        return false;
    }
    request = std::move(m_requests.front());
    m_requests.pop_front();
    m_current = request.head.value("id", int64_t{0});
    m_interrupt.Forget();
    if (request.head.value("stopped", false)) {
        m_interrupt.Ask();
    }
    return true;
}

void Inbox::Run() {
    Message message;
    while (AwaitMessage() && m_channel.Receive(message)) {
        Take(std::move(message));
        message = Message();
    }
    End();
}

// False when the worker has to end.
bool Inbox::AwaitMessage() const {
    std::array<pollfd, 3> sources = {
        {{m_channel.In(), POLLIN, 0}, {m_interpreter, POLLIN, 0}, {s_signalPipe[0], POLLIN, 0}}};
    while (::poll(sources.data(), sources.size(), -1) == -1) {
        if (errno != EINTR) {
            return false;
        }
    }
    return sources[1].revents == 0 && sources[2].revents == 0;
}

void Inbox::Take(Message message) {
    const lab::MutexGuard guard(m_lock);
    if (message.head.value("do", "") != "stop") {
        m_requests.push_back(std::move(message));
        m_changed.NotifyAll();
        return;
    }
    // A stop that comes too late must not end the next request.
    const auto meant = message.head.value("stops", int64_t{-2});
    if (meant == m_current) {
        m_interrupt.Ask();
    }
    for (auto request = m_requests.begin(); request != m_requests.end(); ++request) {
        if (request->head.value("id", int64_t{0}) == meant) {
            request->head["stopped"] = true;
        }
    }
}

void Inbox::End() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    const lab::MutexGuard guard(m_lock);
    m_hasEnded = true;
    m_interrupt.Ask();
    m_changed.NotifyAll();
    bool isInTime = true;
    while (!m_isLeft && isInTime) {
        isInTime = m_changed.WaitUntil(m_lock, deadline);
    }
    if (!m_isLeft) {
        m_abandon();
    }
}

} // namespace worker
