#include "lab/plan/Run.h"

#include "lab/common/Failure.h"
#include "lab/common/WallClock.h"
#include "lab/evidence/Journal.h"
#include "lab/evidence/Result.h"
#include "lab/evidence/Times.h"
#include "lab/material/LoadRecord.h"
#include "lab/plan/Answers.h"
#include "lab/plan/Events.h"
#include "lab/plan/Hook.h"
#include "lab/plan/Preparation.h"
#include "lab/plan/Resumption.h"
#include "lab/plan/RunWatch.h"
#include "lab/plan/ScoreOutcome.h"
#include "lab/report/Report.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

namespace lab {
namespace {

using json = nlohmann::ordered_json;
using std::chrono::steady_clock;

// A play that was cut short is repeated once before the run continues without it.
constexpr int kPlays = 2;

// A reply that comes too late leaves a simulator's identity incomplete: search again before
// treating it as another simulator.
constexpr int kSearches = 3;

// Whether a signal has requested the end of the run.
struct Interrupted {
    int signal;
};

// ---- The run ------------------------------------------------------------------------------------

class PlanRun {
  public:
    PlanRun(const RunRequest& request, const Plan& plan, std::vector<bool> isSelected,
            const Checks& checks, const RunFolder& folder, const Interrupt& interrupt)
        : m_request(request), m_plan(plan), m_isSelected(std::move(isSelected)), m_checks(checks),
          m_journal(folder), m_folder(folder), m_interrupt(interrupt),
          m_watch(request, plan, checks) {}

    int Run(const std::map<std::string, Answer>& answers) {
        m_answers = answers;
        if (m_journal.Events().empty()) {
            Begin();
        } else {
            Resume();
        }
        int status = kDone;
        if (LastEvent(m_journal.Events(), "finished") == nullptr) {
            status = CarryOut();
        }
        return Finish(status);
    }

  private:
    // ---- Beginning and going on -----------------------------------------------------------------

    void Begin() {
        m_journal.Append(RunEvent(m_plan, m_request, m_isSelected, m_checks));
        AppendMaterials();
    }

    void Resume() {
        RequireSameRun(m_journal.Events(), m_plan, m_request, m_checks);
        AppendMaterials();
        FollowSteps();
        ForgetCutPlays();
        for (std::size_t i = 0; i < m_plan.steps.size(); ++i) {
            if (m_ends.count(m_plan.steps[i].name) != 0) {
                TellEnd(i);
            }
        }
        if (LastEvent(m_journal.Events(), "finished") == nullptr) {
            json event = Event("resume", {});
            event["version"] = LibraryVersion();
            event["operator"] = m_request.operatorName;
            m_journal.Append(event);
        }
    }

    // Appends the materials that are not in the journal yet, in their order.
    void AppendMaterials() {
        const auto& events = m_journal.Events();
        const auto known = std::count_if(events.begin(), events.end(), [](const json& event) {
            return event.value("event", "") == "material";
        });
        for (auto i = static_cast<std::size_t>(known); i < m_checks.materials.size(); ++i) {
            m_journal.Append(MaterialEvent(m_checks.materials[i]));
        }
    }

    void FollowSteps() {
        for (const json& event : m_journal.Events()) {
            const std::string kind = event.value("event", "");
            const std::string step = event.value("step", "");
            if (kind == "begin") {
                ++m_attempts[step];
            } else if (kind == "end") {
                m_ends[step] = event;
            } else if (kind == "simulator") {
                m_serial = event.value("serial", "");
            }
        }
    }

    // A play that was cut twice has its entry in the result but is not done.
    bool IsCut(const PlannedStep& step) const {
        const auto end = m_ends.find(step.name);
        return step.kind == StepKind::kMaterial && end != m_ends.end() &&
               end->second.value("outcome", "") == "error";
    }

    void ForgetCutPlays() {
        for (const PlannedStep& step : m_plan.steps) {
            if (IsCut(step)) {
                m_ends.erase(step.name);
            }
        }
    }

    // ---- Steps ----------------------------------------------------------------------------------

