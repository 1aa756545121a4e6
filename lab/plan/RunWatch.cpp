#include "lab/plan/RunWatch.h"

#include "lab/common/Failure.h"

#include <algorithm>

namespace lab {
namespace {

std::string WhatOf(const PlannedStep& step) {
    switch (step.kind) {
    case StepKind::kMaterial:
        return step.material;
    case StepKind::kAsk:
        return step.question.text;
    case StepKind::kWait:
        return Format("wait %g s", step.wait);
    case StepKind::kHook:
        return step.hook.front();
    case StepKind::kScore:
        break;
    }
    return step.score.request.test;
}

} // namespace

RunWatch::RunWatch(const RunRequest& request, const Plan& plan, const Checks& checks)
    : m_request(request), m_plan(plan), m_checks(checks),
      m_display(request.isJson, plan.steps.size(), checks.seconds / request.speedUp) {
    m_progress.title = plan.title;
    m_progress.left = checks.seconds / request.speedUp;
    for (std::size_t i = 0; i < plan.steps.size(); ++i) {
        m_progress.steps.push_back({plan.steps[i].name, KindName(plan.steps[i].kind), {}, {}});
        m_due.push_back(Forecast(i));
    }
}

void RunWatch::Begin(std::size_t step) {
    const PlannedStep& planned = m_plan.steps[step];
    m_display.Begin(step, planned.name, WhatOf(planned));
    m_progress.current = step;
    m_progress.played = m_progress.due = 0.0;
    m_progress.delays = 0;
    Tell();
}

void RunWatch::Connected(const SimulatorInformation& simulator) {
    if (m_request.observer != nullptr) {
        m_request.observer->Connected(simulator);
    }
}

void RunWatch::PlayBegun(const PlayRequest& request, const Record& record) {
    if (m_request.observer != nullptr) {
        m_request.observer->PlayBegun(m_plan.steps[*m_progress.current].material, request, record);
    }
}

void RunWatch::PlayEnded(const PlayResult& result) {
    if (m_request.observer != nullptr) {
        m_request.observer->PlayEnded(result);
    }
}

void RunWatch::Playing(const PlayPosition& position) {
    const std::size_t step = *m_progress.current;
    const double left =
        m_progress.left - std::min(position.elapsed, m_due[step] - PauseAfter(step));
    m_display.Update(Format("%s  %.1f of %.1f s  delays %d", m_plan.steps[step].material.c_str(),
                            position.played, position.due, position.delays),
                     left);
    RunProgress now = m_progress;
    now.played = position.played;
    now.due = position.due;
    now.delays = position.delays;
    now.left = left;
    if (m_request.observer != nullptr) {
        m_request.observer->Progress(now);
    }
}

void RunWatch::End(std::size_t step, const std::string& outcome, const std::string& message) {
    RunProgress::Step& entry = m_progress.steps[step];
    entry.outcome = outcome;
    entry.message = message;
    SetDue(step, m_progress.current == step ? PauseAfter(step) : 0.0);
    Tell();
}

void RunWatch::Leave(std::size_t step) {
    m_progress.current.reset();
    SetDue(step, 0.0);
}

void RunWatch::Say(const std::string& sentence) {
    m_display.Say(sentence);
}

void RunWatch::Over(const std::string& outcome) {
    m_display.Say(Printable(m_plan.title) + ": " + outcome);
    m_progress.outcome = outcome;
    Tell();
}

void RunWatch::SetDue(std::size_t step, double seconds) {
    m_progress.left = std::max(0.0, m_progress.left - (m_due[step] - seconds));
    m_due[step] = seconds;
}

double RunWatch::PauseAfter(std::size_t step) const {
    return m_plan.steps[step].pause / m_request.speedUp;
}

// Duration of the step in seconds of real time, as far as is known.
double RunWatch::Forecast(std::size_t step) const {
    const PlannedStep& planned = m_plan.steps[step];
    double seconds = planned.wait;
    const auto checked = m_checks.ofStep.find(planned.name);
    if (checked != m_checks.ofStep.end()) {
        const double length = m_checks.materials[checked->second].seconds - planned.play.start;
        seconds += planned.play.seconds == 0.0 ? length
                   : planned.play.loop         ? planned.play.seconds
                                               : std::min(planned.play.seconds, length);
    }
    return seconds / m_request.speedUp + PauseAfter(step);
}

void RunWatch::Tell() {
    if (m_request.observer != nullptr) {
        m_request.observer->Progress(m_progress);
    }
}

} // namespace lab
