#include "lab/serve/StateJson.h"

#include "lab/common/Json.h"
#include "lab/session/Simulator.h"

#include "api/ravo.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace lab::serve {
namespace {

// Incremented when a field changes its meaning or is removed, not when one is added.
constexpr int kFormat = 1;

const char* NameOf(State state) {
    return state == State::kOk ? "ok" : state == State::kWarning ? "warning" : "failed";
}

// The figures of the current play; all 0 when nothing plays.
struct Figures {
    double position = 0.0; // second within the material
    double measuredRate = 0.0;
    double nominalRate = 0.0;
    int64_t framesPlayed = 0;
    int64_t delays = 0;
};

Figures FiguresOf(const BenchState& state) {
    Figures figures;
    if (state.player.playing == nullptr) {
        return figures;
    }
    const Playing& playing = *state.player.playing;
    const SampleOrder order(playing);
    const auto due = [&](int64_t frames) {
        return playing.framesDue == 0 ? frames : std::min(frames, playing.framesDue);
    };
    RAVO_OUTPUT_POSITION position{};
    RAVOGetOutputPosition(&position);
    figures.framesPlayed = due(static_cast<int64_t>(position.FramesPlayed));
    figures.measuredRate = position.MeasuredRate;
    figures.nominalRate = position.NominalRate;
    figures.delays = position.DelayReports;
    figures.position = order.SecondsOf(order.SamplesOf(due(FramesByNow(state.speedUp))));
    return figures;
}

void WriteSimulator(Json& json, const PlayerState& player) {
    const SimulatorInformation& simulator = player.simulator;
    const std::string& calibration = player.calibration.code;
    json.Key("simulator").BeginObject();
    json.Field("connected", player.isConnected)
        .Field("model", simulator.model)
        .Field("serial", simulator.serial)
        .Field("bits", simulator.dacBits)
        .Field("calibrated", simulator.isCalibrated)
        .Field("calibration", calibration)
        .Field("device", simulator.device)
        .EndObject();
}

void WriteNoise(Json& json, const PlayerState& player) {
    json.Key("noise");
    player.isNoiseOn ? json.Value(player.playing->record.noise) : json.Value(false);
}

// What the play was started with, on or off, and whether it can be switched.
void WriteChosenNoise(Json& json, const Playing* playing) {
    const bool isChosen = playing != nullptr && !playing->record.noise.empty();
    json.Key("noiseChosen");
    if (isChosen) {
        json.Value(playing->record.noise);
    } else {
        json.Null();
    }
    json.Field("noiseSwitchable", playing != nullptr && !playing->libraryNoise.empty());
}

void WriteLeads(Json& json, const Playing* playing) {
    json.Key("leads").BeginArray();
    for (std::size_t i = 0; playing != nullptr && i < kLeadCount; ++i) {
        if (playing->record.supplied[i]) {
            json.Value(kLeadNames[i]);
        }
    }
    json.EndArray();
}

void WriteOutput(Json& json, const BenchState& state) {
    const Playing* playing = state.player.playing.get();
    const Figures figures = FiguresOf(state);
    json.Key("output").BeginObject();
    json.Field("state", playing == nullptr ? "idle" : "playing").Key("material");
    playing == nullptr ? json.Null() : json.Value(playing->material);
    json.Key("name");
    playing == nullptr ? json.Null() : json.Value(playing->record.name);
    json.Key("source");
    playing == nullptr ? json.Null() : json.Value(playing->record.origin);
    json.Field("start", playing == nullptr ? 0.0 : playing->request.start)
        .Field("position", figures.position)
        .Key("duration"); // null without end
    playing == nullptr ? json.Null()
                       : json.Value(playing->record.Seconds() + playing->record.skippedSeconds);
    json.Field("rate", playing == nullptr ? 0.0 : static_cast<double>(playing->record.rate))
        .Field("measuredRate", figures.measuredRate)
        .Field("nominalRate", figures.nominalRate)
        .Field("framesPlayed", figures.framesPlayed)
        .Field("framesDue", playing == nullptr ? int64_t{0} : playing->framesDue)
        .Field("delays", figures.delays)
        .Field("silent", state.isSilent)
        .Field("loop", playing != nullptr && playing->request.loop);
    WriteNoise(json, state.player);
    WriteChosenNoise(json, playing);
    WriteLeads(json, playing);
    json.EndObject();
}

void WriteLast(Json& json, const std::optional<EndedPlay>& last) {
    json.Key("last");
    if (!last) {
        json.Null();
        return;
    }
    json.BeginObject()
        .Field("material", last->material)
        .Field("result", last->result)
        .Field("seconds", last->seconds)
        .EndObject();
}

void WriteRefused(Json& json, const std::optional<HttpFailure>& refused) {
    json.Key("refused");
    if (!refused) {
        json.Null();
        return;
    }
    json.BeginObject()
        .Field("where", refused->Where())
        .Field("problem", refused->Problem())
        .Field("cure", refused->Cure())
        .EndObject();
}

const char* NameOf(Order::Kind kind) {
    return kind == Order::Kind::kPlay ? "play" : kind == Order::Kind::kStop ? "stop" : "noise";
}

void WriteOrder(Json& json, const Order& order) {
    json.BeginObject().Field("order", NameOf(order.kind)).Key("material");
    order.kind == Order::Kind::kPlay ? json.Value(order.play.material) : json.Null();
    json.EndObject();
}

// The last one, and all of them in order.
void WritePending(Json& json, const BenchState& state) {
    json.Key("pending");
    if (state.pending.empty()) {
        json.Null();
    } else {
        WriteOrder(json, *state.pending.back());
    }
    json.Key("orders").BeginArray();
    for (const auto& order : state.pending) {
        WriteOrder(json, *order);
    }
    json.EndArray();
}

void WriteFinding(Json& json, const Finding& finding) {
    json.BeginObject().Key("port");
    finding.port.empty() ? json.Null() : json.Value(finding.port);
    json.Field("check", finding.check)
        .Field("state", NameOf(finding.state))
        .Field("code", finding.code)
        .Field("found", finding.sentence)
        .Key("cure");
    finding.cure.empty() ? json.Null() : json.Value(finding.cure);
    json.EndObject();
}

void WriteFindings(Json& json, const BenchState& state) {
    json.Key("findings").BeginArray();
    for (const Finding& finding : state.findings) {
        WriteFinding(json, finding);
    }
    Finding calibration = state.player.calibration;
    if (calibration.state != State::kOk) {
        calibration.port = state.player.simulator.device;
        WriteFinding(json, calibration);
    }
    if (state.isSilent) {
        WriteFinding(json, {State::kFailed, "output", "silent",
                            "the simulator has stopped asking for data",
                            "Check its cable and power, and plug it in again.",
                            state.player.simulator.device});
    }
    json.EndArray();
}

// ---- The test plan ------------------------------------------------------------------------------

// The steps of a long plan that are near the current one.
constexpr std::size_t kMostSteps = 200;

std::size_t FirstShown(const RunProgress& run) {
    const std::size_t present = run.current.value_or(run.outcome.empty() ? 0 : run.steps.size());
    const std::size_t last = std::max(run.steps.size(), kMostSteps) - kMostSteps;
    return std::min(std::max(present, kMostSteps / 2) - kMostSteps / 2, last);
}

void WriteSteps(Json& json, const RunProgress& run) {
    const std::size_t first = FirstShown(run);
    const std::size_t end = std::min(run.steps.size(), first + kMostSteps);
    json.Field("first", static_cast<int64_t>(first)).Key("steps").BeginArray();
    for (std::size_t i = first; i < end; ++i) {
        const RunProgress::Step& step = run.steps[i];
        json.BeginObject()
            .Field("name", step.name)
            .Field("kind", step.kind)
            .Field("outcome", step.outcome)
            .Field("message", step.message)
            .EndObject();
    }
    json.EndArray();
}

void WriteCounts(Json& json, const RunProgress& run) {
    std::map<std::string, int> counts = {{"passed", 0}, {"failed", 0}, {"error", 0}};
    for (const RunProgress::Step& step : run.steps) {
        if (!step.outcome.empty()) {
            ++counts[step.outcome];
        }
    }
    json.Key("counts").BeginObject();
    for (const auto& [outcome, count] : counts) {
        json.Field(outcome.c_str(), count);
    }
    json.EndObject();
}

// Present only while a plan runs.
void WriteRun(Json& json, const std::optional<RunProgress>& run) {
    if (!run) {
        return;
    }
    json.Key("run").BeginObject();
    json.Field("title", run->title).Field("outcome", run->outcome).Key("current");
    run->current ? json.Value(static_cast<int64_t>(*run->current)) : json.Null();
    json.Field("played", run->played)
        .Field("due", run->due) // null without end
        .Field("delays", run->delays)
        .Field("left", run->left)
        .Field("count", static_cast<int64_t>(run->steps.size()));
    WriteCounts(json, *run);
    WriteSteps(json, *run);
    json.EndObject();
}

std::string Metric(const char* name, const char* type, const char* help, double value) {
    return Format("# HELP %s %s\n# TYPE %s %s\n%s %.10g\n", name, help, name, type, name, value);
}

} // namespace

