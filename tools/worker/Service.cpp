#include "tools/worker/Service.h"

#include "lab/material/LoadedSamples.h"
#include "lab/material/LoadRecord.h"
#include "tools/worker/Options.h"
#include "tools/worker/OutputRecords.h"
#include "tools/worker/Picture.h"
#include "tools/worker/RecordAnswer.h"
#include "tools/worker/SampleStaging.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <new>

namespace worker {
namespace {

using lab::kLeadCount;
using lab::kOutputCount;
using nlohmann::json;

template <std::size_t N>
std::vector<Piece> Rows(const std::array<std::vector<double>, N>& rows) {
    std::vector<Piece> pieces;
    for (const std::vector<double>& row : rows) {
        pieces.push_back({row.data(), row.size() * sizeof(double)});
    }
    return pieces;
}

MadeSamples SamplesOf(const Message& request) {
    const json& described = request.head.at("samples");
    MadeSamples made;
    made.rate = lab::ParseFraction(described.at("rate").get<std::string>()).value_or(lab::Rate{});
    made.leads = described.at("leads").get<std::vector<std::string>>();
    const auto frames = described.at("frames").get<std::size_t>();
    if (made.leads.empty() || made.rate.numerator < 1 ||
        request.payload.Size() != made.leads.size() * frames * sizeof(double)) {
        lab::Fail(lab::kUsage, "samples", "do not match their description.");
    }
    const char* bytes = request.payload.Data();
    for (std::size_t i = 0; i < made.leads.size(); ++i, bytes += frames * sizeof(double)) {
        std::vector<double>& row = made.rows.emplace_back(frames);
        std::memcpy(row.data(), bytes, frames * sizeof(double));
    }
    return made;
}

json FieldsOf(const lab::PlayResult& result, const lab::Record& record) {
    lab::Json fields;
    fields.BeginObject();
    lab::WriteFields(fields, result);
    fields.EndObject();
    json played = json::parse(fields.Text());
    played["framesPerSecond"] = record.FramesPerSecond();
    played["secondsDue"] = result.framesDue == 0 ? json() : json(result.secondsDue);
    played["warnings"] = record.warnings;
    return played;
}

json Described(const lab::SimulatorInformation& simulator) {
    return {{"device", simulator.device},           {"model", simulator.model},
            {"serial", simulator.serial},           {"bits", simulator.dacBits},
            {"calibrated", simulator.isCalibrated}, {"calibrationFile", simulator.calibrationFile},
            {"version", lab::LibraryVersion()}};
}

json EventOf(const lab::PlayPosition& position) {
    json event = {{"event", "progress"},
                  {"elapsed", position.elapsed},
                  {"played", position.played},
                  {"position", position.position},
                  {"framesPlayed", position.framesPlayed},
                  {"measuredRate", position.measuredRate},
                  {"delays", position.delays}};
    event["due"] = std::isfinite(position.due) ? json(position.due) : json();
    return event;
}

// Where the play starts in the loaded record, in whole seconds.
int StartOf(const lab::PlayRequest& request, const lab::Record& record) {
    return static_cast<int>(request.start - record.skippedSeconds);
}

} // namespace

// ---- Requests and answers -----------------------------------------------------------------------

void Service::Answer(const Message& request) {
    try {
        Carry(request);
    } catch (const lab::Failure& failure) {
        ReplyFailure(request, failure);
    } catch (const std::bad_alloc&) {
        ReplyFailure(request, {lab::kMaterial, "ravo", "there is not enough memory for this."});
    } catch (const std::exception& error) {
        ReplyFailure(request, {lab::kUsage, "ravo", error.what()});
    }
}

void Service::Carry(const Message& request) {
    static const std::map<std::string, void (Service::*)(const Message&)> kRequests = {
        {"connect", &Service::Connect},     {"play", &Service::Play},
        {"outputs", &Service::SendOutputs}, {"expected", &Service::SendExpected},
        {"preview", &Service::SendPreview}, {"load", &Service::SendRecord},
        {"picture", &Service::SendPicture},
    };
    const std::string name = request.head.at("do").get<std::string>();
    if (name == "echo") {
        Reply(request, json::object(), {{request.payload.Data(), request.payload.Size()}});
        return;
    }
    const auto found = kRequests.find(name);
    if (found == kRequests.end()) {
        lab::Fail(lab::kUsage, name, "is not a request.");
    }
    (this->*found->second)(request);
}

void Service::Reply(const Message& request, const json& result, const std::vector<Piece>& payload) {
    m_channel.Send({{"id", request.head.at("id")}, {"result", result}}, payload);
}

void Service::ReplyFailure(const Message& request, const lab::Failure& failure,
                           const json& played) {
    json error = {{"status", static_cast<int>(failure.Status())},
                  {"where", failure.Where()},
                  {"problem", failure.Problem()},
                  {"cure", failure.Cure()}};
    if (!played.is_null()) {
        error["played"] = played;
    }
    m_channel.Send({{"id", request.head.value("id", int64_t{0})}, {"error", error}});
}

void Service::Tell(const Message& request, json event) {
    event["id"] = request.head.at("id");
    m_channel.Send(event);
}

// ---- The simulator ------------------------------------------------------------------------------

void Service::Connect(const Message& request) {
    if (request.head.contains("port")) {
        m_choice.port = request.head.at("port").get<int>();
    }
    m_choice.serial = request.head.value("serial", "");
    m_choice.timeout =
        std::max(1, static_cast<int>(std::ceil(request.head.at("timeout").get<double>())));
    m_simulator = std::make_unique<lab::Simulator>(m_choice.port, m_choice.serial);
    AwaitSimulator(request);
    Reply(request, Described(lab::DescribeSimulator()));
}

void Service::AwaitSimulator(const Message& request) {
    if (m_simulator == nullptr) {
        lab::Fail(lab::kUsage, "ravo", "there is no simulator to play on.");
    }
    const auto tell = [&](double elapsed, const std::string& what) {
        Tell(request, {{"event", "search"}, {"elapsed", elapsed}, {"what", what}});
    };
    if (!m_simulator->IsConnected() && !m_simulator->WaitConnected(m_choice, m_interrupt, tell)) {
        lab::Fail(lab::kNoSimulator, "ravo", "the search was abandoned.");
    }
}

void Service::Play(const Message& request) {
    Material material = Load(request);
    lab::RequirePlayable(material.record);
    lab::RequireStart(material.request, material.record);
    AwaitSimulator(request);
    const std::string warning =
        lab::RequireCalibration(lab::DescribeSimulator(), material.request.requireCalibrated);
    if (!warning.empty()) {
        material.record.warnings.push_back(warning);
    }
    OutputRecords(m_outputs).Clear();
    // The first one, which reports that the output is on, is always sent.
    bool isTold = true;
    const auto tell = [&](const lab::PlayPosition& position) {
        if (isTold) {
            Tell(request, EventOf(position));
        }
        isTold = request.head.value("progress", true);
    };
    lab::PlayResult result =
        lab::PlayLoaded(material.request, material.record, *m_simulator, m_interrupt, tell);
    if (material.isMade) {
        result.clipped = material.clipped;
    }
    const json played = FieldsOf(result, material.record);
    if (const auto failure = lab::FailureOf(result)) {
        ReplyFailure(request, *failure, played);
    } else {
        Reply(request, played);
    }
}

// ---- Material -----------------------------------------------------------------------------------

Service::Material Service::Load(const Message& request) const {
    Material material;
    const json options = request.head.value("options", json::object());
    material.request = PlayRequestOf(request.head.value("material", ""), options);
    if (request.head.contains("samples")) {
        LoadedMade loaded = LoadSamples(SamplesOf(request), material.request.material);
        material.record = std::move(loaded.record);
        material.clipped = std::move(loaded.clipped);
        material.isMade = true;
    } else {
        material.record = lab::LoadRecord(material.request.material);
    }
    return material;
}

void Service::SendPreview(const Message& request) {
    const Material material = Load(request);
    const lab::Record& record = material.record;
    lab::RequireStart(material.request, record);
    const double length = std::min(record.Seconds() - StartOf(material.request, record),
                                   request.head.value("length", 10.0));
    const auto frames =
        static_cast<std::size_t>(std::llround(length * static_cast<double>(record.rate)));
    lab::Leads leads;
    lab::ForEachSample(StartOf(material.request, record), static_cast<int>(std::ceil(length)),
                       [&](const double* sample) {
                           for (std::size_t i = 0; i < kLeadCount && leads[i].size() < frames;
                                ++i) {
                               leads[i].push_back(sample[i]);
                           }
                       });
    json supplied = json::array();
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        if (record.supplied[i]) {
            supplied.push_back(lab::kLeadNames[i]);
        }
    }
    Reply(request,
          {{"rate", record.rate},
           {"frames", leads[0].size()},
           {"start", material.request.start},
           {"supplied", supplied},
           {"source", record.origin},
           {"warnings", record.warnings}},
          Rows(leads));
}

