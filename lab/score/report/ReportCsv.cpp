#include "lab/score/report/ReportCsv.h"

#include "lab/common/Failure.h"
#include "lab/score/report/Conditions.h"

namespace lab::score {
namespace {

struct NamedCount {
    std::string name;
    std::int64_t count;
};
using Counts = std::vector<NamedCount>;

void AddMatrix(Counts& counts, const Matrix& matrix) {
    for (std::size_t row = 0; row < kLabels; ++row) {
        for (std::size_t column = 0; column < (row < kBeatClasses ? kLabels : kBeatClasses);
             ++column) {
            counts.push_back({{kReferenceLetters[row], kTestLetters[column]}, matrix[row][column]});
        }
    }
}

void AddDetection(Counts& counts, const std::string& name, const Detection& detection) {
    counts.push_back({name + "_tp", detection.truePositives});
    counts.push_back({name + "_fn", detection.falseNegatives});
    counts.push_back({name + "_fp", detection.falsePositives});
    counts.push_back({name + "_tn", detection.trueNegatives});
}

void AddMatches(Counts& counts, const std::string& name, const Matches& matches) {
    counts.push_back({name + "_reference", matches.reference});
    counts.push_back({name + "_matched_reference", matches.matchedReference});
    counts.push_back({name + "_test", matches.test});
    counts.push_back({name + "_matched_test", matches.matchedTest});
}

Counts CountsOf(const Figures& figures) {
    Counts counts;
    AddMatrix(counts, figures.matrix);
    AddDetection(counts, "qrs", figures.Qrs());
    AddDetection(counts, "veb", figures.Ventricular());
    AddDetection(counts, "sveb", figures.Supraventricular());
    for (std::size_t i = 0; i < kRunBins; ++i) {
        AddMatches(counts, std::string("v_") + kRunBinNames[i], figures.ventricularRuns[i]);
    }
    for (std::size_t i = 0; i < kRunBins; ++i) {
        AddMatches(counts, std::string("s_") + kRunBinNames[i], figures.supraventricularRuns[i]);
    }
    AddMatches(counts, "vf", figures.fibrillation);
    return counts;
}

std::string Quoted(const std::string& text) {
    if (text.find_first_of(",\"\n\r") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

// ---- Under which conditions ---------------------------------------------------------------------

struct Condition {
    const char* name;
    std::string value;
};
using Conditions = std::vector<Condition>;

std::string Number(double value) {
    return Format("%.10g", value);
}

Conditions ClockConditions(const ScoreRequest& request, const RecordScore* record) {
    const Rational& offset = record != nullptr ? record->offset : request.rules.offset;
    const Rational& clock = record != nullptr ? record->clockPpm : request.rules.clockPpm;
    const bool isKnown = record != nullptr || !request.aligns;
    const Alignment* found = record != nullptr && record->alignment ? &*record->alignment : nullptr;
    const auto ofFound = [&](double Alignment::*value) {
        return found != nullptr ? Number(found->*value) : std::string();
    };
    return {{"align", request.aligns ? "true" : "false"},
            {"offset", isKnown ? Number(offset.ToDouble()) : ""},
            {"clock_ppm", isKnown ? Number(clock.ToDouble()) : ""},
            {"offset_error", ofFound(&Alignment::offsetError)},
            {"placing_error", ofFound(&Alignment::placingError)},
            {"clock_ppm_error", ofFound(&Alignment::clockError)},
            {"pairs", found != nullptr ? std::to_string(found->pairs) : ""},
            {"agreement", ofFound(&Alignment::agreement)},
            {"next_best_agreement", ofFound(&Alignment::nextBest)}};
}

// Figures of one record, or of all together when there is no record.
Conditions ConditionsFor(const ScoreRequest& request, const RecordScore* record) {
    Conditions conditions = {
        {"reference", Shown(record != nullptr ? record->input.reference : request.reference)},
        {"test", Shown(record != nullptr ? record->input.test : request.test)},
        {"reference_suffix", Shown(request.referenceSuffix)},
        {"test_suffix", Shown(request.testSuffix)},
        {"learning", Number(request.rules.learning.ToDouble())},
        {"window", Number(request.rules.window.ToDouble() * 1000.0)}};
    for (const Condition& each : ClockConditions(request, record)) {
        conditions.push_back(each);
    }
    conditions.push_back({"version", request.version});
    return conditions;
}

// ---- Lines --------------------------------------------------------------------------------------

std::string Header() {
    std::string line = "record";
    for (const NamedCount& each : CountsOf({})) {
        line += "," + each.name;
    }
    for (const NamedFraction& each : FractionsOf({})) {
        line += "," + each.name;
    }
    for (const Condition& each : ConditionsFor({}, nullptr)) {
        line += std::string(",") + each.name;
    }
    return line + "\n";
}

// An average has no counts.
std::string Line(const std::string& name, const Figures* figures, const Fractions& fractions,
                 const Conditions& conditions) {
    std::string line = Quoted(Shown(name));
    for (const NamedCount& each : CountsOf(figures != nullptr ? *figures : Figures())) {
        line += "," + (figures != nullptr ? std::to_string(each.count) : std::string());
    }
    for (const NamedFraction& each : fractions) {
        line += "," + (each.value ? Number(*each.value) : std::string());
    }
    for (const Condition& each : conditions) {
        line += "," + Quoted(each.value);
    }
    return line + "\n";
}

} // namespace

std::string CsvOf(const ScoreResult& result) {
    const ScoreRequest& request = result.request;
    std::string csv = Header();
    for (const RecordScore& record : result.records) {
        csv += Line(record.input.record, &record.figures, FractionsOf(record.figures),
                    ConditionsFor(request, &record));
    }
    const Conditions together = ConditionsFor(request, nullptr);
    return csv + Line("gross", &result.gross, FractionsOf(result.gross), together) +
           Line("average", nullptr, result.average, together);
}

} // namespace lab::score
