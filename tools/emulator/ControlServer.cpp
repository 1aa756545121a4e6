// The control socket of a running emulator.
#include "tools/emulator/Control.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace emulator {
namespace {

constexpr std::size_t kLongestLine = std::size_t{64} * 1024;

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
    }
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    return address;
}

[[noreturn]] void Fail(const std::string& what, int& handle) {
    const int error = errno;
    if (handle != -1) {
        close(std::exchange(handle, -1));
    }
    throw std::system_error(error, std::generic_category(), what);
}

int Connect(const std::string& path) {
    const sockaddr_un address = AddressOf(path);
    int handle = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (handle == -1 ||
        connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        Fail("no emulator listens on " + path, handle);
    }
    return handle;
}

// Removes a socket whose owner has ended; fails for one that answers.
void RemoveAbandoned(const std::string& path) {
    try {
        close(Connect(path));
    } catch (const std::system_error& error) {
        if (error.code().value() == ECONNREFUSED) {
            unlink(path.c_str());
        }
    }
}

bool SendLine(int connection, const std::string& line) {
    const std::string whole = line + "\n";
    std::size_t done = 0;
    while (done < whole.size()) {
        const ssize_t count =
            send(connection, whole.data() + done, whole.size() - done, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace

ControlServer::ControlServer(std::string path, Simulator& simulator)
    : m_path(std::move(path)), m_simulator(simulator) {
    Listen();
    m_end = eventfd(0, EFD_CLOEXEC);
    if (m_end == -1) {
        Fail("eventfd", m_listener);
    }
    m_thread = std::thread(&ControlServer::Serve, this);
}

ControlServer::~ControlServer() {
    const std::uint64_t one = 1;
    while (write(m_end, &one, sizeof one) == -1 && errno == EINTR) {
    }
    m_thread.join();
    close(m_listener);
    close(m_end);
    unlink(m_path.c_str());
}

void ControlServer::Listen() {
    const sockaddr_un address = AddressOf(m_path);
    RemoveAbandoned(m_path);
    m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_listener == -1 ||
        bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_listener, 4) != 0) {
        Fail("cannot listen on " + m_path, m_listener);
    }
}

void ControlServer::Serve() {
    for (;;) {
        std::array<pollfd, 2> waits = {{{m_end, POLLIN, 0}, {m_listener, POLLIN, 0}}};
        poll(waits.data(), waits.size(), -1);
        if (waits[0].revents != 0) {
            return;
        }
        const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection != -1) {
            ServeConnection(connection);
            close(connection);
        }
    }
}

void ControlServer::ServeConnection(int connection) {
    std::string pending;
    for (;;) {
        std::array<pollfd, 2> waits = {{{m_end, POLLIN, 0}, {connection, POLLIN, 0}}};
        poll(waits.data(), waits.size(), -1);
        if (waits[0].revents != 0) {
            return;
        }
        std::array<char, 1024> piece{};
        const ssize_t count = recv(connection, piece.data(), piece.size(), MSG_DONTWAIT);
        if (count == 0 || (count == -1 && errno != EAGAIN && errno != EINTR)) {
            return;
        }
        pending.append(piece.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        for (std::size_t end = pending.find('\n'); end != std::string::npos;
             end = pending.find('\n')) {
            if (!SendLine(connection, Execute(m_simulator, pending.substr(0, end)))) {
                return;
            }
            pending.erase(0, end + 1);
        }
        if (pending.size() > kLongestLine) {
            return;
        }
    }
}

std::string Tell(const std::string& path, const std::string& line) {
    int connection = Connect(path);
    if (!SendLine(connection, line)) {
        Fail("the emulator on " + path + " does not accept the command", connection);
    }
    std::string reply;
    std::array<char, 1024> piece{};
    while (reply.find('\n') == std::string::npos) {
        const ssize_t count = recv(connection, piece.data(), piece.size(), 0);
        if (count <= 0) {
            Fail("the emulator on " + path + " does not answer", connection);
        }
        reply.append(piece.data(), static_cast<std::size_t>(count));
    }
    close(connection);
    return reply.substr(0, reply.find('\n'));
}

} // namespace emulator
