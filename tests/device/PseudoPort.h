#pragma once

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <termios.h>
#include <thread>
#include <unistd.h>

// A pseudo-terminal of which the library holds one end and a test the other.
class PseudoPort {
  public:
    PseudoPort() {
        int hostSide = -1;
        char path[256] = "";
        EXPECT_EQ(openpty(&m_deviceSide, &hostSide, path, nullptr, nullptr), 0);
        m_hostPath = path;
        // Raw from the start, so that nothing is echoed before the library configures the line.
        termios attributes{};
        tcgetattr(hostSide, &attributes);
        cfmakeraw(&attributes);
        tcsetattr(hostSide, TCSANOW, &attributes);
        m_keepAlive = hostSide;
    }
    ~PseudoPort() {
        Unplug();
        HangUp();
    }
    PseudoPort(const PseudoPort&) = delete;
    PseudoPort& operator=(const PseudoPort&) = delete;

    // Appears as /dev/ttyACM<number>.
    void Plug(int number) {
        m_link = "/dev/ttyACM" + std::to_string(number);
        EXPECT_EQ(symlink(m_hostPath.c_str(), m_link.c_str()), 0) << m_link;
    }
    void Unplug() {
        if (!m_link.empty()) {
            unlink(m_link.c_str());
            m_link.clear();
        }
    }
    void HangUp() {
        if (m_deviceSide != -1) {
            close(m_deviceSide);
            close(m_keepAlive);
            m_deviceSide = -1;
        }
    }

    // A handle such as the library opens for itself.
    int OpenHostSide() const {
        return open(m_hostPath.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    }
    int HostSide() const { return m_keepAlive; }

    void Send(const std::string& bytes) const {
        EXPECT_EQ(write(m_deviceSide, bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Fills the line from the library to the device until it stays full.
    void Fill() const {
        const std::string bytes(4096, '\0');
        const int hostSide = OpenHostSide();
        pollfd line{hostSide, POLLOUT, 0};
        while (poll(&line, 1, 200) > 0) {
            while (write(hostSide, bytes.data(), bytes.size()) > 0) {
            }
        }
        close(hostSide);
    }

    // This many bytes from the library, or fewer when no more arrive for a long time.
    std::string Receive(size_t count) const { return Receive(count, std::chrono::seconds(20)); }
    // The bytes that have arrived so far.
    std::string ReceivePending() const { return Receive(100000, std::chrono::milliseconds(50)); }

  private:
    std::string Receive(size_t count, std::chrono::milliseconds silence) const {
        std::string received;
        while (received.size() < count) {
            pollfd request{m_deviceSide, POLLIN, 0};
            char bytes[4096];
            if (poll(&request, 1, static_cast<int>(silence.count())) <= 0) {
                break;
            }
            const size_t wanted = std::min(sizeof bytes, count - received.size());
            const ssize_t got = read(m_deviceSide, bytes, wanted);
            if (got <= 0) {
                break;
            }
            received.append(bytes, static_cast<size_t>(got));
        }
        return received;
    }

    int m_deviceSide = -1;
    int m_keepAlive = -1;
    std::string m_hostPath;
    std::string m_link;
};

// The device's part of an exchange, on a thread of its own until the end of the scope.
class Peer {
  public:
    template <typename Script>
    explicit Peer(Script script) : m_thread(script) {}
    ~Peer() { m_thread.join(); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

  private:
    std::thread m_thread;
};

template <size_t N>
std::string Bytes(const unsigned char (&bytes)[N]) {
    return {reinterpret_cast<const char*>(bytes), N};
}

inline const std::string kIdentity("RV20\0", 5);
