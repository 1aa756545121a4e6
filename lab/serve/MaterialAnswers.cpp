#include "lab/serve/MaterialAnswers.h"

#include "lab/common/Json.h"
#include "lab/material/Builtin.h"
#include "lab/material/LeadStream.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/LoadRecord.h"
#include "lab/material/OpenMaterial.h"
#include "lab/material/readers/Files.h"
#include "lab/material/Record.h"
#include "lab/material/WfdbFiles.h"
#include "lab/serve/Exchange.h"
#include "lab/serve/HttpFailure.h"
#include "lab/serve/PlayOrder.h"
#include "lab/serve/SamplesJson.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

namespace lab::serve {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kNotFound = 404;
constexpr int kUnprocessable = 422;
constexpr int kFormat = 1;

// ---- Loading ------------------------------------------------------------------------------------

bool IsWfdb(const MaterialRequest& request) {
    return !IsWithoutFile(request.name) &&
           Recognise(request.name, request.format) == MaterialKind::kWfdb;
}

// The request with its names replaced by paths, all of which lie inside the root.
MaterialRequest Resolved(const Root& root, MaterialRequest request) {
    root.ResolveNames(request);
    for (const std::string& noise : {request.noise, request.builtinNoise}) {
        if (noise.find('/') != std::string::npos) {
            root.RequireSignalsInside(HeaderPathOf(noise));
        }
    }
    if (IsWfdb(request)) {
        root.RequireSignalsInside(HeaderPathOf(request.name));
    }
    return request;
}

Record LoadInside(const Root& root, const MaterialRequest& request) {
    Record record = LoadRecord(Resolved(root, request));
    root.RequireFilesInside(record);
    return record;
}

// ---- One entry of a list ------------------------------------------------------------------------

struct Entry {
    std::string material; // in the form that play takes
    std::string name;
    std::string source;
    double duration = 0.0; // seconds
    double rate = 0.0;     // samples per second
    std::vector<std::string> leads;
};

// The leads that feed the outputs, and those that follow from I and II.
std::vector<std::string> LeadsOf(const Record& record) {
    std::set<std::string> fed;
    for (const auto& [lead, signal] : record.Map()) {
        fed.insert(lead);
    }
    const bool isDerived = fed.count("I") != 0 && fed.count("II") != 0 && record.format != "aha";
    std::vector<std::string> leads;
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        const bool isLimb = i >= 2 && i < 6;
        if (isLimb ? isDerived : fed.count(kLeadNames[i]) != 0) {
            leads.emplace_back(kLeadNames[i]);
        }
    }
    return leads;
}

// Measures the signals that are played, or all signals when none is.
void Measure(const OpenedMaterial& opened, Entry& entry) {
    std::vector<std::size_t> signals = opened.record.FeedingSignals();
    const SourceRecord& source = opened.reader->Record();
    for (std::size_t i = 0; signals.empty() && i < source.signals.size(); ++i) {
        signals.push_back(i);
    }
    Rate highest;
    for (const std::size_t i : signals) {
        const SourceSignal& signal = source.signals[i];
        highest = entry.rate < signal.rate.PerSecond() ? signal.rate : highest;
        entry.rate = std::max(entry.rate, signal.rate.PerSecond());
        entry.duration = std::max(entry.duration, signal.Seconds());
    }
    entry.rate = signals.empty() ? 0.0 : PlayableRate(highest).PerSecond();
}

Entry EntryOfFile(const Root& root, const std::string& path) {
    MaterialRequest request;
    request.name = path;
    if (IsWfdb(request)) {
        root.RequireSignalsInside(path);
    }
    const OpenedMaterial opened = OpenMaterial(request);
    Entry entry{root.NameOf(path), opened.record.name, "file", 0.0, 0.0, LeadsOf(opened.record)};
    Measure(opened, entry);
    return entry;
}

void Write(Json& json, const Entry& entry) {
    json.BeginObject()
        .Field("material", entry.material)
        .Field("name", entry.name)
        .Field("source", entry.source)
        .Field("duration", entry.duration)
        .Field("rate", entry.rate)
        .Key("leads")
        .BeginArray();
    for (const std::string& lead : entry.leads) {
        json.Value(lead);
    }
    json.EndArray().EndObject();
}