void Service::SendRecord(const Message& request) {
    const json options = request.head.value("options", json::object());
    const RecordAnswer answer(PlayRequestOf(request.head.value("material", ""), options).material);
    Reply(request, answer.Head(), answer.Pieces());
}

void Service::SendPicture(const Message& request) {
    const Material material = Load(request);
    std::optional<lab::Outputs> outputs;
    if (request.head.value("decoded", false)) {
        outputs = OutputRecords(m_outputs).Read();
    }
    const std::string picture =
        DrawnPicture(material.record, StartOf(material.request, material.record),
                     request.head.value("picture", json::object()), outputs);
    Reply(request, json::object(), {{picture.data(), picture.size()}});
}

// ---- What the outputs carry ---------------------------------------------------------------------

void Service::SendOutputs(const Message& request) {
    const lab::Outputs outputs = OutputRecords(m_outputs).Read();
    Reply(request, {{"rate", outputs.rate}, {"frames", outputs.Frames()}},
          Rows(outputs.millivolts));
}

void Service::SendExpected(const Message& request) {
    const Material material = Load(request);
    const lab::Outputs outputs =
        lab::ExpectedOutputs(material.record, StartOf(material.request, material.record),
                             request.head.at("frames").get<std::size_t>());
    Reply(request, {{"rate", outputs.rate}, {"frames", outputs.Frames()}},
          Rows(outputs.millivolts));
}

} // namespace worker
