#pragma once

// What an answer costs on this machine without the library: the same bytes, requested and written
// over the same kind of port, by two threads that do nothing else.  Whatever stalls these threads
// stalls the library, too, so this is the lower bound of its answer times.

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <stdlib.h>
#include <system_error>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

class BareExchange {
  public:
    BareExchange() : m_device(Checked(posix_openpt(O_RDWR | O_NOCTTY))) {
        std::array<char, 64> path{};
        Checked(grantpt(m_device));
        Checked(unlockpt(m_device));
        Checked(ptsname_r(m_device, path.data(), path.size()) == 0 ? 0 : -1);
        m_host = Checked(open(path.data(), O_RDWR | O_NOCTTY));
        termios settings{};
        Checked(tcgetattr(m_host, &settings));
        cfmakeraw(&settings);
        Checked(tcsetattr(m_host, TCSANOW, &settings));
    }
    ~BareExchange() {
        close(m_host);
        close(m_device);
    }
    BareExchange(const BareExchange&) = delete;
    BareExchange& operator=(const BareExchange&) = delete;

    // One request in each period, and the time from it to the last byte of its answer.
    std::vector<std::chrono::microseconds> Measure(std::size_t answers,
                                                   std::chrono::microseconds period) {
        std::thread host([this, answers] {
            for (std::size_t i = 0; i < answers; ++i) {
                Answer();
            }
        });
        std::vector<std::chrono::microseconds> times;
        times.reserve(answers);
        for (std::size_t i = 0; i < answers; ++i) {
            std::this_thread::sleep_for(period);
            times.push_back(TimeOfOneAnswer());
        }
        host.join();
        return times;
    }

  private:
    static constexpr std::size_t kRequest = 2;
    static constexpr std::size_t kAnswer = 3200;
    static constexpr std::size_t kPiece = 64;

    static int Checked(int result) {
        if (result == -1) {
            throw std::system_error(errno, std::generic_category(), "bare exchange");
        }
        return result;
    }
    static std::size_t Count(ssize_t result) {
        Checked(static_cast<int>(result));
        return static_cast<std::size_t>(result);
    }

    void Answer() const {
        std::array<std::uint8_t, kPiece> piece{};
        for (std::size_t got = 0; got < kRequest;) {
            got += Count(read(m_host, piece.data(), kRequest - got));
        }
        for (std::size_t sent = 0; sent < kAnswer;) {
            sent += Count(write(m_host, piece.data(), kPiece));
        }
    }

    std::chrono::microseconds TimeOfOneAnswer() const {
        using Clock = std::chrono::steady_clock;
        constexpr std::array<std::uint8_t, kRequest> request = {'N', 0};
        std::array<std::uint8_t, kAnswer> answer{};
        const Clock::time_point asked = Clock::now();
        Count(write(m_device, request.data(), request.size()));
        for (std::size_t got = 0; got < kAnswer;) {
            got += Count(read(m_device, answer.data(), kAnswer - got));
        }
        return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - asked);
    }

    int m_device;
    int m_host = -1;
};
