#include "lab/score/ScoreJson.h"

#include "lab/common/Json.h"

namespace lab::score {
namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

// Writes the fractions of one set of figures, or of the average, which has no counts.
class Writer {
  public:
    Writer(Json& json, const Fractions& fractions, const Figures* figures)
        : m_json(json), m_fractions(fractions), m_figures(figures) {}

    void Write() {
        if (m_figures != nullptr) {
            WriteMatrix();
        }
        WriteBeats();
        WriteRuns();
        WriteEpisodes();
    }

  private:
    void Fraction(const char* key, const std::string& name) {
        m_json.Key(key);
        const auto value = Find(m_fractions, name)->value;
        value ? m_json.Value(*value) : m_json.Null();
    }

    void WriteMatrix() {
        m_json.Key("matrix").BeginObject();
        for (std::size_t row = 0; row < kLabels; ++row) {
            const std::size_t columns = row < kBeatClasses ? kLabels : kBeatClasses;
            for (std::size_t column = 0; column < columns; ++column) {
                const std::string cell = {kReferenceLetters[row], kTestLetters[column]};
                m_json.Field(cell.c_str(), m_figures->matrix[row][column]);
            }
        }
        m_json.EndObject();
    }

    void WriteDetection(const char* key, const std::string& name, const Detection& detection,
                        bool hasRate) {
        m_json.Key(key).BeginObject();
        if (m_figures != nullptr) {
            m_json.Field("tp", detection.truePositives)
                .Field("fn", detection.falseNegatives)
                .Field("fp", detection.falsePositives);
        }
        if (m_figures != nullptr && hasRate) {
            m_json.Field("tn", detection.trueNegatives);
        }
        Fraction("se", name + "_se");
        Fraction("ppv", name + "_ppv");
        if (hasRate) {
            Fraction("fpr", name + "_fpr");
        }
        m_json.EndObject();
    }

    void WriteBeats() {
        const Figures none;
        const Figures& figures = m_figures != nullptr ? *m_figures : none;
        WriteDetection("qrs", "qrs", figures.Qrs(), false);
        WriteDetection("veb", "veb", figures.Ventricular(), true);
        WriteDetection("sveb", "sveb", figures.Supraventricular(), true);
    }

    void WriteRunsOf(const std::string& letter, const RunMatches& runs) {
        m_json.Key(letter.c_str()).BeginObject();
        for (std::size_t i = 0; i < kRunBins; ++i) {
            m_json.Key(kRunBinNames[i]).BeginObject();
            if (m_figures != nullptr) {
                m_json.Field("reference", runs[i].reference)
                    .Field("matchedReference", runs[i].matchedReference)
                    .Field("test", runs[i].test)
                    .Field("matchedTest", runs[i].matchedTest);
            }
            Fraction("se", letter + "_" + kRunBinNames[i] + "_se");
            Fraction("ppv", letter + "_" + kRunBinNames[i] + "_ppv");
            m_json.EndObject();
        }
        m_json.EndObject();
    }

    void WriteRuns() {
        m_json.Key("runs").BeginObject();
        WriteRunsOf("v", m_figures != nullptr ? m_figures->ventricularRuns : RunMatches());
        WriteRunsOf("s", m_figures != nullptr ? m_figures->supraventricularRuns : RunMatches());
        m_json.EndObject();
    }

    void WriteEpisodes() {
        m_json.Key("episodes").BeginObject().Key("vf").BeginObject();
        if (m_figures != nullptr) {
            const Matches& counts = m_figures->fibrillation;
            const Durations& seconds = m_figures->fibrillationSeconds;
            m_json.Field("reference", counts.reference)
                .Field("detected", counts.matchedReference)
                .Field("test", counts.test)
                .Field("matchedTest", counts.matchedTest)
                .Field("referenceSeconds", seconds.reference)
                .Field("detectedSeconds", seconds.detected)
                .Field("testSeconds", seconds.test)
                .Field("matchedSeconds", seconds.matched);
        }
        Fraction("se", "vf_se");
        Fraction("ppv", "vf_ppv");
        Fraction("durationSe", "vf_duration_se");
        Fraction("durationPpv", "vf_duration_ppv");
        m_json.EndObject().EndObject();
    }

    Json& m_json;
    const Fractions& m_fractions;
    const Figures* m_figures;
};

void WriteAlignment(Json& json, const Alignment& alignment) {
    json.Key("alignment")
        .BeginObject()
        .Field("offset", alignment.offset.ToDouble())
        .Field("offsetError", alignment.offsetError)
        .Field("placingError", alignment.placingError)
        .Field("clockPpm", alignment.clockPpm.ToDouble())
        .Field("clockPpmError", alignment.clockError)
        .Field("pairs", static_cast<int64_t>(alignment.pairs))
        .Field("agreement", alignment.agreement)
        .Field("nextBestAgreement", alignment.nextBest)
        .Field("scatter", alignment.scatter)
        .EndObject();
}

// The conditions under which the figures were obtained. With clocks found, each record has its own
// offset and clock.
void WriteConditions(Json& json, const ScoreResult& result) {
    const ScoreRequest& request = result.request;
    json.Field("learning", request.rules.learning.ToDouble())
        .Field("window", request.rules.window.ToDouble() * kMillisecondsPerSecond)
        .Field("align", request.aligns);
    json.Key("offset");
    request.aligns ? json.Null() : json.Value(request.rules.offset.ToDouble());
    json.Key("clockPpm");
    request.aligns ? json.Null() : json.Value(request.rules.clockPpm.ToDouble());
    json.Field("reference", request.reference)
        .Field("test", request.test)
        .Field("referenceSuffix", request.referenceSuffix)
        .Field("testSuffix", request.testSuffix)
        .Field("version", request.version);
    json.Key("warnings").BeginArray();
    for (const std::string& remark : result.remarks) {
        json.Value(remark);
    }
    json.EndArray();
}

void WriteRecordConditions(Json& json, const RecordScore& record) {
    json.Field("reference", record.input.reference)
        .Field("test", record.input.test)
        .Field("offset", record.offset.ToDouble())
        .Field("clockPpm", record.clockPpm.ToDouble());
    if (record.alignment) {
        WriteAlignment(json, *record.alignment);
    }
}

void WriteFigures(Json& json, const Figures& figures) {
    const Fractions fractions = FractionsOf(figures);
    Writer(json, fractions, &figures).Write();
}

} // namespace

std::string ScoreJson(const ScoreResult& result) {
    Json json;
    json.BeginObject().Field("format", 1);
    WriteConditions(json, result);
    json.Key("records").BeginArray();
    for (const RecordScore& record : result.records) {
        json.BeginObject().Field("record", record.input.record);
        WriteFigures(json, record.figures);
        WriteRecordConditions(json, record);
        json.EndObject();
    }
    json.EndArray().Key("gross").BeginObject();
    WriteFigures(json, result.gross);
    json.EndObject().Key("average").BeginObject();
    Writer(json, result.average, nullptr).Write();
    json.EndObject().EndObject();
    return json.Text();
}

} // namespace lab::score
