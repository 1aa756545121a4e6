#include "lab/plan/Events.h"

#include "lab/common/Failure.h"
#include "lab/common/WallClock.h"
#include "lab/evidence/Numbers.h"
#include "lab/plan/ScoreOutcome.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cmath>
#include <unistd.h>

namespace lab {
namespace {

using json = nlohmann::ordered_json;

std::string HostName() {
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size() - 1);
    return name.data();
}

json ToJson(const TomlNode& value) {
    switch (value.kind) {
    case TomlNode::Kind::kWhole:
        return value.whole;
    case TomlNode::Kind::kFraction:
        return value.number;
    case TomlNode::Kind::kTruth:
        return value.truth;
    case TomlNode::Kind::kList: {
        json list = json::array();
        for (const TomlNode& item : value.items) {
            list.push_back(ToJson(item));
        }
        return list;
    }
    case TomlNode::Kind::kTable: {
        json table = json::object();
        for (const TomlEntry& entry : value.entries) {
            table[entry.key] = ToJson(entry.value);
        }
        return table;
    }
    default:
        return ToUtf8(value.text);
    }
}

json Limit(const std::optional<double>& limit) {
    return limit ? json(AsPrinted(*limit)) : json();
}

void TakeQuestion(json& made, const Question& question) {
    made["ask"] = question.text;
    made["min"] = Limit(question.min);
    made["max"] = Limit(question.max);
    made["unit"] = question.unit.empty() ? json() : json(question.unit);
    if (!question.choices.empty()) {
        made["choices"] = question.choices;
    }
}

void TakeScoreTask(json& made, const PlannedStep& step, const Checks& checks) {
    const score::ScoreRequest& request = step.score.request;
    made["reference"] = request.reference;
    made["test"] = request.test;
    made["learning"] = request.rules.learning.ToDouble();
    made["window"] = Rounded(request.rules.window.ToDouble() * 1000.0, 6);
    made["offset"] = request.aligns ? json() : json(request.rules.offset.ToDouble());
    made["clockPpm"] = request.aligns ? json() : json(request.rules.clockPpm.ToDouble());
    made["align"] = request.aligns;
    made["limits"] = LimitsOf(step.score);
    const auto files = checks.references.find(step.name);
    if (files != checks.references.end()) {
        made["files"] = FileEntries(files->second);
    }
}

json StepOf(const PlannedStep& step, bool isSelected, const Checks& checks) {
    json made;
    made["name"] = step.name;
    made["step"] = step.stepName;
    made["kind"] = KindName(step.kind);
    made["selected"] = isSelected;
    if (step.kind == StepKind::kAsk) {
        TakeQuestion(made, step.question);
    } else if (step.kind == StepKind::kWait) {
        made["wait"] = step.wait;
    } else if (step.kind == StepKind::kHook) {
        made["hook"] = step.hook;
        made["timeout"] = step.timeout;
    } else if (step.kind == StepKind::kScore) {
        TakeScoreTask(made, step, checks);
    } else {
        made["material"] = step.material;
        made["options"] = json::object();
        for (const auto& [name, value] : step.options) {
            made["options"][name] = ToJson(value);
        }
        const auto checked = checks.ofStep.find(step.name);
        if (checked != checks.ofStep.end()) {
            made["checked"] = checked->second;
        }
    }
    if (step.pause > 0.0) {
        made["pause"] = step.pause;
    }
    return made;
}

} // namespace

json FileEntries(const std::vector<CheckedFile>& files) {
    json entries = json::array();
    for (const CheckedFile& file : files) {
        json entry;
        entry["path"] = ToUtf8(file.name);
        entry["sha256"] = file.digest.sha256;
        entry["bytes"] = file.digest.bytes;
        if (file.isPublished) {
            entry["published"] = true;
        }
        entries.push_back(entry);
    }
    return entries;
}

json Event(const char* kind, const std::string& step) {
    json event;
    event["event"] = kind;
    if (!step.empty()) {
        event["step"] = step;
    }
    event["time"] = WallClockNow();
    return event;
}