    int CarryOut() {
        try {
            for (std::size_t i = 0; i < m_plan.steps.size(); ++i) {
                const PlannedStep& step = m_plan.steps[i];
                if (!m_isSelected[i]) {
                    continue;
                }
                if (m_ends.count(step.name) == 0) {
                    CarryOutStep(i);
                }
                m_watch.Leave(i);
            }
            return Conclude();
        } catch (const Interrupted& interrupted) {
            Stop(kInterrupted + interrupted.signal, "interrupted");
            return kInterrupted + interrupted.signal;
        } catch (const Failure& failure) {
            if (failure.Status() != kCannotWrite) {
                Stop(failure.Status(), failure.what());
            }
            throw;
        }
    }

    // The run is over once every play was whole; until then it can be resumed.
    int Conclude() {
        const auto cut = std::count_if(m_plan.steps.begin(), m_plan.steps.end(),
                                       [&](const PlannedStep& step) { return IsCut(step); });
        if (cut == 0) {
            m_journal.Append(Event("finished", {}));
            return kDone;
        }
        const std::string what = Counted(static_cast<std::size_t>(cut), "play") + " cut";
        Stop(kOutputLost, what);
        m_watch.Say(what + "; --resume repeats them and nothing else");
        return kOutputLost;
    }

    // The process ends, but the run can be resumed. The reports are written nevertheless.
    void Stop(int status, const std::string& message) {
        json event = Event("stop", {});
        event["status"] = status;
        event["message"] = ToUtf8(message);
        m_journal.Append(event);
        WriteReports(m_folder, m_journal.Events());
    }

    void CarryOutStep(std::size_t i) {
        const PlannedStep& step = m_plan.steps[i];
        m_watch.Begin(i);
        switch (step.kind) {
        case StepKind::kMaterial:
            PlayStep(step);
            break;
        case StepKind::kAsk:
            AskStep(step);
            break;
        case StepKind::kWait:
            WaitStep(step);
            break;
        case StepKind::kHook:
            HookStep(i);
            break;
        case StepKind::kScore:
            ScoreStep(step);
            break;
        }
        TellEnd(i);
        WaitSeconds(step.pause);
    }

    void TellEnd(std::size_t i) {
        const json& end = m_ends.at(m_plan.steps[i].name);
        m_watch.End(i, end.value("outcome", ""), end.value("message", ""));
    }

    void BeginAttempt(const std::string& name) {
        m_journal.Append(Event("begin", name));
        ++m_attempts[name];
    }

    void End(const std::string& name, json event) {
        m_journal.Append(event);
        const std::string outcome = event.value("outcome", "");
        if (outcome != "passed") {
            m_watch.Say(name + ": " + outcome + ": " + event.value("message", ""));
        }
        m_ends[name] = std::move(event);
    }

    json EndEvent(const std::string& name, const std::string& outcome, const std::string& message,
                  const std::string& started, double since) const {
        json event = Event("end", name);
        event["outcome"] = outcome;
        event["message"] = ToUtf8(message);
        event["started"] = started;
        event["seconds"] = Rounded(MonotonicSeconds() - since, 3);
        return event;
    }

    void WaitSeconds(double seconds) const {
        const auto end =
            steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                      std::chrono::duration<double>(seconds / m_request.speedUp));
        if (seconds > 0.0 && m_interrupt.WaitUntil(end)) {
            throw Interrupted{m_interrupt.Signal()};
        }
        if (m_interrupt.Signal() != 0) {
            throw Interrupted{m_interrupt.Signal()};
        }
    }

    void WaitStep(const PlannedStep& step) {
        const std::string started = WallClockNow();
        const double since = MonotonicSeconds();
        BeginAttempt(step.name);
        WaitSeconds(step.wait);
        End(step.name, EndEvent(step.name, "passed", "", started, since));
    }

    // ---- Questions and hooks --------------------------------------------------------------------

    std::optional<Answer> AnswerTo(const PlannedStep& step) const {
        for (const std::string& name : {step.name, step.stepName}) {
            const auto answer = m_answers.find(name);
            if (answer != m_answers.end()) {
                return answer->second;
            }
        }
        return AskOperator(step.question, step.name, m_interrupt);
    }

