#pragma once

#include "lab/plan/Display.h"
#include "lab/plan/MaterialCheck.h"
#include "lab/plan/RunRequest.h"

#include <string>
#include <vector>

namespace lab {

// Reports the progress of a run on standard error and to the request's observer.
class RunWatch {
  public:
    RunWatch(const RunRequest& request, const Plan& plan, const Checks& checks);

    void Begin(std::size_t step);
    void Connected(const SimulatorInformation& simulator);

    void PlayBegun(const PlayRequest& request, const Record& record);
    void Playing(const PlayPosition& position);
    void PlayEnded(const PlayResult& result);

    // The step has ended, in this process or in an earlier one.
    void End(std::size_t step, const std::string& outcome, const std::string& message);

    // The step takes no more time: it has ended, in this process or in an earlier one.
    void Leave(std::size_t step);

    // A line that is not overwritten later.
    void Say(const std::string& sentence);

    void Over(const std::string& outcome);

  private:
    double PauseAfter(std::size_t step) const;
    double Forecast(std::size_t step) const;
    void SetDue(std::size_t step, double seconds);
    void Tell();

    const RunRequest& m_request;
    const Plan& m_plan;
    const Checks& m_checks;
    Display m_display;
    RunProgress m_progress;
    std::vector<double> m_due; // seconds of real time that each step still takes
};

} // namespace lab
