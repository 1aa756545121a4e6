#include "lab/serve/Bench.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

namespace lab::serve {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kCheckTime = 60s; // reading a day of twelve leads may take this long
constexpr std::size_t kMostChecks = 16;

constexpr int kAccepted = 202;
constexpr int kUnavailable = 503;

HttpFailure FailureOf(const HttpAnswer& answer) {
    const auto error = nlohmann::json::parse(answer.body).at("error");
    return HttpFailure(answer.status, error.at("where").get<std::string>(),
                       error.at("problem").get<std::string>(), error.at("cure").get<std::string>());
}

} // namespace

Bench::Bench(const Root& root, const PlayerOptions& options, StageListener listener)
    : BrowsingStage(root.GivenPath()), m_root(root), m_speedUp(options.speedUp),
      m_listener(std::move(listener)), m_checker(root.GivenPath()),
      m_sampler(options.speedUp, m_listener.samples, [this] { return m_listener.viewers() > 0; }),
      m_player(options, m_sampler,
               [this] {
                   m_findings.LookNow();
                   m_listener.stateChanged();
               }),
      m_findings(
          options.port, [this] { return m_player.Now().isConnected; }, m_listener.stateChanged),
      m_checks(1, kMostChecks) {
    m_player.Begin();
}

Bench::~Bench() {
    m_checker.Stop();
    BrowsingStage::StopBrowsing();
    m_player.Stop(Clock::now() + 1h); // its thread uses the members destroyed next
}

bool Bench::End(Clock::time_point deadline) {
    m_checker.Stop();
    StopBrowsing();
    return m_player.Stop(deadline);
}

BenchState Bench::State(int viewers) const {
    BenchState state;
    state.player = m_player.Now();
    state.findings = state.player.isConnected ? std::vector<Finding>() : m_findings.Now();
    state.isSilent = m_player.IsSilent();
    state.speedUp = m_speedUp;
    state.viewers = viewers;
    const MutexGuard lock(m_lock);
    state.refused = m_refused;
    std::copy_if(m_late.begin(), m_late.end(), std::back_inserter(state.pending),
                 [](const auto& order) { return !order->ticket->IsWithdrawn(); });
    return state;
}

// ---- Orders -------------------------------------------------------------------------------------

HttpAnswer Bench::Play(const HttpRequest& request) {
    const auto order = std::make_shared<Order>();
    order->kind = Order::Kind::kPlay;
    order->play = ReadPlayOrder(request.body);
    m_root.ResolveNames(order->play.request.material);
    const int number = ++m_number;
    ForgetRefused();
    const bool isTaken = m_checks.Post(
        [this, order, body = request.body, number] { CheckAndPost(order, body, number); });
    if (!isTaken) {
        Refuse(kUnavailable, "ravo-serve", "has too many plays to check.",
               "Try again in a moment.");
    }
    return Await(order, request, number);
}

void Bench::CheckAndPost(const std::shared_ptr<Order>& order, const std::string& body, int number) {
    try {
        Check(body, number);
        const MutexGuard lock(m_posting);
        RequireCurrent(number);
        PostOrRefuse(order);
        Supersede(order);
    } catch (const Failure& failure) {
        order->ticket->Failed(failure);
    }
}

// A later order does not wait for the check of an earlier one.
void Bench::Check(const std::string& body, int number) {
    RequireCurrent(number);
    try {
        const HttpAnswer checked = m_checker.Check(body, Clock::now() + kCheckTime,
                                                   [&] { return number == m_number.load(); });
        if (checked.status != 200) {
            throw FailureOf(checked);
        }
    } catch (const Failure&) {
        RequireCurrent(number);
        throw;
    }
}

// Prevents an earlier play from starting if it is still waiting or its material is still being
// loaded.
void Bench::Supersede(const std::shared_ptr<Order>& order) {
    if (m_play != nullptr) {
        m_play->ticket->Withdraw();
    }
    m_play = order->kind == Order::Kind::kPlay ? order : nullptr;
}

void Bench::RequireCurrent(int number) const {
    if (number != m_number.load()) {
        RefuseOvertaken();
    }
}

HttpAnswer Bench::Stop(const HttpRequest& request) {
    RequireNoOrder(request.body);
    const auto order = std::make_shared<Order>();
    int number = 0;
    {
        const MutexGuard lock(m_posting);
        number = ++m_number;
        ForgetRefused();
        PostOrRefuse(order);
        Supersede(order);
    }
    return Await(order, request, number);
}

HttpAnswer Bench::SwitchNoise(const HttpRequest& request) {
    const auto order = std::make_shared<Order>();
    order->kind = Order::Kind::kNoise;
    order->on = ReadNoiseOrder(request.body);
    PostOrRefuse(order);
    return Await(order, request, m_number.load());
}

void Bench::PostOrRefuse(const std::shared_ptr<Order>& order) {
    if (!m_player.Post(order)) {
        Refuse(kUnavailable, "ravo-serve", "has too many orders to carry out.",
               "Try again in a moment.");
    }
}

// A silent simulator keeps the library waiting for up to ten seconds; the order is not kept that
// long. An order that merely takes time is kept: a stop takes effect at a request of the simulator,
// and a long record is loaded first.
HttpAnswer Bench::Await(const std::shared_ptr<Order>& order, const HttpRequest& request,
                        int number) {
    HttpAnswer answer;
    if (!order->ticket->Wait(request.deadline)) {
        if (m_player.IsSilent()) {
            order->ticket->Withdraw();
            Refuse(kUnavailable, "simulator", "has stopped asking for data.",
                   "Check its cable and power, and plug it in again.");
        }
        answer.status = kAccepted;
        GoOnLate(order, number);
    }
    answer.body = StateJson(State(m_listener.viewers()));
    return answer;
}

void Bench::GoOnLate(const std::shared_ptr<Order>& order, int number) {
    {
        const MutexGuard lock(m_lock);
        m_late.push_back(order);
    }
    m_listener.stateChanged();
    order->ticket->SetLate([this, late = order.get(), number](const auto& failure) {
        EndLate(late, failure, number);
    });
}

// The failure of an order no longer matters once a later order has arrived.
void Bench::EndLate(const Order* order, const std::optional<HttpFailure>& failure, int number) {
    {
        const MutexGuard lock(m_lock);
        const auto isIt = [order](const auto& late) { return late.get() == order; };
        m_late.erase(std::remove_if(m_late.begin(), m_late.end(), isIt), m_late.end());
        if (failure && number == m_number.load()) {
            m_refused.emplace(*failure);
        }
    }
    m_listener.stateChanged();
}

void Bench::ForgetRefused() {
    const MutexGuard lock(m_lock);
    m_refused.reset();
}

} // namespace lab::serve