    void AskStep(const PlannedStep& step) {
        const std::string started = WallClockNow();
        const double since = MonotonicSeconds();
        BeginAttempt(step.name);
        const auto answer = AnswerTo(step);
        WaitSeconds(0.0); // a signal is not an answer
        const bool passes = answer && Passes(step.question, *answer);
        json event =
            EndEvent(step.name, passes ? "passed" : "failed",
                     !answer  ? "unanswered: there is no terminal, and no answer in --answers"
                     : passes ? ""
                              : "the answer is not one that passes",
                     started, since);
        event["values"] = json::object();
        if (answer) {
            std::visit([&](const auto& value) { event["values"]["answer"] = value; }, *answer);
        }
        End(step.name, std::move(event));
    }

    // The entry of the previous step, as in result.json.
    json EntryBefore(std::size_t i) const {
        if (i == 0) {
            return nullptr;
        }
        const json& step = m_journal.Events().front()["steps"][i - 1];
        const std::string name = step.value("name", "");
        const auto end = m_ends.find(name);
        const auto attempts = m_attempts.find(name);
        const auto checked = m_checks.ofStep.find(name);
        const json material = checked == m_checks.ofStep.end()
                                  ? json()
                                  : MaterialEvent(m_checks.materials[checked->second]);
        return EntryOf(step, end == m_ends.end() ? nullptr : &end->second,
                       attempts == m_attempts.end() ? 0 : attempts->second,
                       material.is_null() ? nullptr : &material);
    }

    void HookStep(std::size_t i) {
        const PlannedStep& step = m_plan.steps[i];
        const std::string started = WallClockNow();
        const double since = MonotonicSeconds();
        BeginAttempt(step.name);
        const HookResult result = RunHook(step.hook, m_plan.folder, step.timeout,
                                          EntryBefore(i).dump() + "\n", m_interrupt);
        if (result.signal != 0) {
            throw Interrupted{result.signal};
        }
        const ScoreOutcome score =
            result.score ? CarryOutScore(*result.score, m_plan.folder) : ScoreOutcome();
        json event = EndEvent(step.name, result.outcome, result.message, started, since);
        event["values"] = result.values;
        if (result.score) {
            json limited = json::object();
            for (const ScoreLimit& limit : result.score->limits) {
                limited[limit.limit.figure] = score.values.value(limit.limit.figure, json());
            }
            TakeScore(event, score, limited);
        }
        End(step.name, std::move(event));
    }

    // A hook's own verdict and its limits both have to pass.
    static void TakeScore(json& event, const ScoreOutcome& score, const json& values) {
        std::for_each(score.warnings.begin(), score.warnings.end(), Warn);
        if (event["outcome"] == "passed") {
            event["outcome"] = score.outcome;
            event["message"] = ToUtf8(score.message);
        }
        event["values"].update(values);
        event["limits"] = score.limits;
        event["files"] = score.files;
        event["score"] = score.score;
    }

    void ScoreStep(const PlannedStep& step) {
        const std::string started = WallClockNow();
        const double since = MonotonicSeconds();
        BeginAttempt(step.name);
        RequireUnchanged(m_checks.references.at(step.name));
        const ScoreOutcome score = CarryOutScore(step.score, m_plan.folder);
        json event = EndEvent(step.name, "passed", "", started, since);
        event["values"] = json::object();
        TakeScore(event, score, score.values);
        End(step.name, std::move(event));
    }

    // ---- Material -------------------------------------------------------------------------------

    void PlayStep(const PlannedStep& step) {
        for (int play = 1;; ++play) {
            AwaitSimulator();
            const Record record = LoadRecord(step.play.material);
            RequireUnchanged(m_checks.materials[m_checks.ofStep.at(step.name)].files);
            const std::string started = WallClockNow();
            const double since = MonotonicSeconds();
            BeginAttempt(step.name);
            const PlayResult result = PlayOnce(step, record);
            if (result.ending == Ending::kInterrupted) {
                throw Interrupted{result.signal};
            }
            const bool isWhole = result.ending == Ending::kFinished;
            if (isWhole || play == kPlays) {
                json event = EndEvent(step.name, isWhole ? "passed" : "error",
                                      isWhole ? "" : CutText(result), started, since);
                TakePlay(event, result);
                if (!isWhole) {
                    m_simulator = nullptr;
                }
                return End(step.name, std::move(event));
            }
            TellLoss(step, result);
            m_simulator = nullptr; // a new search also finds a simulator that returned unnoticed
        }
    }

