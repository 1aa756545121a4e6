#pragma once

#include "lab/common/Mutex.h"
#include "lab/plan/RunObserver.h"
#include "lab/serve/BrowsingStage.h"
#include "lab/serve/Findings.h"
#include "lab/serve/Sampler.h"
#include "lab/serve/StageListener.h"

#include <memory>
#include <optional>
#include <string>

namespace lab::serve {

// Shows a running test plan in place of the bench; only the plan controls the output.
class RunPage : public BrowsingStage, public RunObserver {
  public:
    // `folder` holds the material that may be viewed; `port` is the one that the run uses.
    RunPage(const std::string& folder, std::optional<int> port, double speedUp,
            StageListener listener);
    ~RunPage() override;

    BenchState State(int viewers) const override;
    HttpAnswer Play(const HttpRequest& request) override;
    HttpAnswer Stop(const HttpRequest& request) override;
    HttpAnswer SwitchNoise(const HttpRequest& request) override;

    void Progress(const RunProgress& progress) override;
    void Connected(const SimulatorInformation& simulator) override;
    void PlayBegun(const std::string& material, const PlayRequest& request,
                   const Record& record) override;
    void PlayEnded(const PlayResult& result) override;

  private:
    bool LookAtSimulator();

    const double m_speedUp;
    const StageListener m_listener;
    Sampler m_sampler;

    mutable Mutex m_lock;
    PlayerState m_player RAVO_GUARDED_BY(m_lock);
    RunProgress m_progress RAVO_GUARDED_BY(m_lock);
    bool m_isKnown RAVO_GUARDED_BY(m_lock) = false; // whether it is identified

    std::size_t m_noiseIndex = 0; // used by the run's own thread only
    Findings m_findings;
};

} // namespace lab::serve
