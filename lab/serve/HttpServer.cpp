#include "lab/serve/HttpServer.h"

#include "lab/serve/HttpFailure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace lab::serve {
namespace {

using namespace std::chrono_literals;
using Stage = Connection::Stage;

constexpr uint64_t kListenerId = 0;
constexpr uint64_t kWakeId = 1;
constexpr uint64_t kFirstId = 2;

// Half of a process's usual number of descriptors, so that enough are left for everything else.
constexpr std::size_t kMostConnections = 500;
constexpr int kMostViewers = 200;
constexpr std::size_t kCommandThreads = 16;
constexpr std::size_t kBrowsingThreads = 2;
constexpr std::size_t kLongestQueue = 64;

// Limit of the memory for answers that clients are slow to read.
constexpr std::size_t kMostWaitingBytes = std::size_t{64} << 20;

constexpr auto kStateInterval = 1s;
constexpr auto kLookInterval = 200ms;
constexpr auto kReadingTime = 10s;
constexpr auto kWritingTime = 30s;
constexpr auto kDrainingTime = 5s;
constexpr auto kViewerSilence = 60s; // after which a viewer that reads nothing counts as gone

// Requests that are answered from memory, at once.
constexpr std::array<const char*, 4> kQuickTargets = {"/", "/api/state", "/api/events", "/metrics"};

bool IsTargetOf(const std::string& head, const char* target) {
    const std::size_t begin = head.find(' ') + 1;
    const std::string found = head.substr(begin, head.find_first_of(" ?\r", begin) - begin);
    return found == target;
}

bool IsQuick(const std::string& head) {
    return std::any_of(kQuickTargets.begin(), kQuickTargets.end(),
                       [&](const char* target) { return IsTargetOf(head, target); }) &&
           head.rfind("POST ", 0) != 0;
}

} // namespace

HttpServer::HttpServer(const Listener& listener, HttpHandler handler, StateSource state)
    : m_listener(listener), m_state(std::move(state)), m_exchange(std::move(handler)),
      m_poll(::epoll_create1(EPOLL_CLOEXEC)), m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_nextId(kFirstId), m_commands(kCommandThreads, kLongestQueue),
      m_browsing(kBrowsingThreads, kLongestQueue) {
    Watch(m_listener.Descriptor(), kListenerId);
    Watch(m_wake, kWakeId);
}

HttpServer::~HttpServer() {
    ::close(m_poll);
    ::close(m_wake);
}

void HttpServer::Watch(int descriptor, Id id) const {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP;
    event.data.u64 = id;
    ::epoll_ctl(m_poll, EPOLL_CTL_ADD, descriptor, &event);
}

void HttpServer::Run() {
    std::array<epoll_event, 64> events{};
    while (!m_isStopping.load()) {
        const int count = ::epoll_wait(m_poll, events.data(), static_cast<int>(events.size()),
                                       PatienceMilliseconds());
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<std::size_t>(i)];
            Dispatch(event.data.u64, event.events);
        }
        TakeAnswered();
        TakeEvents();
        ShowViewers();
        EndLate();
        DropVanished();
    }
    m_commands.End();
    m_browsing.End();
    TakeAnswered();
    TakeEvents(); // the last events, as far as viewers accept them at once
}

int HttpServer::PatienceMilliseconds() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_nextState - Clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, 200));
}

void HttpServer::Stop() {
    m_isStopping.store(true);
    Wake();
}

void HttpServer::Wake() const {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wake, &one, sizeof one);
}

void HttpServer::PublishState() {
    {
        const MutexGuard lock(m_lock);
        m_events.push_back(nullptr);
    }
    Wake();
}

void HttpServer::PublishSamples(const std::string& data) {
    SharedText event = EventText("samples", data);
    {
        const MutexGuard lock(m_lock);
        m_events.push_back(std::move(event));
    }
    Wake();
}

// ---- Connections --------------------------------------------------------------------------------

void HttpServer::Dispatch(Id id, uint32_t events) {
    if (id == kListenerId) {
        Accept();
        return;
    }
    if (id == kWakeId) {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t read = ::read(m_wake, &count, sizeof count);
        return;
    }
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        Close(id);
        return;
    }
    if ((events & (EPOLLIN | EPOLLRDHUP)) != 0) {
        Read(id);
    }
    if ((events & EPOLLOUT) != 0) {
        Write(id);
    }
}