json RunEvent(const Plan& plan, const RunRequest& request, const std::vector<bool>& isSelected,
              const Checks& checks) {
    json event = Event("run", {});
    event["format"] = 1;
    event["title"] = plan.title;
    event["plan"] = plan.path;
    event["planSha256"] = Sha256(plan.text);
    event["planText"] = ToUtf8(plan.text);
    event["version"] = LibraryVersion();
    event["operator"] = request.operatorName.empty() ? json() : json(request.operatorName);
    event["host"] = HostName();
    event["speedUp"] = request.speedUp;
    event["from"] = request.from;
    event["only"] = request.only;
    event["materials"] = checks.materials.size();
    event["steps"] = json::array();
    for (std::size_t i = 0; i < plan.steps.size(); ++i) {
        event["steps"].push_back(StepOf(plan.steps[i], isSelected[i], checks));
    }
    return event;
}

json MaterialEvent(const CheckedMaterial& material) {
    json event;
    event["event"] = "material";
    event["source"] = material.source;
    event["record"] = ToUtf8(material.record);
    event["noise"] = material.noise.empty() ? json() : json(material.noise);
    event["rate"] = material.rate;
    event["seconds"] = std::isfinite(material.seconds) ? json(material.seconds) : json();
    event["files"] = FileEntries(material.files);
    event["clipped"] = json::object();
    for (const auto& [lead, millivolts] : material.clipped) {
        event["clipped"][lead] = Rounded(millivolts, 4);
    }
    event["warnings"] = json::array();
    for (const std::string& warning : material.warnings) {
        event["warnings"].push_back(ToUtf8(warning));
    }
    event["strip"] = {{"lead", material.strip.lead},
                      {"from", material.strip.from},
                      {"rate", material.strip.rate},
                      {"microvolts", material.strip.microvolts}};
    return event;
}

json SimulatorEvent(const SimulatorInformation& simulator) {
    json event = Event("simulator", {});
    event["device"] = simulator.device;
    event["model"] = simulator.model;
    event["serial"] = simulator.serial;
    event["bits"] = simulator.dacBits;
    event["calibrated"] = simulator.isCalibrated;
    event["calibration"] = CalibrationState(simulator);
    const bool hasFile = !simulator.calibrationFile.empty() &&
                         ::access(simulator.calibrationFile.c_str(), R_OK) == 0;
    event["calibrationFile"] = hasFile ? json(simulator.calibrationFile) : json();
    event["calibrationSha256"] =
        hasFile ? json(DigestFile(simulator.calibrationFile).sha256) : json();
    return event;
}

void TakePlay(json& event, const PlayResult& result) {
    event["started"] =
        result.startedAt.empty() ? event.value("started", json()) : json(result.startedAt);
    event["seconds"] = Rounded(result.seconds, 6);
    event["framesDue"] = result.framesDue;
    event["framesSent"] = result.framesSent;
    event["framesPlayed"] = result.framesPlayed;
    event["requests"] = result.requests;
    event["delays"] = result.delays;
    event["largestDelay"] = result.largestDelay;
    event["nominalRate"] = Rounded(result.nominalRate, 3);
    event["measuredRate"] =
        result.measuredRate > 0.0 ? json(Rounded(result.measuredRate, 3)) : json();
    event["leads"] = json::object();
    for (const auto& [lead, signal] : result.map) {
        event["leads"][lead] = ToUtf8(signal);
    }
    event["clipped"] = json::object();
    for (const auto& [lead, millivolts] : result.clipped) {
        event["clipped"][lead] = Rounded(millivolts, 4);
    }
}

std::string CutText(const PlayResult& result) {
    return Format("output ended after %lld of %lld frames: the simulator %s",
                  static_cast<long long>(result.framesPlayed),
                  static_cast<long long>(result.framesDue),
                  result.ending == Ending::kLost ? "went away" : "fell silent");
}

} // namespace lab