std::string StateJson(const BenchState& state) {
    Json json;
    json.BeginObject().Field("format", kFormat).Field("version", LibraryVersion());
    WriteSimulator(json, state.player);
    WriteOutput(json, state);
    WriteLast(json, state.player.last);
    WriteRefused(json, state.refused);
    WritePending(json, state);
    json.Field("viewers", state.viewers);
    WriteFindings(json, state);
    WriteRun(json, state.run);
    json.EndObject();
    return json.Text();
}

std::string MetricsText(const BenchState& state) {
    const Figures figures = FiguresOf(state);
    const auto sum = [](int64_t before, int64_t now) { return static_cast<double>(before + now); };
    const PlayerState& player = state.player;
    return Metric("ravo_connected", "gauge", "Whether a simulator is connected.",
                  player.isConnected ? 1.0 : 0.0) +
           Metric("ravo_playing", "gauge", "Whether output runs.",
                  player.playing != nullptr ? 1.0 : 0.0) +
           Metric("ravo_frames_played_total", "counter",
                  "Frames that the simulator's requests prove to have left its outputs.",
                  sum(player.framesBefore, figures.framesPlayed)) +
           Metric("ravo_delays_total", "counter", "Delays that the simulator has reported.",
                  sum(player.delaysBefore, figures.delays)) +
           Metric("ravo_measured_rate", "gauge",
                  "Frames per second of this machine's clock; 0 when idle or too early to say.",
                  figures.measuredRate) +
           Metric("ravo_position_seconds", "gauge", "Second within the material.",
                  figures.position) +
           Metric("ravo_viewers", "gauge", "Viewers: pages and programs that follow the events.",
                  state.viewers);
}

} // namespace lab::serve