// Built-in records are all alike: twelve leads at 1000 per second.
void WriteBuiltin(Json& json) {
    constexpr double kBuiltinRate = 1000.0;
    constexpr double kBuiltinSeconds = 10.0;
    const std::vector<std::string> leads(kLeadNames.begin(), kLeadNames.end());
    for (const RAVO_BUILTIN_RECORD& record : BuiltinRecords()) {
        const std::string name = record.Name;
        Write(json, {kBuiltinPrefix + name, name, record.Licensed != 0 ? "licensed" : "stand-in",
                     kBuiltinSeconds, kBuiltinRate, leads});
    }
}

void WriteNoises(Json& json) {
    json.Key("noises").BeginArray();
    for (const RAVO_BUILTIN_NOISE& noise : BuiltinNoises()) {
        json.BeginObject()
            .Field("name", noise.Name)
            .Field("source", noise.Licensed != 0 ? "licensed" : "stand-in")
            .EndObject();
    }
    json.EndArray();
}

// ---- A folder -----------------------------------------------------------------------------------

class Listing {
  public:
    Listing(const Root& root, const std::string& folder) : m_root(root), m_folder(folder) {}

    // Sorted by name; links that lead outside the folder are left out.
    void Collect() {
        std::error_code error;
        for (fs::directory_iterator entry(m_folder, error), end; !error && entry != end;
             entry.increment(error)) {
            const std::string path = entry->path().string();
            const bool isHidden = entry->path().filename().string().front() == '.';
            if (!isHidden && m_root.Holds(path)) {
                std::error_code lost;
                (entry->is_directory(lost) ? m_folders : m_files).insert(path);
            }
            m_isCut = m_isCut || m_folders.size() + m_files.size() > kMostEntries;
            if (m_isCut) {
                return;
            }
        }
    }

    void WriteFolders(Json& json) const {
        json.Key("folders").BeginArray();
        for (const std::string& path : m_folders) {
            json.BeginObject()
                .Field("name", fs::path(path).filename().string())
                .Field("under", m_root.NameOf(path))
                .EndObject();
        }
        json.EndArray();
    }

    void WriteRecords(Json& json) {
        for (const std::string& path : m_files) {
            if (!IsCandidate(path)) {
                continue;
            }
            if (Clock::now() - m_begin > kLongest) {
                m_isCut = true;
                return;
            }
            if (ToUtf8(path) != path) {
                m_unreadable.emplace_back(path, "cannot be asked for: its name is not UTF-8.");
                continue;
            }
            try {
                serve::Write(json, EntryOfFile(m_root, path));
            } catch (const Failure& failure) {
                m_unreadable.emplace_back(path, m_root.Hidden(failure.Problem()));
            }
        }
    }

    void WriteRest(Json& json) const {
        json.Key("unreadable").BeginArray();
        for (const auto& [path, problem] : m_unreadable) {
            json.BeginObject()
                .Field("name", fs::path(path).filename().string())
                .Field("problem", problem)
                .EndObject();
        }
        json.EndArray().Field("cut", m_isCut);
    }

  private:
    static constexpr std::size_t kMostEntries = 5000;
    static constexpr std::chrono::seconds kLongest{4};

    // A text file counts only if it looks like a record.
    static bool IsCandidate(const std::string& path) {
        static const std::set<std::string> kRecords = {".hea", ".edf", ".bdf", ".ecg",
                                                       ".dcd", ".csv", ".txt"};
        const std::string extension = Extension(path);
        if (kRecords.count(extension) == 0) {
            return false;
        }
        if (extension != ".txt" && extension != ".csv") {
            return true;
        }
        try {
            Recognise(path, "");
            return true;
        } catch (const Failure&) {
            return false;
        }
    }

    const Root& m_root;
    std::string m_folder;
    const Clock::time_point m_begin = Clock::now();
    std::set<std::string> m_folders;
    std::set<std::string> m_files;
    std::vector<std::pair<std::string, std::string>> m_unreadable;
    bool m_isCut = false;
};

} // namespace

std::string CheckMaterial(const Root& root, const std::string& body) {
    const PlayOrder order = ReadPlayOrder(body);
    const Record record = LoadInside(root, order.request.material);
    RequirePlayable(record);
    RequireStart(order.request, record);
    Json json;
    json.BeginObject().Field("name", record.name).EndObject();
    return json.Text();
}

std::string ListMaterials(const Root& root, const std::string& under) {
    const std::string folder = root.Resolve(under);
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        Refuse(kNotFound, Printable(under), "is not a folder.");
    }
    Listing listing(root, folder);
    listing.Collect();
    Json json;
    json.BeginObject().Field("format", kFormat).Field("under", root.NameOf(folder));
    listing.WriteFolders(json);
    json.Key("materials").BeginArray();
    listing.WriteRecords(json);
    if (under.empty()) {
        WriteBuiltin(json);
    }
    json.EndArray();
    listing.WriteRest(json);
    if (under.empty()) {
        WriteNoises(json);
    }
    json.EndObject();
    return json.Text();
}

