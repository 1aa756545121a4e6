#include "lab/plan/ScoreOutcome.h"

#include "lab/common/Failure.h"
#include "lab/evidence/Digest.h"
#include "lab/evidence/Numbers.h"
#include "lab/score/ScoreJson.h"
#include "lab/session/Simulator.h"

namespace lab {
namespace {

using json = nlohmann::ordered_json;

json ValueOf(const score::ScoreResult& result, const std::string& name) {
    const auto value = score::Figure(result, name);
    return value ? json(AsPrinted(*value)) : json();
}

// The path as a task in this folder would name it.
std::string NameIn(const std::string& folder, const std::string& path) {
    const std::string prefix = folder + "/";
    return path.rfind(prefix, 0) == 0 ? path.substr(prefix.size()) : path;
}

json FilesOf(const score::ScoreResult& result, const std::string& folder) {
    json files = json::array();
    for (const score::RecordScore& record : result.records) {
        for (const std::string& path : {record.input.reference, record.input.test}) {
            const FileDigest digest = DigestFile(path);
            files.push_back({{"path", ToUtf8(NameIn(folder, path))},
                             {"sha256", digest.sha256},
                             {"bytes", digest.bytes}});
        }
    }
    return files;
}

// The result, with its paths as the task names them.
json JsonOf(score::ScoreResult result, const ScoreTask& task, const std::string& folder) {
    result.request.reference = task.request.reference;
    result.request.test = task.request.test;
    for (score::RecordScore& record : result.records) {
        record.input.reference = NameIn(folder, record.input.reference);
        record.input.test = NameIn(folder, record.input.test);
    }
    return json::parse(score::ScoreJson(result));
}

// Why the limit is exceeded; empty when it is not.
std::string Breach(const ScoreLimit& limit, const json& value) {
    const std::string& figure = limit.limit.figure;
    if (value.is_null()) {
        return figure + " is undefined: there is nothing to count";
    }
    const double number = value.get<double>();
    const double bound = AsPrinted(limit.value);
    const bool isKept = limit.limit.isLeast ? number >= bound : number <= bound;
    return isKept ? ""
                  : figure + " is " + NumberText(number) +
                        (limit.limit.isLeast ? ", below " : ", above ") + NumberText(bound);
}

} // namespace

ScoreOutcome CarryOutScore(const ScoreTask& task, const std::string& folder) {
    ScoreOutcome outcome;
    outcome.limits = LimitsOf(task);
    try {
        score::ScoreRequest request = RequestIn(task, folder);
        request.version = LibraryVersion();
        const score::ScoreResult result = score::ScoreFiles(request);
        outcome.files = FilesOf(result, folder);
        outcome.score = JsonOf(result, task, folder);
        outcome.warnings = result.remarks;
        for (const score::NamedFraction& fraction : score::FractionsOf(result.gross)) {
            outcome.values[fraction.name] = ValueOf(result, fraction.name);
        }
        for (const ScoreLimit& limit : task.limits) {
            const json value = ValueOf(result, limit.limit.figure);
            const std::string breach = Breach(limit, value);
            outcome.values[limit.limit.figure] = value;
            outcome.message += (outcome.message.empty() || breach.empty() ? "" : "; ") + breach;
        }
        outcome.outcome = outcome.message.empty() ? "passed" : "failed";
    } catch (const Failure& failure) {
        outcome.outcome = "error";
        outcome.message = failure.Where() + ": " + failure.Problem();
    }
    return outcome;
}

json LimitsOf(const ScoreTask& task) {
    json limits = json::object();
    for (const ScoreLimit& limit : task.limits) {
        limits[limit.name] = AsPrinted(limit.value);
    }
    return limits;
}

} // namespace lab
