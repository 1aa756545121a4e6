#pragma once

#include "lab/common/Mutex.h"
#include "lab/serve/Address.h"
#include "lab/serve/Connection.h"
#include "lab/serve/Exchange.h"
#include "lab/serve/Pool.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lab::serve {

// Serves all connections on one thread, which never waits for anything else: half a request costs a
// few bytes, a viewer a queue. Slow handlers run in two pools, so that browsing material never
// delays a command.
class HttpServer {
  public:
    // The state as JSON, for `viewers` viewers; called on the server's thread, must not block.
    using StateSource = std::function<std::string(int viewers)>;

    HttpServer(const Listener& listener, HttpHandler handler, StateSource state);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Serves until Stop; no handler runs any more when it returns.
    void Run();

    // From any thread.
    void Stop();
    void PublishState();
    void PublishSamples(const std::string& data);
    int Viewers() const { return m_viewers.load(); }

  private:
    using Clock = std::chrono::steady_clock;
    using Id = uint64_t;
    using Connections = std::map<Id, std::unique_ptr<Connection>>;

    struct Answered {
        Id id;
        RawAnswer answer;
    };

    void Wake() const;
    void Watch(int descriptor, Id id) const;
    int PatienceMilliseconds() const;
    void Dispatch(Id id, uint32_t events);
    void Accept();
    bool DropOldest();
    void Read(Id id);
    void TakeBytes(Id id, const char* bytes, std::size_t count);
    void Answer(Id id);
    void Finish(Id id, const RawAnswer& answer);
    void BecomeViewer(Connection& connection);
    void Refuse(Id id, const std::exception& error);
    void Write(Id id);
    void WatchWrites(Id id) const;
    void TakeAnswered();
    void TakeEvents();
    void Broadcast(const SharedText& event);
    SharedText StateEvent() const;
    void ShowViewers();
    void EndLate();
    void DropVanished();
    void MakeRoomFor(std::size_t bytes);
    void Close(Id id);

    const Listener& m_listener;
    const StateSource m_state;
    const Exchange m_exchange;
    int m_poll;
    int m_wake;
    Id m_nextId;
    Connections m_connections;
    Clock::time_point m_nextState{};
    Clock::time_point m_nextLook{}; // for viewers that have vanished
    std::atomic<bool> m_isStopping{false};
    std::atomic<int> m_viewers{0};
    int m_shownViewers = 0;

    Mutex m_lock; // guards data that other threads leave here
    std::vector<Answered> m_answered RAVO_GUARDED_BY(m_lock);
    std::vector<SharedText> m_events RAVO_GUARDED_BY(m_lock); // null: the state when sent

    Pool m_commands;
    Pool m_browsing;
};

} // namespace lab::serve