    PlayResult PlayOnce(const PlannedStep& step, const Record& record) {
        PlayRequest request = step.play;
        request.speedUp = m_request.speedUp;
        bool hasBegun = false;
        PlayResult result = PlayLoaded(request, record, *m_simulator, m_interrupt,
                                       [&](const PlayPosition& position) {
                                           if (!hasBegun) {
                                               hasBegun = true;
                                               m_watch.PlayBegun(request, record);
                                           }
                                           m_watch.Playing(position);
                                       });
        m_watch.PlayEnded(result);
        return result;
    }

    void TellLoss(const PlannedStep& step, const PlayResult& result) {
        json event = Event("lost", step.name);
        event["message"] = CutText(result);
        event["framesPlayed"] = result.framesPlayed;
        m_journal.Append(event);
        m_watch.Say(step.name + ": " + CutText(result) + "; waiting for it, then once more");
    }

    void AwaitConnection() {
        const bool isFirst = !m_wasConnected;
        if (!m_simulator) {
            m_simulator = std::make_unique<Simulator>(m_request.port);
        }
        const bool isThere = isFirst ? m_simulator->WaitConnected(m_request.timeout, m_interrupt)
                                     : m_simulator->Await(m_request.timeout, m_interrupt);
        WaitSeconds(0.0);
        if (!isThere) {
            Fail(kOutputLost, "simulator",
                 Format("has been gone for %lld s.",
                        static_cast<long long>(m_request.timeout.count())),
                 "Plug it in again and continue with --resume.");
        }
        m_wasConnected = true;
    }

    void AwaitSimulator() {
        for (int search = 1;; ++search) {
            AwaitConnection();
            const SimulatorInformation simulator = DescribeSimulator();
            if (m_serial.empty()) {
                m_journal.Append(SimulatorEvent(simulator));
                m_serial = simulator.serial;
            }
            if (m_serial == simulator.serial) {
                m_watch.Connected(simulator);
                return;
            }
            if (search == kSearches) {
                Fail(kNoSimulator, simulator.device,
                     "is the simulator " + simulator.serial + ", but the run began on " + m_serial +
                         ".",
                     "Plug that one in and continue with --resume, or begin a new run.");
            }
            m_simulator = nullptr;
        }
    }

    // ---- The end --------------------------------------------------------------------------------

    int Finish(int status) {
        WriteReports(m_folder, m_journal.Events());
        const json result = ResultOf(m_journal.Events());
        m_watch.Over(result.value("outcome", ""));
        if (m_request.isJson) {
            std::printf("%s\n", result.dump().c_str());
        } else {
            std::printf("%s\n%s\n", SummaryLine(result).c_str(),
                        (m_folder.Path() + "/report.html").c_str());
        }
        return status != kDone ? status : StatusOf(result);
    }

    const RunRequest& m_request;
    const Plan& m_plan;
    std::vector<bool> m_isSelected;
    const Checks& m_checks;
    Journal m_journal;
    const RunFolder& m_folder;
    const Interrupt& m_interrupt;
    RunWatch m_watch;
    std::map<std::string, Answer> m_answers;
    std::map<std::string, int> m_attempts;
    std::map<std::string, json> m_ends;
    std::unique_ptr<Simulator> m_simulator;
    bool m_wasConnected = false;
    std::string m_serial;
};

} // namespace

int RunPlan(const RunRequest& request) {
    const Interrupt interrupt;
    const Plan plan = ReadPlan(request.plan);
    const auto answers = request.answers.empty() ? std::map<std::string, Answer>()
                                                 : ReadAnswers(request.answers, plan);
    const std::vector<bool> isSelected = SelectSteps(plan, request);
    const Checks checks = CheckMaterial(plan, isSelected, interrupt);
    if (!request.output.empty()) {
        RequireSpace(request.output, plan.steps.size(), checks.materials.size());
    }
    WarnOfMaterial(checks);
    if (request.isDry) {
        PrintForecast(request, plan, checks, isSelected);
        return kDone;
    }
    const RunFolder folder(request.output, request.isResumed);
    return PlanRun(request, plan, isSelected, checks, folder, interrupt).Run(answers);
}

} // namespace lab
