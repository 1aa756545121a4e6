#include "lab/plan/Resumption.h"

#include "lab/common/Failure.h"
#include "lab/plan/Events.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace lab {
namespace {

using json = nlohmann::ordered_json;

void RequireSameFiles(const json& before, const json& now) {
    for (const json& file : now) {
        if (std::find(before.begin(), before.end(), file) == before.end()) {
            Fail(kMaterial, file.value("path", ""), "has changed since the run began.",
                 "Put the file back as it was, or begin a new run in another folder.");
        }
    }
}

void RequireSameMaterial(const json& before, const json& now) {
    RequireSameFiles(before["files"], now["files"]);
    if (before.value("source", "") != now.value("source", "")) {
        Fail(kMaterial, now.value("record", ""), "comes from another source than before.",
             "This library has other built-in data; begin a new run in another folder.");
    }
}

void RequireSameReferences(const json& run, const Checks& checks) {
    for (const json& step : run["steps"]) {
        const auto now = checks.references.find(step.value("name", ""));
        if (now != checks.references.end()) {
            RequireSameFiles(step.value("files", json::array()), FileEntries(now->second));
        }
    }
}

} // namespace

void RequireSameRun(const std::vector<json>& events, const Plan& plan, const RunRequest& request,
                    const Checks& checks) {
    const json& run = events.front();
    if (run.value("event", "") != "run") {
        Fail(kCannotWrite, request.output, "holds a journal that does not begin a run.");
    }
    if (run.value("planSha256", "") != Sha256(plan.text)) {
        Fail(kUsage, plan.path, "has changed since the run began.",
             "Give the plan as it was, or begin a new run in another folder.");
    }
    if (run.value("only", "") != request.only || run.value("from", "") != request.from) {
        Fail(kUsage, "--only, --from", "are not those with which the run began.");
    }
    std::size_t known = 0;
    for (const json& event : events) {
        if (event.value("event", "") == "material" && known < checks.materials.size()) {
            RequireSameMaterial(event, MaterialEvent(checks.materials[known++]));
        }
    }
    RequireSameReferences(run, checks);
}

} // namespace lab
