#include "lab/common/Interrupt.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

namespace lab {
namespace {

constexpr std::array<int, Interrupt::kSignals> kNumbers = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

std::array<int, 2> s_pipe = {-1, -1};
std::atomic<int> s_signal{0};

// A handler rather than a blocked signal: the library's threads exist before main, and one of them
// would receive the signal and its default action. The pipe wakes the waiting thread.
void TakeSignal(int number) {
    const int savedErrno = errno;
    s_signal.store(number);
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = ::write(s_pipe[1], &byte, 1);
    errno = savedErrno;
}

} // namespace

Interrupt::Interrupt() {
    s_signal.store(0); // a signal that ended an earlier command of this process no longer counts
    if (::pipe2(s_pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        Fail(kOutputLost, "ravo", Format("cannot make a pipe: %s.", std::strerror(errno)));
    }
    struct sigaction action {};
    action.sa_handler = TakeSignal;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    for (std::size_t i = 0; i < kSignals; ++i) {
        ::sigaction(kNumbers[i], nullptr, &m_former[i]);
        const bool isUnderNohup = kNumbers[i] == SIGHUP && m_former[i].sa_handler == SIG_IGN;
        if (!isUnderNohup) {
            ::sigaction(kNumbers[i], &action, nullptr);
        }
    }
}

Interrupt::~Interrupt() {
    for (std::size_t i = 0; i < kSignals; ++i) {
        ::sigaction(kNumbers[i], &m_former[i], nullptr);
    }
    for (int& end : s_pipe) {
        ::close(end);
        end = -1;
    }
}

bool Interrupt::WaitUntil(std::chrono::steady_clock::time_point time) const {
    using namespace std::chrono;
    constexpr int64_t kLongestWait = 60'000;
    while (Signal() == 0) {
        const auto left = ceil<milliseconds>(time - steady_clock::now()).count();
        if (left <= 0) {
            return false;
        }
        pollfd wake{s_pipe[0], POLLIN, 0};
        ::poll(&wake, 1, static_cast<int>(std::min<int64_t>(left, kLongestWait)));
    }
    return true;
}

int Interrupt::Signal() const {
    return s_signal.load();
}

void Interrupt::Ask() const {
    TakeSignal(SIGTERM);
}

void Interrupt::Forget() const {
    std::array<char, 64> bytes{};
    while (::read(s_pipe[0], bytes.data(), bytes.size()) > 0) {
    }
    s_signal.store(0);
}

void BlockTimerSignals() {
    sigset_t timers;
    sigemptyset(&timers);
    sigaddset(&timers, SIGUSR1);
    sigaddset(&timers, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &timers, nullptr);
}

} // namespace lab
