#include "lab/serve/Connection.h"

#include "lab/common/Text.h"
#include "lab/serve/Address.h"

#include <algorithm>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace lab::serve {
namespace {

// About ten seconds of samples. All viewers' queues share the same texts, so together they take
// little more than one.
constexpr std::size_t kMostEvents = 400;
constexpr std::size_t kMostEventBytes = std::size_t{2} << 20;

// The system's send buffer for a viewer that does not read.
constexpr int kViewerBuffer = 128 << 10;

// An event is sent every second at least, and TCP acknowledges it at once: a machine that is still
// connected sends something within this time, even if the page does not read.
constexpr unsigned kLongestSilence = 2000; // milliseconds

// A server that was starved of processor time has sent nothing in the meantime, and the
// acknowledgement of an event sent just now takes a moment.
constexpr int kSilentLooks = 3;

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

void Connection::Append(SharedText text) {
    m_waiting += text->size();
    m_output.push_back(std::move(text));
}

void Connection::Send(std::string text) {
    Append(std::make_shared<const std::string>(std::move(text)));
}

void Connection::SendEvent(const SharedText& event) {
    if (m_output.empty()) {
        m_since = std::chrono::steady_clock::now();
    }
    Append(event);
}

bool Connection::IsFull() const {
    return m_output.size() >= kMostEvents || m_waiting >= kMostEventBytes;
}

bool Connection::HasVanished() {
    tcp_info information{};
    socklen_t size = sizeof information;
    const bool isSilent = ::getsockopt(m_socket, IPPROTO_TCP, TCP_INFO, &information, &size) == 0 &&
                          information.tcpi_unacked > 0 &&
                          information.tcpi_last_ack_recv > kLongestSilence;
    m_silentLooks = isSilent ? m_silentLooks + 1 : 0;
    return m_silentLooks == kSilentLooks;
}

void Connection::SkipToNow(const SharedText& state) {
    m_skipped = DropWaiting();
    m_note = EventText("skipped", Format("{\"events\":%zu}", m_skipped));
    Append(m_note);
    Append(state);
}

// The number of events that the viewer has missed by it. A note that has not been sent is none of
// them, but those that it told of are.
std::size_t Connection::DropWaiting() {
    const auto first = m_output.begin() + (m_sent > 0 ? 1 : 0);
    const bool isNoteLost = std::find(first, m_output.end(), m_note) != m_output.end();
    const auto dropped = static_cast<std::size_t>(m_output.end() - first);
    m_output.erase(first, m_output.end());
    m_waiting = m_output.empty() ? 0 : m_output.front()->size() - m_sent;
    return isNoteLost ? dropped - 1 + m_skipped : dropped;
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
        m_waiting -= static_cast<std::size_t>(count);
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
