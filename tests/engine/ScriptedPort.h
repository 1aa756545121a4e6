#pragma once

#include "device/Device.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <initializer_list>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <termios.h>
#include <unistd.h>
#include <vector>

// The engine's open port is one end of a pseudo-terminal, and the test is the simulator at the
// other: it receives every byte on the line and sends any bytes it likes.
class ScriptedPort {
  public:
    ScriptedPort() : m_simulator(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK)) {
        if (m_simulator == -1 || grantpt(m_simulator) != 0 || unlockpt(m_simulator) != 0) {
            throw std::runtime_error("no pseudo-terminal");
        }
        m_host = open(ptsname(m_simulator), O_RDWR | O_NOCTTY | O_NONBLOCK);
        termios raw{};
        tcgetattr(m_host, &raw);
        cfmakeraw(&raw);
        tcsetattr(m_host, TCSANOW, &raw);
        StoreShared(g_hDevice, m_host);
    }
    ~ScriptedPort() {
        Unplug();
        close(m_host);
        close(m_simulator);
    }
    ScriptedPort(const ScriptedPort&) = delete;
    ScriptedPort& operator=(const ScriptedPort&) = delete;

    // The library has closed its port, as the monitor does after a loss.
    void Unplug() { StoreShared(g_hDevice, -1); }

    void Send(std::initializer_list<unsigned char> bytes) {
        ssize_t sent = 0;
        do {
            sent = write(m_simulator, bytes.begin(), bytes.size());
        } while (sent == -1 && errno == EINTR); // the timer signals of running output
        if (sent != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("the line does not accept the simulator's bytes");
        }
    }
    void AskForBuffer() { Send({'N', 0}); }

    // This many bytes from the host, or fewer when they do not arrive in time.
    std::vector<unsigned char> Receive(size_t count, int milliseconds = 20000) {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        std::vector<unsigned char> received;
        while (received.size() < count && IsReadableBefore(deadline)) {
            unsigned char bytes[4096];
            const size_t wanted = std::min(sizeof bytes, count - received.size());
            const ssize_t got = read(m_simulator, bytes, wanted);
            if (got > 0) {
                received.insert(received.end(), bytes, bytes + got);
            } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
                break;
            }
        }
        return received;
    }

    // Whether the host sends nothing for this long.
    bool IsQuietFor(int milliseconds) { return Receive(1, milliseconds).empty(); }

    // Fills the line until it stays full.
    void Fill() {
        const std::vector<unsigned char> bytes(4096);
        const timespec settled{0, 200000000};
        sigset_t all; // the timer signals of running output would cut the wait short
        sigfillset(&all);
        pollfd line{m_host, POLLOUT, 0};
        while (ppoll(&line, 1, &settled, &all) != 0) {
            while (write(m_host, bytes.data(), bytes.size()) > 0) {
            }
        }
    }

  private:
    // The timer signals of running output cut a poll short.
    bool IsReadableBefore(std::chrono::steady_clock::time_point deadline) const {
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd line{m_simulator, POLLIN, 0};
            const int ready = poll(&line, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
            if (ready != -1 || errno != EINTR) {
                return ready == 1;
            }
        }
    }

    int m_simulator;
    int m_host = -1;
};