void HttpServer::Accept() {
    constexpr int kAtOnce = 64; // then it is the others' turn
    for (int i = 0; i < kAtOnce; ++i) {
        if (m_connections.size() >= kMostConnections && !DropOldest()) {
            return;
        }
        const int socket =
            ::accept4(m_listener.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (socket == -1) {
            if ((errno == EMFILE || errno == ENFILE) && DropOldest()) {
                continue;
            }
            return;
        }
        const Id id = m_nextId++;
        m_connections[id] = std::make_unique<Connection>(socket);
        Watch(socket, id);
    }
}

// Closes the connection that has waited longest for a request, or for its answer to be read, in
// favour of a new client. There always is one: answers in progress and viewers are fewer than the
// limit.
bool HttpServer::DropOldest() {
    const auto oldest =
        std::find_if(m_connections.begin(), m_connections.end(), [](const auto& entry) {
            const Stage stage = entry.second->Now();
            return stage != Stage::kAnswering && stage != Stage::kViewing;
        });
    if (oldest == m_connections.end()) {
        return false;
    }
    m_connections.erase(oldest);
    return true;
}

void HttpServer::Read(Id id) {
    constexpr int kAtOnce = 16; // then it is the others' turn
    std::array<char, 16384> bytes{};
    for (int i = 0; i < kAtOnce; ++i) {
        const auto found = m_connections.find(id);
        if (found == m_connections.end()) {
            return;
        }
        const ssize_t count = ::recv(found->second->Socket(), bytes.data(), bytes.size(), 0);
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
            return;
        }
        if (count <= 0) {
            const Stage stage = found->second->Now();
            const bool isAwaited = stage == Stage::kAnswering || stage == Stage::kWriting;
            if (count < 0 || !isAwaited) {
                Close(id);
            } else {
                WatchWrites(id); // the client has sent everything and still wants its answer
            }
            return;
        }
        TakeBytes(id, bytes.data(), static_cast<std::size_t>(count));
    }
}

void HttpServer::TakeBytes(Id id, const char* bytes, std::size_t count) {
    Connection& connection = *m_connections.at(id);
    if (connection.Now() != Stage::kReading) {
        return; // one request for a connection
    }
    try {
        const Framing::State state = connection.Request().Take(bytes, count);
        if (state == Framing::State::kComplete) {
            Answer(id);
        } else if (connection.Request().TakeExpectation()) {
            connection.Send("HTTP/1.1 100 Continue\r\n\r\n");
            Write(id);
        }
    } catch (const Failure& failure) {
        Refuse(id, failure);
    }
}

// ---- Answers ------------------------------------------------------------------------------------

void HttpServer::Answer(Id id) {
    Connection& connection = *m_connections.at(id);
    connection.Enter(Stage::kAnswering);
    const RawRequest request{connection.Request().Head(), connection.Request().Body(),
                             connection.LocalAddress(), Clock::now()};
    if (IsQuick(request.head)) {
        Finish(id, m_exchange.Run(request));
        return;
    }
    Pool& pool = request.head.rfind("POST ", 0) == 0 ? m_commands : m_browsing;
    const bool isTaken = pool.Post([this, id, request] {
        RawAnswer answer = m_exchange.Run(request);
        {
            const MutexGuard lock(m_lock);
            m_answered.push_back({id, std::move(answer)});
        }
        Wake();
    });
    if (!isTaken) {
        Refuse(id, HttpFailure(503, "ravo-serve", "has too many requests to answer.",
                               "Ask again in a moment."));
    }
}

void HttpServer::TakeAnswered() {
    std::vector<Answered> answered;
    {
        const MutexGuard lock(m_lock);
        answered.swap(m_answered);
    }
    for (const Answered& one : answered) {
        if (m_connections.count(one.id) != 0) {
            Finish(one.id, one.answer);
        }
    }
}

void HttpServer::Finish(Id id, const RawAnswer& answer) {
    Connection& connection = *m_connections.at(id);
    if (answer.isEventStream) {
        if (m_viewers.load() >= kMostViewers) {
            Refuse(id, HttpFailure(503, "/api/events", "has as many viewers as it can serve.",
                                   "Close a page somewhere else."));
            return;
        }
        BecomeViewer(connection);
    } else {
        MakeRoomFor(answer.bytes.size());
        connection.Send(answer.bytes);
        connection.Enter(Stage::kWriting);
    }
    Write(id);
}

// Closes the connection whose client has gone longest without reading its answer.
void HttpServer::MakeRoomFor(std::size_t bytes) {
    std::size_t waiting = bytes;
    std::multimap<Clock::duration, Id, std::greater<>> byIdleness;
    const auto now = Clock::now();
    for (const auto& [id, connection] : m_connections) {
        if (connection->Now() == Stage::kWriting) {
            waiting += connection->Waiting();
            byIdleness.emplace(connection->Idle(now), id);
        }
    }
    for (const auto& [idle, id] : byIdleness) {
        if (waiting <= kMostWaitingBytes) {
            return;
        }
        waiting -= m_connections.at(id)->Waiting();
        Close(id);
    }
}

