#include "tests/support/HostLine.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

int MillisecondsUntil(steady_clock::time_point end) {
    const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now()).count();
    return static_cast<int>(std::max<milliseconds::rep>(0, left));
}

short WaitFor(int handle, short events, steady_clock::time_point end) {
    pollfd wait{handle, events, 0};
    return poll(&wait, 1, MillisecondsUntil(end)) > 0 ? wait.revents : short{0};
}

} // namespace

HostLine::HostLine(const std::string& path)
    : m_handle(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    MakeRaw();
}

HostLine::~HostLine() {
    Close();
}

void HostLine::Close() {
    if (m_handle != -1) {
        close(m_handle);
        m_handle = -1;
    }
}

void HostLine::MakeRaw() const {
    termios settings = {};
    if (tcgetattr(m_handle, &settings) == 0) {
        cfmakeraw(&settings);
        tcsetattr(m_handle, TCSANOW, &settings);
    }
}

bool HostLine::Write(const std::vector<std::uint8_t>& bytes, milliseconds timeout) const {
    const auto end = steady_clock::now() + timeout;
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = write(m_handle, bytes.data() + done, bytes.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if ((errno != EAGAIN && errno != EINTR) || WaitFor(m_handle, POLLOUT, end) == 0) {
            return false;
        }
    }
    return true;
}

std::vector<std::uint8_t> HostLine::Read(std::size_t count, milliseconds timeout) const {
    const auto end = steady_clock::now() + timeout;
    std::vector<std::uint8_t> bytes(count);
    std::size_t done = 0;
    while (done < count && WaitFor(m_handle, POLLIN, end) != 0) {
        const ssize_t got = read(m_handle, bytes.data() + done, count - done);
        if (got == 0 || (got == -1 && errno != EAGAIN && errno != EINTR)) {
            break;
        }
        done += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    bytes.resize(done);
    return bytes;
}

std::vector<std::uint8_t> HostLine::ReadFor(milliseconds time) const {
    constexpr std::size_t kMore = 64 * 1024;
    return Read(kMore, time);
}

std::vector<std::uint8_t> HostLine::Ask(const std::vector<std::uint8_t>& command,
                                        std::size_t count) const {
    return Write(command) ? Read(count) : std::vector<std::uint8_t>{};
}

bool HostLine::IsWritable(milliseconds timeout) const {
    return (WaitFor(m_handle, POLLOUT, steady_clock::now() + timeout) & POLLOUT) != 0;
}

bool HostLine::IsHungUp(milliseconds timeout) const {
    return (WaitFor(m_handle, 0, steady_clock::now() + timeout) & POLLHUP) != 0;
}
