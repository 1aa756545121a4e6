#pragma once

#include "lab/common/Mutex.h"
#include "lab/serve/BrowsingStage.h"
#include "lab/serve/Findings.h"
#include "lab/serve/MaterialWorker.h"
#include "lab/serve/Player.h"
#include "lab/serve/Pool.h"
#include "lab/serve/Root.h"
#include "lab/serve/Sampler.h"
#include "lab/serve/StageListener.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lab::serve {

// The simulator and the material, as the routes see them.
class Bench : public BrowsingStage {
  public:
    Bench(const Root& root, const PlayerOptions& options, StageListener listener);
    ~Bench() override;
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    BenchState State(int viewers) const override;
    HttpAnswer Play(const HttpRequest& request) override;
    HttpAnswer Stop(const HttpRequest& request) override;
    HttpAnswer SwitchNoise(const HttpRequest& request) override;

    // Stops output and disconnects. False when a silent simulator blocks it until `deadline`.
    bool End(std::chrono::steady_clock::time_point deadline);

  private:
    void CheckAndPost(const std::shared_ptr<Order>& order, const std::string& body, int number);
    void Check(const std::string& body, int number);
    void RequireCurrent(int number) const;
    void Supersede(const std::shared_ptr<Order>& order) RAVO_REQUIRES(m_posting);
    HttpAnswer Await(const std::shared_ptr<Order>& order, const HttpRequest& request, int number);
    void PostOrRefuse(const std::shared_ptr<Order>& order);
    void GoOnLate(const std::shared_ptr<Order>& order, int number);
    void EndLate(const Order* order, const std::optional<HttpFailure>& failure, int number);
    void ForgetRefused();

    const Root& m_root;
    const double m_speedUp;
    const StageListener m_listener;
    MaterialWorker m_checker; // checks material that is to be played
    Sampler m_sampler;
    Player m_player;
    Findings m_findings;

    mutable Mutex m_lock;
    std::optional<HttpFailure> m_refused RAVO_GUARDED_BY(m_lock);
    std::vector<std::shared_ptr<Order>> m_late RAVO_GUARDED_BY(m_lock); // in order of their answers

    // Number of the last order that plays or stops: an older play must no longer start.
    std::atomic<int> m_number{0};
    Mutex m_posting; // held from reading the number until the order has been posted
    std::shared_ptr<Order> m_play RAVO_GUARDED_BY(m_posting); // the last play, until a stop
    Pool m_checks;
};

} // namespace lab::serve
