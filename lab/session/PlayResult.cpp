#include "lab/session/Play.h"

namespace lab {
namespace {

void WriteText(Json& json, const char* name, const std::string& text) {
    json.Key(name);
    text.empty() ? json.Null() : json.Value(text);
}

template <typename Value>
void WriteMap(Json& json, const char* name, const std::map<std::string, Value>& map) {
    json.Key(name).BeginObject();
    for (const auto& [key, value] : map) {
        json.Field(key.c_str(), value);
    }
    json.EndObject();
}

void WriteMaterial(Json& json, const PlayResult& result) {
    json.Field("record", result.record);
    WriteText(json, "path", result.path);
    json.Field("source", result.source);
}

void WriteSimulator(Json& json, const PlayResult& result) {
    json.Field("device", result.device)
        .Field("model", result.model)
        .Field("serial", result.serial)
        .Field("calibrated", result.calibration == "loaded")
        .Field("calibration", result.calibration)
        .Field("version", result.version);
}

void WriteSettings(Json& json, const PlayResult& result) {
    WriteMap(json, "map", result.map);
    WriteText(json, "noise", result.noise);
    WriteMap(json, "gain", result.gain);
    json.Field("offset", result.offset).Field("missing", result.missing).Key("resampledFrom");
    result.resampledFrom > 0.0 ? json.Value(result.resampledFrom) : json.Null();
    WriteMap(json, "clipped", result.clipped);
}

void WriteFigures(Json& json, const PlayResult& result) {
    WriteText(json, "startedAt", result.startedAt);
    WriteText(json, "endedAt", result.endedAt);
    json.Field("start", result.start)
        .Field("seconds", result.seconds)
        .Field("elapsed", result.elapsed)
        .Field("rate", result.rate)
        .Field("nominalRate", result.nominalRate)
        .Field("measuredRate", result.measuredRate)
        .Key("framesDue");
    result.framesDue == 0 ? json.Null() : json.Value(result.framesDue);
    json.Field("framesPlayed", result.framesPlayed)
        .Field("framesSent", result.framesSent)
        .Field("framesBeyondEnd", result.framesBeyondEnd)
        .Field("requests", result.requests)
        .Field("delays", result.delays)
        .Field("largestDelay", result.largestDelay);
}

std::string ProblemOf(const PlayResult& result) {
    if (result.isRefused) {
        return "did not accept the start command.";
    }
    if (result.requests == 0 && result.ending != Ending::kLost) {
        return "does not start: it asked for no data after the start command.";
    }
    const std::string due = result.secondsDue > 0.0 ? Format(" of %.3f s", result.secondsDue) : "";
    const char* reason = result.ending == Ending::kLost ? "the simulator was disconnected"
                                                        : "the simulator stopped asking for data";
    return Format("output ended after %.3f s%s: %s.", result.seconds, due.c_str(), reason);
}

} // namespace

void WriteFields(Json& json, const PlayResult& result) {
    WriteMaterial(json, result);
    WriteSimulator(json, result);
    WriteSettings(json, result);
    WriteFigures(json, result);
    json.Field("result", EndingText(result.ending));
}

const char* EndingText(Ending ending) {
    switch (ending) {
    case Ending::kFinished:
        return "finished";
    case Ending::kShort:
        return "short";
    case Ending::kLost:
        return "lost";
    case Ending::kInterrupted:
        return "interrupted";
    }
    return "";
}

std::optional<Failure> FailureOf(const PlayResult& result) {
    if (result.ending == Ending::kFinished || result.ending == Ending::kInterrupted) {
        return std::nullopt;
    }
    return Failure(kOutputLost, result.device, ProblemOf(result),
                   "Check cable and power; a busy machine or hub can also starve it.");
}

} // namespace lab
