#include "lab/evidence/Result.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>

namespace lab {
namespace {

using json = nlohmann::ordered_json;

// The journal's events about each step.
struct Course {
    std::map<std::string, const json*> ends;
    std::map<std::string, int> attempts;
    std::vector<const json*> materials;
    const json* simulator = nullptr;
    std::string lastTime;
    bool isFinished = false;
};

Course Follow(const std::vector<json>& events) {
    Course course;
    for (const json& event : events) {
        const std::string kind = event.value("event", "");
        if (kind == "begin") {
            ++course.attempts[event.value("step", "")];
        } else if (kind == "end") {
            course.ends[event.value("step", "")] = &event;
        } else if (kind == "material") {
            course.materials.push_back(&event);
        } else if (kind == "simulator") {
            course.simulator = &event;
        }
        course.isFinished = course.isFinished || kind == "finished";
        course.lastTime = event.value("time", course.lastTime);
    }
    return course;
}

const json* MaterialOf(const json& step, const Course& course) {
    const auto found = step.find("checked");
    if (found == step.end() || found->get<std::size_t>() >= course.materials.size()) {
        return nullptr;
    }
    return course.materials[found->get<std::size_t>()];
}

json EntriesOf(const json& run, const Course& course) {
    json entries = json::array();
    for (const json& step : run.at("steps")) {
        const std::string name = step.value("name", "");
        const auto end = course.ends.find(name);
        const auto attempts = course.attempts.find(name);
        entries.push_back(EntryOf(step, end == course.ends.end() ? nullptr : end->second,
                                  attempts == course.attempts.end() ? 0 : attempts->second,
                                  MaterialOf(step, course)));
    }
    return entries;
}

json SimulatorOf(const Course& course) {
    if (course.simulator == nullptr) {
        return nullptr;
    }
    json simulator;
    for (const char* field : {"model", "serial", "bits", "calibrated", "calibrationFile",
                              "calibrationSha256", "calibration"}) {
        simulator[field] = course.simulator->value(field, json());
    }
    return simulator;
}

const char* OutcomeOf(const json& entries, bool isFinished) {
    const bool hasFailed = std::any_of(entries.begin(), entries.end(), [](const json& entry) {
        return entry["outcome"] == "failed" || entry["outcome"] == "error";
    });
    return !isFinished ? "incomplete" : hasFailed ? "failed" : "passed";
}

bool UsesStandIns(const json& entries) {
    return std::any_of(entries.begin(), entries.end(), [](const json& entry) {
        return entry["outcome"] != "skipped" && entry.value("source", json()) == "stand-in";
    });
}

// In the order in which a reader encounters them.
void TakeMaterial(json& entry, const json& step, const json* end, const json* material) {
    entry["material"] = step.value("material", "");
    entry["source"] = material == nullptr ? json() : material->value("source", json());
    entry["files"] = material == nullptr ? json::array() : material->value("files", json::array());
    entry["options"] = step.value("options", json::object());
    for (const char* field : {"framesDue", "framesSent", "framesPlayed", "requests", "delays",
                              "largestDelay", "nominalRate", "measuredRate"}) {
        entry[field] = end == nullptr ? json(0) : end->value(field, json(0));
    }
    entry["leads"] = end == nullptr ? json::object() : end->value("leads", json::object());
    entry["clipped"] = end == nullptr ? json::object() : end->value("clipped", json::object());
}

void TakeScoreResult(json& entry, const json& end) {
    for (const char* field : {"limits", "files", "score"}) {
        entry[field] = end.value(field, json());
    }
}

// Each record has its own clock; with a single record, its clock is that of the step.
void TakeFoundClock(json& entry) {
    const json& records = entry["score"]["records"];
    if (records.size() == 1) {
        const json found = records[0].value("alignment", json::object());
        entry["offset"] = found.value("offset", json());
        entry["clockPpm"] = found.value("clockPpm", json());
    }
}

void TakeScore(json& entry, const json& step, const json* end) {
    for (const char* field :
         {"reference", "test", "learning", "window", "offset", "clockPpm", "align"}) {
        entry[field] = step.value(field, json());
    }
    entry["values"] = end == nullptr ? json::object() : end->value("values", json::object());
    TakeScoreResult(entry, end == nullptr ? step : *end);
    if (entry["align"] == true && !entry["score"].is_null()) {
        TakeFoundClock(entry);
    }
}

} // namespace

json EntryOf(const json& step, const json* end, int attempts, const json* material) {
    json entry;
    entry["name"] = step.value("name", "");
    entry["kind"] = step.value("kind", "");
    const bool isLeftOut = !step.value("selected", true);
    entry["outcome"] = end == nullptr ? "skipped" : end->value("outcome", "error");
    entry["attempts"] = attempts;
    entry["started"] = end == nullptr ? json() : end->value("started", json());
    entry["ended"] = end == nullptr ? json() : end->value("time", json());
    entry["seconds"] = end == nullptr ? json(0) : end->value("seconds", json(0));
    entry["message"] = end != nullptr ? end->value("message", "")
                       : isLeftOut    ? "left out by --only or --from"
                                      : "not done: the run has not got this far";
    if (entry["kind"] == "material") {
        TakeMaterial(entry, step, end, material);
    } else if (entry["kind"] == "score") {
        TakeScore(entry, step, end);
    } else if (entry["kind"] != "wait") {
        entry["values"] = end == nullptr ? json::object() : end->value("values", json::object());
        entry["min"] = step.value("min", json());
        entry["max"] = step.value("max", json());
        entry["unit"] = step.value("unit", json());
        if (end != nullptr && end->contains("score")) { // requested by a hook
            TakeScoreResult(entry, *end);
        }
    }
    return entry;
}

json ResultOf(const std::vector<json>& events) {
    const json* run = FirstEvent(events, "run");
    if (run == nullptr) {
        Fail(kMaterial, "journal.jsonl", "does not describe a run.", "Begin the run anew.");
    }
    const Course course = Follow(events);
    const json entries = EntriesOf(*run, course);
    json result;
    result["format"] = 1;
    for (const char* field : {"title", "plan", "planSha256", "version", "operator", "host"}) {
        result[field] = run->value(field, json());
    }
    result["started"] = run->value("time", "");
    result["ended"] = course.lastTime;
    result["outcome"] = OutcomeOf(entries, course.isFinished);
    result["standIns"] = UsesStandIns(entries);
    result["simulator"] = SimulatorOf(course);
    result["steps"] = entries;
    return result;
}

ExitStatus StatusOf(const json& result) {
    ExitStatus status = kDone;
    for (const json& entry : result["steps"]) {
        if (entry["outcome"] == "error" && entry["kind"] == "material") {
            return kOutputLost;
        }
        if (entry["outcome"] == "error" || entry["outcome"] == "failed") {
            status = kDifferent;
        }
    }
    return status;
}

const json* FirstEvent(const std::vector<json>& events, const std::string& kind) {
    const auto found = std::find_if(events.begin(), events.end(), [&](const json& event) {
        return event.value("event", "") == kind;
    });
    return found == events.end() ? nullptr : &*found;
}

const json* LastEvent(const std::vector<json>& events, const std::string& kind) {
    const auto found = std::find_if(events.rbegin(), events.rend(), [&](const json& event) {
        return event.value("event", "") == kind;
    });
    return found == events.rend() ? nullptr : &*found;
}

} // namespace lab
