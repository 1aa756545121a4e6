#include "lab/serve/Connection.h"

#include "lab/common/Text.h"
#include "lab/serve/Address.h"

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace lab::serve {
namespace {

// Some ten seconds of samples; every viewer's queue shares the same texts.
constexpr std::size_t kMostEvents = 400;

// What the system keeps for a viewer that does not read.
constexpr int kViewerBuffer = 128 << 10;

} // namespace

Connection::Connection(int socket)
    : m_socket(socket), m_localAddress(LocalAddressOf(socket)),
      m_since(std::chrono::steady_clock::now()) {
    const int yes = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

Connection::~Connection() {
    ::close(m_socket);
}

void Connection::Enter(Stage stage) {
    m_stage = stage;
    m_since = std::chrono::steady_clock::now();
    if (stage == Stage::kViewing) {
        ::setsockopt(m_socket, SOL_SOCKET, SO_SNDBUF, &kViewerBuffer, sizeof kViewerBuffer);
    }
}

void Connection::Send(std::string text) {
    m_output.push_back(std::make_shared<const std::string>(std::move(text)));
}

void Connection::SendEvent(const SharedText& event) {
    if (m_output.empty()) {
        m_since = std::chrono::steady_clock::now();
    }
    m_output.push_back(event);
}

bool Connection::IsFull() const {
    return m_output.size() >= kMostEvents;
}

void Connection::SkipToNow(const SharedText& state) {
    const std::size_t kept = m_sent > 0 ? 1 : 0;
    const std::size_t skipped = m_output.size() - kept;
    m_output.resize(kept);
    m_output.push_back(EventText("skipped", Format("{\"events\":%zu}", skipped)));
    m_output.push_back(state);
}

bool Connection::Flush() {
    while (!m_output.empty()) {
        const std::string& text = *m_output.front();
        const ssize_t count = ::send(m_socket, text.data() + m_sent, text.size() - m_sent,
                                     MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        }
        m_since = std::chrono::steady_clock::now();
        m_sent += static_cast<std::size_t>(count);
        if (m_sent == text.size()) {
            m_output.pop_front();
            m_sent = 0;
        }
    }
    return true;
}

SharedText EventText(const char* name, const std::string& data) {
    return std::make_shared<const std::string>(std::string("event: ") + name + "\ndata: " + data +
                                               "\n\n");
}

} // namespace lab::serve
