#include "lab/score/report/ReportCsv.h"

#include "lab/common/Failure.h"

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

std::string Header() {
    std::string line = "record";
    for (const NamedCount& each : CountsOf({})) {
        line += "," + each.name;
    }
    for (const NamedFraction& each : FractionsOf({})) {
        line += "," + each.name;
    }
    return line + "\n";
}

// The average has no counts.
std::string Line(const std::string& name, const Figures* figures, const Fractions& fractions) {
    std::string line = Quoted(name);
    for (const NamedCount& each : CountsOf(figures != nullptr ? *figures : Figures())) {
        line += "," + (figures != nullptr ? std::to_string(each.count) : std::string());
    }
    for (const NamedFraction& each : fractions) {
        line += "," + (each.value ? Format("%.10g", *each.value) : std::string());
    }
    return line + "\n";
}

} // namespace

std::string CsvOf(const ScoreResult& result) {
    std::string csv = Header();
    for (const RecordScore& record : result.records) {
        csv += Line(record.input.record, &record.figures, FractionsOf(record.figures));
    }
    return csv + Line("gross", &result.gross, FractionsOf(result.gross)) +
           Line("average", nullptr, result.average);
}

} // namespace lab::score