std::string PreviewMaterial(const Root& root, const std::string& material, double start,
                            double seconds) {
    constexpr double kMostSamples = 200'000; // of each lead
    MaterialRequest request;
    request.name = material;
    const Record record = LoadInside(root, request);
    const auto rate = static_cast<double>(record.rate);
    if (seconds * rate > kMostSamples) {
        Refuse(kUnprocessable, "seconds", Format("is more than a preview shows: %g.", seconds),
               Format("Of this material it shows at most %g at once.",
                      std::floor(kMostSamples / rate)));
    }
    if (start >= record.Seconds()) {
        Refuse(kUnprocessable, "start",
               Format("is past the end: the material lasts %.3f s.", record.Seconds()));
    }
    LeadRows leads;
    const int first = static_cast<int>(start);
    const auto skipped = std::llround((start - first) * rate);
    const auto wanted = std::llround(seconds * rate);
    int64_t number = 0;
    ForEachSample(first, static_cast<int>(std::ceil(start - first + seconds)) + 1,
                  [&](const double* sample) {
                      const int64_t at = number++ - skipped;
                      for (std::size_t i = 0; at >= 0 && at < wanted && i < kLeadCount; ++i) {
                          leads[i].push_back(sample[i]);
                      }
                  });
    return SamplesJson(first + static_cast<double>(skipped) / rate, rate, leads);
}

std::string OverviewMaterial(const Root& root, const std::string& material) {
    constexpr std::size_t kColumns = 600;
    MaterialRequest request;
    request.name = material;
    const Record record = LoadInside(root, request);
    if (record.isEndless || record.FeedingSignals().empty()) {
        Refuse(kUnprocessable, Printable(material), "has no end, or nothing that plays.");
    }
    const std::size_t lead = record.supplied[1]
                                 ? 1
                                 : LeadOfOutput(static_cast<std::size_t>(
                                       record.signals[record.FeedingSignals().front()].lead));
    std::vector<double> least(kColumns, std::numeric_limits<double>::infinity());
    std::vector<double> most(kColumns, -std::numeric_limits<double>::infinity());
    std::size_t number = 0;
    ForEachSample(0, static_cast<int>(std::ceil(record.Seconds())), [&](const double* sample) {
        const std::size_t column =
            std::min(number++ * kColumns / static_cast<std::size_t>(record.samples), kColumns - 1);
        least[column] = std::min(least[column], sample[lead]);
        most[column] = std::max(most[column], sample[lead]);
    });
    for (std::size_t i = 1; i < kColumns; ++i) {
        if (least[i] > most[i]) { // when there are fewer samples than columns
            least[i] = least[i - 1];
            most[i] = most[i - 1];
        }
    }
    Json json;
    json.BeginObject().Field("duration", record.Seconds()).Field("lead", kLeadNames[lead]);
    for (const auto& [name, values] : {std::pair("least", &least), std::pair("most", &most)}) {
        json.Key(name).BeginArray();
        for (const double value : *values) {
            json.Value(std::round(value * 1000.0) / 1000.0);
        }
        json.EndArray();
    }
    json.EndObject();
    return json.Text();
}

HttpAnswer AnswerQuestion(const Root& root, const std::string& question) {
    HttpAnswer answer;
    try {
        const auto asked = nlohmann::json::parse(question);
        if (asked.contains("check")) {
            answer.body = CheckMaterial(root, asked.at("check").get<std::string>());
        } else if (asked.contains("list")) {
            answer.body = ListMaterials(root, asked.at("list").get<std::string>());
        } else if (asked.contains("overview")) {
            answer.body = OverviewMaterial(root, asked.at("overview").get<std::string>());
        } else {
            answer.body =
                PreviewMaterial(root, asked.at("preview").get<std::string>(),
                                asked.at("start").get<double>(), asked.at("seconds").get<double>());
        }
    } catch (const Failure& failure) {
        answer =
            FailedAnswer(HttpFailure(HttpStatusOf(failure), root.Hidden(failure.Where()),
                                     root.Hidden(failure.Problem()), root.Hidden(failure.Cure())));
    } catch (const std::exception& error) {
        answer = FailedAnswer(error);
    }
    return answer;
}

} // namespace lab::serve