void HttpServer::BecomeViewer(Connection& connection) {
    HttpAnswer answer;
    answer.type = "text/event-stream";
    answer.isEventStream = true;
    connection.Enter(Stage::kViewing);
    connection.Send(WholeAnswer(answer));
    ++m_viewers;
    connection.SendEvent(StateEvent());
}

void HttpServer::Refuse(Id id, const std::exception& error) {
    Connection& connection = *m_connections.at(id);
    connection.Send(WholeAnswer(FailedAnswer(error)));
    connection.Enter(Stage::kWriting);
    Write(id);
}

void HttpServer::Write(Id id) {
    const auto found = m_connections.find(id);
    if (found == m_connections.end()) {
        return;
    }
    Connection& connection = *found->second;
    if (!connection.Flush()) {
        Close(id);
        return;
    }
    if (!connection.HasOutput() && connection.Now() == Stage::kWriting) {
        ::shutdown(connection.Socket(), SHUT_WR);
        connection.Enter(Stage::kDraining);
    }
    WatchWrites(id);
}

void HttpServer::WatchWrites(Id id) const {
    const Connection& connection = *m_connections.at(id);
    epoll_event event{};
    // A client that has closed its sending side would be reported again and again.
    const bool isHeard =
        connection.Now() != Stage::kAnswering && connection.Now() != Stage::kWriting;
    event.events = (isHeard ? EPOLLIN | EPOLLRDHUP : 0U) |
                   (connection.HasOutput() ? static_cast<uint32_t>(EPOLLOUT) : 0U);
    event.data.u64 = id;
    ::epoll_ctl(m_poll, EPOLL_CTL_MOD, connection.Socket(), &event);
}

// ---- Viewers ------------------------------------------------------------------------------------

void HttpServer::TakeEvents() {
    std::vector<SharedText> events;
    {
        const MutexGuard lock(m_lock);
        events.swap(m_events);
    }
    const auto now = Clock::now();
    if (now >= m_nextState) {
        m_nextState = now + kStateInterval;
        events.push_back(nullptr);
    }
    for (std::size_t i = 0; i < events.size(); ++i) {
        // Of several consecutive states only the last one matters.
        const bool isState = events[i] == nullptr;
        if (!isState || i + 1 == events.size() || events[i + 1] != nullptr) {
            Broadcast(isState ? StateEvent() : events[i]);
        }
    }
}

void HttpServer::Broadcast(const SharedText& event) {
    if (m_viewers.load() == 0) {
        return;
    }
    std::vector<Id> ids;
    for (const auto& [id, connection] : m_connections) {
        if (connection->Now() == Stage::kViewing) {
            if (connection->IsFull()) {
                connection->SkipToNow(StateEvent());
            }
            connection->SendEvent(event);
            ids.push_back(id);
        }
    }
    for (const Id id : ids) {
        Write(id);
    }
}

SharedText HttpServer::StateEvent() const {
    return EventText("state", m_state(m_viewers.load()));
}

void HttpServer::ShowViewers() {
    if (m_viewers.load() != m_shownViewers) {
        m_shownViewers = m_viewers.load();
        Broadcast(StateEvent());
    }
}

// ---- Ends ---------------------------------------------------------------------------------------

void HttpServer::EndLate() {
    const auto now = Clock::now();
    std::vector<Id> late;
    std::vector<Id> mute;
    for (const auto& [id, connection] : m_connections) {
        const auto idle = connection->Idle(now);
        const Stage stage = connection->Now();
        if (stage == Stage::kReading && idle > kReadingTime) {
            mute.push_back(id);
        } else if ((stage == Stage::kWriting && idle > kWritingTime) ||
                   (stage == Stage::kDraining && idle > kDrainingTime) ||
                   (stage == Stage::kViewing && connection->HasOutput() && idle > kViewerSilence)) {
            late.push_back(id);
        }
    }
    for (const Id id : late) {
        Close(id);
    }
    for (const Id id : mute) {
        Refuse(id, HttpFailure(408, "request", "did not arrive completely within 10 s."));
    }
}

// A machine that is switched off does not close its connections, and data sent to it stays queued
// for a long time.
void HttpServer::DropVanished() {
    const auto now = Clock::now();
    if (now < m_nextLook) {
        return;
    }
    m_nextLook = now + kLookInterval;
    std::vector<Id> vanished;
    for (const auto& [id, connection] : m_connections) {
        if (connection->Now() == Stage::kViewing && connection->HasVanished()) {
            vanished.push_back(id);
        }
    }
    for (const Id id : vanished) {
        Close(id);
    }
}

void HttpServer::Close(Id id) {
    const auto found = m_connections.find(id);
    if (found == m_connections.end()) {
        return;
    }
    if (found->second->Now() == Stage::kViewing) {
        --m_viewers;
    }
    m_connections.erase(found);
}

} // namespace lab::serve
